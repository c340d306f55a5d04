#include "base/UserDefaults.h"

#include "base/AppPaths.h"

#include <QStandardPaths>

namespace UserDefaults {

std::unique_ptr<QSettings> standard()
{
    return std::make_unique<QSettings>(AppPaths::configDir() + QStringLiteral("/Kelvara.conf"), QSettings::IniFormat);
}

std::unique_ptr<QSettings> groupSuite()
{
    const QString dir = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return std::make_unique<QSettings>(dir + QStringLiteral("/group.org.tamsel.apps.conf"), QSettings::IniFormat);
}

}  // namespace UserDefaults
