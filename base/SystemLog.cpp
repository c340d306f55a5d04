#include "base/SystemLog.h"

Q_LOGGING_CATEGORY(lcSystemLog, "kelvara.system", QtWarningMsg)

namespace SystemLog {
void write(const QString &line)
{
    qCInfo(lcSystemLog).noquote() << line;
}
}  // namespace SystemLog
