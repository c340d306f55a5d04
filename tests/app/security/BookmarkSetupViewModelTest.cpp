#include "app/security/AccessPanel.h"
#include "app/security/BookmarkSetupViewModel.h"
#include "app/security/OpenPanelPresenter.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "tools/security/BookmarkController.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

QUrl fileUrl(const QString &path) { return QUrl::fromLocalFile(path); }

class BookmarkSetupViewModelTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto defaults = UserDefaults::standard();
        defaults->remove(BookmarkController::bookmarkDataKey);
        defaults->remove(BookmarkController::bookmarkInfoKey);
        defaults->sync();
        root = TestSupport::makeTempDir(QStringLiteral("setup"));
        QDir().mkpath(root + "/one");
        QDir().mkpath(root + "/two");
        QFile file(root + "/two/keep.txt");
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("stays");
    }
    void TearDown() override { AccessPanel::setPresenter(nullptr); }

    QString root;
};

TEST_F(BookmarkSetupViewModelTest, IntroductionIsTheAssistantsOwnText)
{
    BookmarkController controller;
    BookmarkSetupViewModel model(&controller);
    EXPECT_EQ(model.currentPage(), 0);
    EXPECT_EQ(model.introductionText(),
              QStringLiteral("Kelvara - Security Scopes\n\nChoose the files and folders that Kelvara's tools and scripts "
                             "may read and write. Everything else stays out of their reach.\n\n"
                             "Steps:\n1. Review this introduction.\n2. Add the files and folders Kelvara may use, review "
                             "the list and finish.\n\nYou can change the list later in File ▸ Settings ▸ Security "
                             "Scopes.\n\n"));
    model.nextPage();
    model.nextPage();
    EXPECT_EQ(model.currentPage(), 1);
    EXPECT_EQ(model.statusTitle(), QStringLiteral("No files selected"));
    EXPECT_EQ(model.statusMessage(), QStringLiteral("Choose at least one location to continue."));
}

TEST_F(BookmarkSetupViewModelTest, DraftsMirrorTheStoredChoicesAndAddingTwiceAddsOnce)
{
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/one"), QStringLiteral("First")));
    BookmarkSetupViewModel model(&controller);
    ASSERT_EQ(model.drafts().size(), 1);
    EXPECT_EQ(model.drafts().first().displayName, QStringLiteral("First"));
    EXPECT_TRUE(model.drafts().first().enabled);
    EXPECT_EQ(model.selectedURLs(), QList<QUrl>{fileUrl(root + "/one")});
    EXPECT_FALSE(model.hasUnsavedChanges());

    EXPECT_TRUE(model.addURL(fileUrl(root + "/two")));
    EXPECT_FALSE(model.addURL(fileUrl(root + "/two")));
    EXPECT_FALSE(model.addURL(fileUrl(root + "/one")));
    ASSERT_EQ(model.drafts().size(), 2);
    EXPECT_EQ(model.drafts().last().displayName, QStringLiteral("two"));
    EXPECT_TRUE(model.hasUnsavedChanges());
    EXPECT_EQ(model.statusTitle(), QStringLiteral("You have unsaved changes"));

    model.removeDrafts({model.drafts().first().id});
    ASSERT_EQ(model.drafts().size(), 1);
    EXPECT_EQ(model.selectedURLs(), QList<QUrl>{fileUrl(root + "/two")});

    // The panel route adds the same way.
    struct Panel : OpenPanelPresenter {
        void present(const OpenPanelRequest &request, std::function<void(const QUrl &)> done) override
        {
            message = request.message;
            done(chosen);
        }
        QString message;
        QUrl chosen;
    } panel;
    panel.chosen = fileUrl(root + "/one");
    AccessPanel::setPresenter(&panel);
    model.addLocation();
    EXPECT_EQ(panel.message, QStringLiteral("Add file or directory resource"));
    EXPECT_EQ(model.drafts().size(), 2);
}

TEST_F(BookmarkSetupViewModelTest, FinishAppliesTheTableUntickedRemovesAndFilesStayUntouched)
{
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/one")));
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/two")));
    BookmarkSetupViewModel model(&controller);
    const QUuid two = model.drafts().last().id;
    model.setDraftEnabled(two, false);
    ASSERT_TRUE(model.addURL(fileUrl(root + "/two/keep.txt")));  // under an unticked folder: gets its own entry
    ASSERT_TRUE(model.addURL(fileUrl(root + "/gone")));           // cannot be stored: logged, skipped

    QStringList lines;
    auto *log = LogController::shared();
    const auto previous = log->logHandler();
    log->setLogHandler([&](MCPLogMessageType, int, const QString &message) { lines << message; });
    model.finish();
    log->setLogHandler(previous);

    EXPECT_FALSE(model.hasUnsavedChanges());
    QStringList paths;
    for (const BookmarkInfo &info : controller.bookmarks())
        paths << info.path();
    EXPECT_EQ(paths, (QStringList{root + "/one", root + "/two/keep.txt"}));
    EXPECT_TRUE(QFileInfo(root + "/two/keep.txt").isFile());
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().startsWith(QStringLiteral("[SecurityScope] Failed saving bookmark: ")));
}

}  // namespace
