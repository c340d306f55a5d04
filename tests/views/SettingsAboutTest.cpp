#include "app/InstallWizardViewModel.h"
#include "app/MenuCommandDispatcher.h"
#include "app/security/AccessPanel.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "tools/security/BookmarkController.h"
#include "views/about/AboutView.h"
#include "views/about/ToolSDKInstallWizard.h"
#include "views/app/BuiltinFeatures.h"
#include "views/app/AppMainWindow.h"
#include "views/app/StartupQuestions.h"
#include "views/settings/AppSettingsWindow.h"
#include "views/settings/BookmarkSetupView.h"

#include "tools/security/PrivacyAccess.h"
#include "tests/support/TestServices.h"

#include <QCheckBox>
#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFileInfo>
#include <QProgressBar>
#include <QStackedWidget>
#include <QLabel>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>

using namespace ViewsTestSupport;

namespace {

class SettingsAboutTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        BookmarkController *bookmarks = BookmarkController::shared();
        for (const BookmarkInfo &info : bookmarks->bookmarks())
            bookmarks->removeBookmark(info.url);
        AccessPanel::setPresenter(&panel);
    }
    void TearDown() override
    {
        AccessPanel::setPresenter(nullptr);
        closeAllWindows();
    }
    template <typename T>
    static T *button(QWidget *root, const char *name)
    {
        return root->findChild<T *>(QString::fromLatin1(name));
    }

    FakeOpenPanel panel;
};

TEST_F(SettingsAboutTest, SettingsWindowIsOneWindowWithTheSectionsOfTheBuild)
{
    BuiltinFeatures::registerAll(TestServices::application());
    AppSettingsWindow *settings = AppSettingsWindow::showSettings();
    EXPECT_EQ(settings->windowTitle(), "Kelvara - Settings");
    ASSERT_EQ(settings->tabs()->count(), 2);  // the script editor's section is not built yet
    EXPECT_EQ(settings->tabs()->tabText(0), "Security Scopes");
    EXPECT_EQ(settings->tabs()->tabText(1), "Privacy");

    // The privacy switches set what the built-in tools check, both ways.
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::NotDetermined);
    settings->selectSection(AppSettingsSection::privacy);
    auto *contacts = settings->findChild<QCheckBox *>(QStringLiteral("privacy.contacts"));
    ASSERT_NE(contacts, nullptr);
    EXPECT_FALSE(contacts->isChecked());
    contacts->click();
    EXPECT_EQ(PrivacyAccess::status(PrivacyAccess::Kind::Contacts), PrivacyAccess::FullAccess);
    contacts->click();
    EXPECT_EQ(PrivacyAccess::status(PrivacyAccess::Kind::Contacts), PrivacyAccess::Denied);
    settings->selectSection(AppSettingsSection::bookmarks);
    EXPECT_EQ(AppSettingsWindow::showSettings(), settings);
    EXPECT_EQ(AppSettingsWindow::current(), settings);

    // An empty list says so; removing the only row comes back to that.
    auto *view = settings->findChild<BookmarkSetupView *>();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->statusLabel()->text(), "No files selected");
    panel.answer = QUrl::fromLocalFile(TestSupport::makeTempDir());
    button<QPushButton>(view, "bookmarkAddButton")->click();
    ASSERT_EQ(view->table()->rowCount(), 1);
    view->table()->selectRow(0);
    button<QPushButton>(view, "bookmarkRemoveButton")->click();
    EXPECT_EQ(view->table()->rowCount(), 0);
    EXPECT_EQ(view->statusLabel()->text(), "No files selected");

    settings->close();
    EXPECT_TRUE(TestSupport::waitUntil([] { return AppSettingsWindow::current() == nullptr; }));
}

TEST_F(SettingsAboutTest, SecurityScopesSheetReviewsAddsAndDropsLocations)
{
    const QString kept = TestSupport::makeTempDir(QStringLiteral("kept"));
    const QString dropped = TestSupport::makeTempDir(QStringLiteral("dropped"));
    BookmarkController *bookmarks = BookmarkController::shared();
    ASSERT_TRUE(bookmarks->addBookmark(QUrl::fromLocalFile(kept)));
    ASSERT_TRUE(bookmarks->addBookmark(QUrl::fromLocalFile(dropped)));

    AboutView about;
    about.show();
    QDialog *sheet = about.openSecurityScopesSheet();
    auto *view = sheet->findChild<BookmarkSetupView *>();
    ASSERT_NE(view, nullptr);
    // The texts, the drafts and what Finish applies are the view model's, tested with it.
    EXPECT_EQ(button<QLabel>(view, "bookmarkHeading")->text(), "Kelvara - Security Scopes");
    EXPECT_FALSE(button<QPushButton>(view, "bookmarkFinishButton")->isVisible());
    button<QPushButton>(view, "bookmarkNextButton")->click();
    QTableWidget *table = view->table();
    ASSERT_EQ(table->rowCount(), 2);
    EXPECT_TRUE(button<QPushButton>(view, "bookmarkFinishButton")->isVisible());

    // Untick one, add a third through the panel.
    int droppedRow = table->item(0, 2)->text() == dropped ? 0 : 1;
    table->item(droppedRow, 0)->setCheckState(Qt::Unchecked);
    EXPECT_EQ(view->statusLabel()->text(), "You have unsaved changes");
    const QString added = TestSupport::makeTempDir(QStringLiteral("added"));
    panel.answer = QUrl::fromLocalFile(added);
    button<QPushButton>(view, "bookmarkAddButton")->click();
    ASSERT_EQ(panel.requests.size(), 1);
    ASSERT_EQ(table->rowCount(), 3);

    button<QPushButton>(view, "bookmarkFinishButton")->click();
    EXPECT_TRUE(bookmarks->findBookmark(QUrl::fromLocalFile(kept)).has_value());
    EXPECT_TRUE(bookmarks->findBookmark(QUrl::fromLocalFile(added)).has_value());
    EXPECT_FALSE(bookmarks->findBookmark(QUrl::fromLocalFile(dropped)).has_value());
    EXPECT_TRUE(TestSupport::waitUntil([&] { return about.sheet() == nullptr; }));
}

TEST_F(SettingsAboutTest, AboutShowsItselfAndOffersImportOnceTheFeatureIsThere)
{
    AboutView about;
    EXPECT_EQ(about.findChild<QLabel *>(QStringLiteral("aboutName"))->text(), "Kelvara");
    EXPECT_TRUE(about.findChild<QLabel *>(QStringLiteral("aboutVersion"))->text().contains(QStringLiteral(KELVARA_VERSION)));
    about.show();

    MenuCommandDispatcher *menus = MenuCommandDispatcher::shared();
    const bool hadImport = menus->hasHandler(MenuCommand::ImportConfiguration);
    menus->unregisterHandler(MenuCommand::ImportConfiguration);
    EXPECT_FALSE(about.importButton()->isVisible());
    std::optional<MenuCommandContext> asked;
    menus->registerHandler(MenuCommand::ImportConfiguration, [&](const MenuCommandContext &c) { asked = c; });
    EXPECT_TRUE(about.importButton()->isVisible());
    EXPECT_EQ(about.importButton()->text(), "Import configuration");
    about.importButton()->click();
    ASSERT_TRUE(asked.has_value());
    EXPECT_EQ(asked->controller, nullptr);  // no list to reload from here
    menus->unregisterHandler(MenuCommand::ImportConfiguration);
    EXPECT_FALSE(about.importButton()->isVisible());
    if (hadImport)
        BuiltinFeatures::registerAll(TestServices::application());

    QDialog *privacy = about.openPrivacySheet();
    EXPECT_EQ(privacy->windowTitle(), "Privacy");
}

TEST_F(SettingsAboutTest, TheToolSdkInstallerWalksItsPagesAndInstallsTheKit)
{
    const QString root = TestSupport::makeTempDir(QStringLiteral("sdk-wizard"));
    QDir().mkpath(root + QStringLiteral("/ToolSDK"));  // an old kit, to be replaced
    AboutView about;
    about.show();
    about.installToolSdkButton()->click();
    auto *wizard = qobject_cast<ToolSDKInstallWizard *>(about.sheet());
    ASSERT_NE(wizard, nullptr);
    wizard->setFolderChooser([root] { return root; });

    EXPECT_EQ(wizard->pages()->currentIndex(), 0);
    EXPECT_FALSE(wizard->backButton()->isEnabled());
    wizard->nextButton()->click();
    EXPECT_EQ(wizard->pages()->currentIndex(), 1);
    EXPECT_FALSE(wizard->nextButton()->isEnabled());  // closed until a folder is chosen
    EXPECT_EQ(wizard->nextButton()->toolTip(), "Go to next page");
    wizard->chooseButton()->click();
    EXPECT_TRUE(wizard->nextButton()->isEnabled());
    EXPECT_FALSE(wizard->existsWarning()->isHidden());
    wizard->nextButton()->click();
    EXPECT_EQ(wizard->pages()->currentIndex(), 2);
    EXPECT_EQ(wizard->nextButton()->text(), "Install");
    EXPECT_EQ(wizard->nextButton()->toolTip(), "Install SDK");
    wizard->nextButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return wizard->model()->installationComplete(); }, 20000));
    EXPECT_EQ(wizard->pages()->currentIndex(), 4);
    EXPECT_EQ(wizard->progressBar()->value(), 1000);
    EXPECT_EQ(wizard->nextButton()->text(), "Finish");
    EXPECT_TRUE(QFileInfo::exists(root + QStringLiteral("/ToolSDK/README-SamplePlugin.md")));
    wizard->nextButton()->click();
    EXPECT_FALSE(wizard->isVisible());
}

TEST_F(SettingsAboutTest, HomeFolderNoticeCopiesItsCommand)
{
    const HomeFolderAccessNotice notice{"Home Folder Access Required", "text", "Copy Command", "Cancel",
                                        "chmod u+rwx '/home/someone'"};
    QWidget parent;
    parent.show();
    QMessageBox *box = StartupQuestions::showHomeFolderNotice(&parent, notice);
    EXPECT_EQ(box->windowTitle(), "Home Folder Access Required");
    QAbstractButton *copy = nullptr;
    for (QAbstractButton *b : box->buttons())
        if (b->text() == "Copy Command")
            copy = b;
    ASSERT_NE(copy, nullptr);
    copy->click();
    EXPECT_EQ(QApplication::clipboard()->text(), notice.command);
}

// The first window asks once about each kind not decided yet: reminders, calendars, then
// contacts, each question after the answer to the one before.
TEST_F(SettingsAboutTest, TheFirstWindowAsksAboutEachUndecidedKindInTurn)
{
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Reminders, PrivacyAccess::NotDetermined);
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::FullAccess);  // decided already
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::NotDetermined);
    AppMainWindow window(TestServices::application().server());
    window.show();
    StartupQuestions::ask(&window);
    auto question = [&](const char *kind) {
        QMessageBox *box = nullptr;
        TestSupport::waitUntil([&] {
            box = window.findChild<QMessageBox *>(QStringLiteral("privacyQuestion.") + QLatin1String(kind));
            return box && box->isVisible();
        });
        return box;
    };
    auto click = [](QMessageBox *box, const QString &text) {
        for (QAbstractButton *b : box->buttons())
            if (b->text() == text)
                b->click();
    };
    QMessageBox *reminders = question("reminders");
    ASSERT_NE(reminders, nullptr);
    EXPECT_EQ(reminders->text(), "Kelvara would like to access your reminders.");
    EXPECT_EQ(window.findChild<QMessageBox *>(QStringLiteral("privacyQuestion.contacts")), nullptr);
    click(reminders, QStringLiteral("Allow"));
    QMessageBox *contacts = question("contacts");
    ASSERT_NE(contacts, nullptr);
    click(contacts, QStringLiteral("Don't Allow"));
    EXPECT_TRUE(TestSupport::waitUntil([] { return PrivacyAccess::status(PrivacyAccess::Kind::Contacts) != 0; }));
    EXPECT_EQ(PrivacyAccess::status(PrivacyAccess::Kind::Reminders), PrivacyAccess::FullAccess);
    EXPECT_EQ(PrivacyAccess::status(PrivacyAccess::Kind::Calendars), PrivacyAccess::FullAccess);
    EXPECT_EQ(PrivacyAccess::status(PrivacyAccess::Kind::Contacts), PrivacyAccess::Denied);
}

}  // namespace
