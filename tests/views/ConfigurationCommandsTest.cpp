#include "base/DesktopNotifier.h"
#include "app/MenuCommandDispatcher.h"
#include "app/config/ServerConfigController.h"
#include "store/ConfigurationController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/AppMenuBar.h"
#include "views/app/BuiltinFeatures.h"
#include "views/app/ConfigurationCommands.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace ViewsTestSupport;

namespace {

class RecordingNotifier : public DesktopNotifier {
public:
    QStringList shown;
    void notify(const QString &title, const QString &body, const QString &action) override
    {
        shown.append(title + " / " + body + " / " + action);
    }
};

class ConfigurationCommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        DesktopNotifier::setShared(&notifier);
        BuiltinFeatures::registerAll(TestServices::application());
        window = launchedWindow(MenuDestination::menuAbout);
    }
    void TearDown() override
    {
        DesktopNotifier::setShared(nullptr);
        closeAllWindows();
    }
    QMessageBox *waitForBox()
    {
        TestSupport::waitUntil([] { return openMessageBox() != nullptr; });
        return openMessageBox();
    }
    void press(QMessageBox *box, const QString &text)
    {
        for (QAbstractButton *button : box->buttons()) {
            if (button->text() == text) {
                button->click();
                TestSupport::waitUntil([box] { return openMessageBox() != box; });
                return;
            }
        }
        ADD_FAILURE() << "no button " << text.toStdString();
    }

    RecordingNotifier notifier;
    AppMainWindow *window = nullptr;
};

TEST_F(ConfigurationCommandsTest, ExportTellsTheUserAndWritesTheBundle)
{
    QAction *exportAction = window->appMenuBar()->action(MenuCommand::ExportConfiguration);
    ASSERT_TRUE(exportAction->isVisible());
    exportAction->trigger();
    QMessageBox *box = waitForBox();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->windowTitle(), "Export");
    EXPECT_EQ(box->text(), ConfigurationController::exportCompletedText);
    EXPECT_EQ(notifier.shown, QStringList{QStringLiteral("Export / ") + ConfigurationController::exportCompletedText
                                          + QStringLiteral(" / Got it")});
    EXPECT_TRUE(QFileInfo(TestServices::application().configuration()->exportRoot() + QStringLiteral("/Tools")).isDir());
    box->accept();
}

TEST_F(ConfigurationCommandsTest, ImportAsksFirstAndCancelDoesNothing)
{
    window->appMenuBar()->action(MenuCommand::ImportConfiguration)->trigger();
    QMessageBox *question = waitForBox();
    ASSERT_NE(question, nullptr);
    EXPECT_EQ(question->windowTitle(), "Import Configuration");
    EXPECT_EQ(question->text(), QStringLiteral("Import appends data to existing records \u2014 nothing will be deleted."
                                               "\n\nDo you want to continue?"));
    press(question, QStringLiteral("Cancel"));
    TestSupport::spin(50);
    EXPECT_EQ(openMessageBox(), nullptr);
    EXPECT_TRUE(notifier.shown.isEmpty());

    window->appMenuBar()->action(MenuCommand::ImportConfiguration)->trigger();
    press(waitForBox(), QStringLiteral("Import"));
    QMessageBox *done = waitForBox();
    ASSERT_NE(done, nullptr);
    EXPECT_EQ(done->text(), "Import complete");
    // The counts and how clients get what was imported.
    EXPECT_TRUE(done->informativeText().contains(QStringLiteral(" tools, ")));
    EXPECT_TRUE(done->informativeText().endsWith(TestServices::application().server()->importHint()));
    EXPECT_EQ(notifier.shown, QStringList{QStringLiteral("Import / Import complete / Got it")});
}

TEST_F(ConfigurationCommandsTest, ImportFromFolderCountsWhatItRead)
{
    // A bundle with one prompt and no Tools folder at all.
    const QString bundle = TestSupport::makeTempDir(QStringLiteral("bundle"));
    QDir().mkpath(bundle + QStringLiteral("/Prompts"));
    QDir().mkpath(bundle + QStringLiteral("/Resources"));
    QFile prompt(bundle + QStringLiteral("/Prompts/greet.json"));
    ASSERT_TRUE(prompt.open(QIODevice::WriteOnly));
    prompt.write(R"({"arguments":[],"description":"Says hello","name":"greet","template":"Hello"})");
    prompt.close();

    FakeFileDialogs dialogs;
    dialogs.answer = bundle;
    window->appMenuBar()->action(MenuCommand::ImportConfigurationFromFolder)->trigger();
    QMessageBox *question = waitForBox();
    ASSERT_NE(question, nullptr);
    EXPECT_EQ(question->windowTitle(), "Import Configuration from Folder");
    EXPECT_TRUE(question->text().startsWith(QStringLiteral("Please select a folder that contains the exported configuration "
                                                          "sub-folders (Tools, Resources, Prompts).\n\n")));
    press(question, QStringLiteral("Select Folder\u2026"));
    QMessageBox *done = waitForBox();
    ASSERT_NE(done, nullptr);
    EXPECT_EQ(dialogs.folderRequests.size(), 1);
    EXPECT_EQ(done->text(), QStringLiteral("Import complete \u2014 0 tools, 0 resources, 1 prompts imported."));
    EXPECT_EQ(done->informativeText(), TestServices::application().server()->importHint());
}

}  // namespace
