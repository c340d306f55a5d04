#include "app/InstallWizardViewModel.h"
#include "base/AppPaths.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>

namespace {

void write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

// Runs the install and waits for its end; true when it succeeded.
bool install(InstallWizardViewModel &model, QList<double> *progress = nullptr)
{
    QSignalSpy finished(&model, &InstallWizardViewModel::installFinished);
    if (progress)
        QObject::connect(&model, &AbstractController::changed, &model, [&model, progress] {
            if (progress->isEmpty() || progress->last() != model.copyProgress())
                progress->append(model.copyProgress());
        });
    model.startInstall();
    if (!finished.wait(20000) && finished.isEmpty())
        return false;
    return finished.first().first().toBool();
}

}  // namespace

TEST(InstallWizardViewModelTest, PagesOpenOnlyOnceAFolderIsChosenAndTheWarningFollowsIt)
{
    const QString parent = TestSupport::makeTempDir(QStringLiteral("sdk-pages"));
    InstallWizardViewModel model(parent + QStringLiteral("/kit"));
    EXPECT_TRUE(model.canProceed());
    model.nextPage();
    EXPECT_EQ(model.currentPage(), 1);
    EXPECT_FALSE(model.canProceed());
    model.nextPage();  // the page does not check: the dialog's button is closed
    EXPECT_FALSE(model.canProceed());
    EXPECT_EQ(model.readmePath(InstallWizardViewModel::READMEType::main), "Can't find README file");

    model.setSelectedDestination(parent);
    EXPECT_TRUE(model.canProceed());
    EXPECT_FALSE(model.destinationExists());
    QDir().mkpath(parent + QStringLiteral("/ToolSDK"));
    model.checkDestination();
    EXPECT_TRUE(model.destinationExists());
    EXPECT_EQ(model.readmePath(InstallWizardViewModel::READMEType::samplePlugin), parent + "/ToolSDK/README-SamplePlugin.md");
    model.nextPage();
    EXPECT_EQ(model.currentPage(), 2);  // never beyond the review
    model.previousPage();
    model.previousPage();
    model.previousPage();
    EXPECT_EQ(model.currentPage(), 0);
}

TEST(InstallWizardViewModelTest, TheCopyReplacesAnOldKitAndItsProgressReachesOne)
{
    const QString root = TestSupport::makeTempDir(QStringLiteral("sdk-copy"));
    const QString kit = root + QStringLiteral("/kit");
    write(kit + "/README.md", "# kit");
    write(kit + "/include/Header.h", "// h");
    write(kit + "/SamplePlugin/Sample.c", "int x;");
    write(root + "/dest/ToolSDK/stale.txt", "old");

    InstallWizardViewModel model(kit);
    model.setSelectedDestination(root + "/dest");
    EXPECT_TRUE(model.destinationExists());
    QList<double> progress;
    ASSERT_TRUE(install(model, &progress));
    EXPECT_TRUE(model.installationComplete());
    EXPECT_FALSE(model.isInstalling());
    EXPECT_FALSE(model.showingCopyProgress());
    EXPECT_EQ(progress.last(), 1.0);
    EXPECT_GE(progress.size(), 3);  // one step a file
    EXPECT_TRUE(QFileInfo::exists(root + "/dest/ToolSDK/include/Header.h"));
    EXPECT_FALSE(QFileInfo::exists(root + "/dest/ToolSDK/stale.txt"));  // replaced as a whole
    EXPECT_EQ(model.currentCopyingFile(), std::optional<QString>("Header.h"));  // the last in path order

    // An empty kit copies nothing and still completes.
    QDir().mkpath(root + "/empty");
    InstallWizardViewModel empty(root + "/empty");
    empty.setSelectedDestination(root + "/dest2");
    QDir().mkpath(root + "/dest2");
    EXPECT_TRUE(install(empty));
    EXPECT_EQ(empty.copyProgress(), 0.0);
}

TEST(InstallWizardViewModelTest, AFailedCopyRaisesTheAlertAndCanBeTriedAgain)
{
    const QString root = TestSupport::makeTempDir(QStringLiteral("sdk-fail"));
    write(root + "/kit/README.md", "# kit");
    write(root + "/not-a-folder", "a file where the folder should be");
    InstallWizardViewModel model(root + "/kit");
    model.setSelectedDestination(root + "/not-a-folder");
    EXPECT_FALSE(install(model));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return model.shouldShowAlert(); }));
    EXPECT_EQ(model.alertTitle(), "Installation Failed");
    EXPECT_EQ(model.alertMessage(), "An error occurred while installing the ToolSDK. Please try again.");
    EXPECT_FALSE(model.isInstalling());
    EXPECT_FALSE(model.installationComplete());

    QDir().mkpath(root + "/good");
    model.setSelectedDestination(root + "/good");
    EXPECT_TRUE(install(model));
}

// The installed kit is enough to build the sample plug-in by its own instructions, and Kelvara
// takes the result.
TEST(InstallWizardViewModelTest, TheInstalledKitBuildsTheSamplePluginThatKelvaraAccepts)
{
    const QString root = TestSupport::makeTempDir(QStringLiteral("sdk-build"));
    InstallWizardViewModel model;  // the application's own kit
    model.setSelectedDestination(root);
    ASSERT_TRUE(install(model));
    const QString sample = root + QStringLiteral("/ToolSDK/SamplePlugin");

    // Each of the kit's three ways: make, CMake on its own, and the one cc line of its README.
    auto build = [&](const QString &program, const QStringList &arguments) {
        QProcess step;
        step.setWorkingDirectory(sample);
        step.start(program, arguments);
        EXPECT_TRUE(step.waitForFinished(180000));
        EXPECT_EQ(step.exitCode(), 0) << program.toStdString() << ": " << step.readAllStandardError().toStdString();
    };
    build(QStringLiteral("make"), {});
    EXPECT_TRUE(QFileInfo::exists(sample + "/TextStats.so"));
    EXPECT_TRUE(QFileInfo::exists(sample + "/TextStats.bundle/Contents/Linux/TextStats.so"));
    build(QStringLiteral("cmake"), {QStringLiteral("-S"), QStringLiteral("."), QStringLiteral("-B"), QStringLiteral("cmake-build")});
    build(QStringLiteral("cmake"), {QStringLiteral("--build"), QStringLiteral("cmake-build")});
    EXPECT_TRUE(QFileInfo::exists(sample + "/cmake-build/lib/TextStats.so"));
    build(QStringLiteral("cc"), {QStringLiteral("-shared"), QStringLiteral("-fPIC"), QStringLiteral("-fvisibility=hidden"),
                                 QStringLiteral("-I"), QStringLiteral("../include"), QStringLiteral("-o"),
                                 QStringLiteral("ByHand.so"), QStringLiteral("TextStats.c")});
    EXPECT_TRUE(QFileInfo::exists(sample + "/ByHand.so"));

    QProcess add;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), root + QStringLiteral("/config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), root + QStringLiteral("/data"));
    add.setProcessEnvironment(env);
    add.start(QStringLiteral(KELVARA_EXECUTABLE), {QStringLiteral("plugin"), QStringLiteral("add"), QStringLiteral("--yes"),
                                                  sample + QStringLiteral("/TextStats.so")});
    ASSERT_TRUE(add.waitForFinished(60000));
    EXPECT_EQ(add.exitCode(), 0) << add.readAllStandardError().toStdString();
    EXPECT_TRUE(add.readAllStandardOutput().contains("Registered plugin:"));
}
