#include "base/AppPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace AppPaths {

QString displayName() { return QStringLiteral("Kelvara"); }
QString bundleIdentifier() { return QStringLiteral("org.tamsel.kelvara"); }
QString version() { return QStringLiteral(KELVARA_VERSION); }

QString dataDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Kelvara");
}

QString configDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/Kelvara");
}

QString preferencesDir() { return dataDir() + QStringLiteral("/Preferences"); }

QString storePath() { return dataDir() + QStringLiteral("/Kelvara.sqlite"); }

QString resourcesDir()
{
    const QString overridden = qEnvironmentVariable("KELVARA_RESOURCES");
    if (!overridden.isEmpty())
        return QDir::cleanPath(overridden);
    if (QCoreApplication::instance()) {
        const QString beside = QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/kelvara"));
        if (QFileInfo(beside).isDir())
            return beside;
    }
    return QStringLiteral(KELVARA_SOURCE_RESOURCES);
}

QString builtinConfigurationDir() { return resourcesDir() + QStringLiteral("/Configuration"); }

QString toolSdkDir() { return resourcesDir() + QStringLiteral("/ToolSDK"); }

}  // namespace AppPaths
