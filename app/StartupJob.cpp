#include "app/StartupJob.h"

#include <cmath>

QString StartupJob::percentText() const
{
    return QString::number(int(std::lround(progress * 100))) + QLatin1Char('%');
}
