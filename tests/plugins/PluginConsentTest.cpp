// "kelvara plugin add" against a plug-in whose library marks every process that loads it:
// the details are shown and the question asked while only a short-lived child has loaded it.
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>

namespace {

struct AddRun {
    int exitCode = -1;
    QString out;
    QString err;
    qint64 pid = 0;
};

AddRun runKelvara(const QString &home, const QString &marker, const QStringList &arguments, const QByteArray &answer)
{
    QProcess kelvara;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    env.insert(QStringLiteral("KELVARA_FIXTURE_MARKER"), marker);
    kelvara.setProcessEnvironment(env);
    kelvara.start(QStringLiteral(KELVARA_EXECUTABLE), arguments);
    AddRun run;
    if (!kelvara.waitForStarted(10000))
        return run;
    run.pid = kelvara.processId();
    kelvara.write(answer);
    kelvara.closeWriteChannel();
    kelvara.waitForFinished(30000);
    run.exitCode = kelvara.exitCode();
    run.out = QString::fromUtf8(kelvara.readAllStandardOutput());
    run.err = QString::fromUtf8(kelvara.readAllStandardError());
    return run;
}

AddRun pluginAdd(const QString &home, const QString &marker, const QString &plugin, const QByteArray &answer)
{
    return runKelvara(home, marker, {QStringLiteral("plugin"), QStringLiteral("add"), plugin}, answer);
}

QStringList loaders(const QString &marker)
{
    QFile file(marker);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLatin1(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

}  // namespace

TEST(PluginConsentTest, TheLibraryRunsOnlyInAChildBeforeTheAnswer)
{
    const QString home = TestSupport::makeTempDir(QStringLiteral("consent"));
    const QString marker = home + QStringLiteral("/loaded-by");
    const QString plugin = QStringLiteral(KELVARA_TEST_PLUGIN_DIR "/fixture_marks_load.so");

    const AddRun denied = pluginAdd(home, marker, plugin, "n\n");
    EXPECT_EQ(denied.exitCode, 1) << denied.err.toStdString();
    EXPECT_TRUE(denied.out.contains(QStringLiteral("Inspecting a library runs its code"))) << denied.out.toStdString();
    EXPECT_TRUE(denied.out.contains(QStringLiteral("fixture")));  // the details came from the child
    const QStringList first = loaders(marker);
    ASSERT_EQ(first.size(), 1);  // loaded once, to read the details
    EXPECT_NE(first.first().toLongLong(), denied.pid);

    // Approval registers it; still nothing is loaded into the registering process.
    const AddRun approved = pluginAdd(home, marker, plugin, "y\n");
    EXPECT_EQ(approved.exitCode, 0) << approved.err.toStdString();
    EXPECT_TRUE(approved.out.contains(QStringLiteral("Registered plugin:")));
    const QStringList all = loaders(marker);
    ASSERT_EQ(all.size(), 2);
    EXPECT_NE(all.last().toLongLong(), approved.pid);
}

TEST(PluginConsentTest, ServeReadsAnUnregisteredLibraryOnlyInAChild)
{
    // Naming a file that was never approved is refused without its code running in the server.
    const QString home = TestSupport::makeTempDir(QStringLiteral("consent-serve"));
    const QString marker = home + QStringLiteral("/loaded-by");
    const QString plugin = QStringLiteral(KELVARA_TEST_PLUGIN_DIR "/fixture_marks_load.so");
    const AddRun refused = runKelvara(home, marker,
                                      {QStringLiteral("serve"), QStringLiteral("--port"),
                                       QString::number(TestSupport::freeLowPort()), QStringLiteral("--enable-plugin"), plugin},
                                      {});
    EXPECT_EQ(refused.exitCode, 1) << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains(QStringLiteral("is not registered"))) << refused.err.toStdString();
    const QStringList loaded = loaders(marker);
    ASSERT_EQ(loaded.size(), 1);
    EXPECT_NE(loaded.first().toLongLong(), refused.pid);
}
