// main() of the Qt-based test executables: a fresh temporary folder holds the XDG data and
// config folders of this process, then the Qt application object is made and the tests run.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#ifdef KELVARA_TEST_GUI
#include <QApplication>
#endif

#include <memory>

int main(int argc, char **argv)
{
    QTemporaryDir sandbox(QDir::tempPath() + QStringLiteral("/kelvara-test-XXXXXX"));
    const QString root = sandbox.path();
    for (const char *name : {"data", "config", "cache", "runtime"})
        QDir().mkpath(root + QLatin1Char('/') + QLatin1String(name));
    qputenv("KELVARA_TEST_SANDBOX", root.toUtf8());
    qputenv("XDG_DATA_HOME", (root + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CONFIG_HOME", (root + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_CACHE_HOME", (root + QStringLiteral("/cache")).toUtf8());
    qputenv("XDG_RUNTIME_DIR", (root + QStringLiteral("/runtime")).toUtf8());
    QFile::setPermissions(root + QStringLiteral("/runtime"), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Tests never talk to a user's session bus or desktop, and reach their local servers directly
    // whatever proxy the environment names.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/kelvara-test-bus");
    qputenv("no_proxy", "127.0.0.1,localhost");
    qputenv("NO_PROXY", "127.0.0.1,localhost");

    ::testing::InitGoogleTest(&argc, argv);
#ifdef KELVARA_TEST_GUI
    // The window's guided tour is done for the tests, as for a returning user; the tour's own
    // tests undo it.
    {
        QFile settings(root + QStringLiteral("/config/Kelvara/Kelvara.conf"));
        QDir().mkpath(root + QStringLiteral("/config/Kelvara"));
        if (settings.open(QIODevice::WriteOnly)) {
            settings.write("[General]\n");
            for (const char *item : {"menuServerConfig", "menuPromptConfig", "menuResourceConfig", "menuToolConfig",
                                     "menuScriptEditor", "menuPluginManager", "menuAIChat", "menuAbout"})
                settings.write(QByteArray("ob.completed.") + item + "=true\n");
        }
    }
    QApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    app.setApplicationName(QStringLiteral("Kelvara"));
    return RUN_ALL_TESTS();
}
