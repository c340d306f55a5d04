#include "base/UserDefaults.h"
#include "tests/support/TestSupport.h"
#include "tools/security/BookmarkController.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <thread>
#include <vector>

namespace {

QUrl fileUrl(const QString &path) { return QUrl::fromLocalFile(path); }

void touch(const QString &path, const QByteArray &content = "x")
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
}

class BookmarkControllerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto defaults = UserDefaults::standard();
        defaults->remove(BookmarkController::bookmarkDataKey);
        defaults->remove(BookmarkController::bookmarkInfoKey);
        defaults->sync();
        root = TestSupport::makeTempDir(QStringLiteral("scopes"));
    }

    static QVariantMap storedData()
    {
        return UserDefaults::standard()->value(BookmarkController::bookmarkDataKey).toMap();
    }

    QString root;
};

TEST_F(BookmarkControllerTest, FolderCoversItsContentsButNotASiblingWithTheSamePrefix)
{
    QDir().mkpath(root + "/proj/sub");
    QDir().mkpath(root + "/project2");
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/proj")));

    EXPECT_TRUE(controller.findBookmark(fileUrl(root + "/proj")));
    EXPECT_TRUE(controller.findBookmark(fileUrl(root + "/proj/sub/deep.txt")));
    EXPECT_FALSE(controller.findBookmark(fileUrl(root + "/project2/a.txt")));
    EXPECT_FALSE(controller.findBookmark(fileUrl(root + "/proj2")));
    EXPECT_FALSE(controller.findBookmark(fileUrl(root)));
}

TEST_F(BookmarkControllerTest, EntryWrittenWithTrailingSlashCoversPathsBelowIt)
{
    QDir().mkpath(root + "/folder");
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/folder/")));
    const auto found = controller.findBookmark(fileUrl(root + "/folder/a/b.txt"));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->displayName, QStringLiteral("folder"));
    EXPECT_FALSE(controller.findBookmark(fileUrl(root + "/folderX/b.txt")));
}

TEST_F(BookmarkControllerTest, AddingUnderAStoredFolderAddsNothingAndAFailureReachesTheCaller)
{
    QDir().mkpath(root + "/docs");
    touch(root + "/docs/a.txt");
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/docs"), QStringLiteral("Documents")));
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/docs/a.txt")));
    EXPECT_EQ(controller.bookmarks().size(), 1);
    EXPECT_EQ(storedData().keys(), QStringList{root + "/docs"});
    EXPECT_EQ(storedData().value(root + "/docs").toByteArray(), (root + "/docs").toUtf8());

    AppError error;
    EXPECT_FALSE(controller.addBookmark(fileUrl(root + "/missing"), QString(), &error));
    EXPECT_FALSE(error.description.isEmpty());
    EXPECT_EQ(controller.bookmarks().size(), 1);
}

TEST_F(BookmarkControllerTest, BeginWithoutStoredChoiceGivesTrueAndOpensNothing)
{
    touch(root + "/free.txt");
    BookmarkController controller;
    EXPECT_TRUE(controller.beginAccess(fileUrl(root + "/free.txt")));
    EXPECT_EQ(controller.activeAccessCount(), 0);
    controller.endAccess(fileUrl(root + "/free.txt"));
    EXPECT_EQ(controller.activeAccessCount(), 0);
}

TEST_F(BookmarkControllerTest, BeginTwiceOpensOnceAndOneEndCloses)
{
    QDir().mkpath(root + "/work");
    touch(root + "/work/file.txt");
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/work")));
    EXPECT_FALSE(controller.isAccessActive(fileUrl(root + "/work")));

    EXPECT_TRUE(controller.beginAccess(fileUrl(root + "/work/file.txt")));
    EXPECT_TRUE(controller.beginAccess(fileUrl(root + "/work/file.txt")));
    EXPECT_TRUE(controller.isAccessActive(fileUrl(root + "/work")));
    EXPECT_EQ(controller.activeAccessCount(), 1);

    controller.endAccess(fileUrl(root + "/work/file.txt"));
    EXPECT_FALSE(controller.isAccessActive(fileUrl(root + "/work")));
    EXPECT_EQ(controller.activeAccessCount(), 0);
}

TEST_F(BookmarkControllerTest, EachBeginEndPairCountsTwoLookUpsAndMarksUnsavedChanges)
{
    QDir().mkpath(root + "/count");
    touch(root + "/count/f.txt");
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/count")));
    EXPECT_FALSE(controller.hasUnsavedChanges());
    const QDateTime before = controller.bookmarks().first().lastAccessedDate;

    controller.beginAccess(fileUrl(root + "/count/f.txt"));
    controller.endAccess(fileUrl(root + "/count/f.txt"));
    EXPECT_EQ(controller.bookmarks().first().accessCount, 2);
    EXPECT_GE(controller.bookmarks().first().lastAccessedDate, before);
    EXPECT_TRUE(controller.hasUnsavedChanges());

    // A stored file itself is served too (looked up once as itself in each half).
    touch(root + "/single.txt");
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/single.txt")));
    controller.beginAccess(fileUrl(root + "/single.txt"));
    EXPECT_TRUE(controller.isAccessActive(fileUrl(root + "/single.txt")));
    controller.endAccess(fileUrl(root + "/single.txt"));
    EXPECT_EQ(controller.findBookmark(fileUrl(root + "/single.txt"))->accessCount, 2);
}

TEST_F(BookmarkControllerTest, LookUpsFromManyThreadsAreAllCounted)
{
    QDir().mkpath(root + "/busy");
    touch(root + "/busy/f.txt");
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/busy")));
    constexpr int threads = 8;
    constexpr int pairs = 200;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < pairs; ++i) {
                controller.beginAccess(fileUrl(root + "/busy/f.txt"));
                controller.endAccess(fileUrl(root + "/busy/f.txt"));
            }
        });
    }
    for (auto &worker : workers)
        worker.join();
    EXPECT_EQ(controller.bookmarks().first().accessCount, threads * pairs * 2);
    EXPECT_EQ(controller.activeAccessCount(), 0);
}

TEST_F(BookmarkControllerTest, RemovedBookmarkIsGoneFromBothStores)
{
    QDir().mkpath(root + "/a");
    QDir().mkpath(root + "/b");
    {
        BookmarkController controller;
        ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/a")));
        ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/b")));
        controller.removeBookmark(fileUrl(root + "/a"));
        EXPECT_FALSE(controller.findBookmark(fileUrl(root + "/a")));
        EXPECT_FALSE(controller.bookmarkURL(fileUrl(root + "/a")));
        EXPECT_FALSE(storedData().contains(root + "/a"));
        EXPECT_FALSE(controller.hasUnsavedChanges());
    }
    const auto info = BookmarkInfo::decodeList(UserDefaults::standard()->value(BookmarkController::bookmarkInfoKey).toByteArray());
    ASSERT_TRUE(info);
    ASSERT_EQ(info->size(), 1);
    EXPECT_EQ(info->first().path(), root + "/b");

    BookmarkController reloaded;
    ASSERT_EQ(reloaded.bookmarks().size(), 1);
    EXPECT_EQ(reloaded.bookmarks().first().path(), root + "/b");
}

TEST_F(BookmarkControllerTest, LoadSortsByNameDropsEntriesWithoutBytesAndOpensEveryScope)
{
    for (const char *name : {"zeta", "alpha", "mid"})
        QDir().mkpath(root + "/" + name);
    {
        BookmarkController controller;
        ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/zeta"), QStringLiteral("Zeta")));
        ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/alpha"), QStringLiteral("Alpha")));
        ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/mid"), QStringLiteral("Mid")));
    }
    // Bytes of "mid" vanish; bytes without an entry stay unused.
    QVariantMap data = storedData();
    data.remove(root + "/mid");
    data.insert(root + "/orphan", QByteArray((root + "/orphan").toUtf8()));
    UserDefaults::standard()->setValue(BookmarkController::bookmarkDataKey, data);

    BookmarkController controller;
    QStringList names;
    for (const BookmarkInfo &info : controller.bookmarks())
        names << info.displayName;
    EXPECT_EQ(names, (QStringList{"Alpha", "Zeta"}));
    EXPECT_FALSE(controller.hasUnsavedChanges());
    EXPECT_EQ(controller.activeAccessCount(), 2);
    EXPECT_TRUE(controller.isAccessActive(fileUrl(root + "/alpha")));
    EXPECT_TRUE(storedData().contains(root + "/orphan"));
}

TEST_F(BookmarkControllerTest, UndecodableListLeavesNothingAndCorruptBytesAreForgottenAtLookUp)
{
    QDir().mkpath(root + "/kept");
    UserDefaults::standard()->setValue(BookmarkController::bookmarkInfoKey, QByteArray("{not json"));
    {
        BookmarkController controller;
        EXPECT_TRUE(controller.bookmarks().isEmpty());
        ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/kept")));
    }
    QVariantMap data = storedData();
    data.insert(root + "/kept", QByteArray("relative/garbage"));
    UserDefaults::standard()->setValue(BookmarkController::bookmarkDataKey, data);

    BookmarkController controller;
    // The bytes do not resolve at load: the entry is dropped for this run.
    EXPECT_TRUE(controller.bookmarks().isEmpty());
    // A look-up that fails to resolve removes the bookmark from the stores.
    EXPECT_FALSE(controller.bookmarkURL(fileUrl(root + "/kept")));
    EXPECT_FALSE(storedData().contains(root + "/kept"));
}

TEST_F(BookmarkControllerTest, ListIsStoredAsJsonWithKeysInFieldOrder)
{
    QDir().mkpath(root + "/o'dd name");
    BookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/o'dd name"), QStringLiteral("Odd \"one\"")));
    const QByteArray json = UserDefaults::standard()->value(BookmarkController::bookmarkInfoKey).toByteArray();
    QStringList keys;
    int from = 0;
    for (const char *key : {"\"id\"", "\"url\"", "\"displayName\"", "\"createdDate\"", "\"lastAccessedDate\"", "\"isStale\"", "\"accessCount\""}) {
        const int at = json.indexOf(key, from);
        ASSERT_GE(at, 0) << key;
        from = at;
    }
    const auto decoded = BookmarkInfo::decodeList(json);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, controller.bookmarks());
    EXPECT_EQ(decoded->first().path(), root + "/o'dd name");

    // The reference's own encoding of dates (seconds since 2001) is read as well.
    QJsonObject object = QJsonDocument::fromJson(json).array().first().toObject();
    object.insert("createdDate", 0.0);
    const auto legacy = BookmarkInfo::decodeList(QJsonDocument(QJsonArray{object}).toJson());
    ASSERT_TRUE(legacy);
    EXPECT_EQ(legacy->first().createdDate, QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC));
}

class RefusingBookmarkController : public BookmarkController {
protected:
    bool platformStartAccess(const QUrl &) override { return false; }
};

TEST_F(BookmarkControllerTest, RefusedStartRaisesTheAlertAndGivesFalse)
{
    QDir().mkpath(root + "/locked");
    touch(root + "/locked/f.txt");
    RefusingBookmarkController controller;
    ASSERT_TRUE(controller.addBookmark(fileUrl(root + "/locked")));
    EXPECT_FALSE(controller.beginAccess(fileUrl(root + "/locked/f.txt")));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return controller.shouldShowAlert(); }));
    EXPECT_EQ(controller.alertMessage(), QStringLiteral("Failed to start accessing: ") + root + "/locked");
    EXPECT_EQ(controller.activeAccessCount(), 0);
}

TEST_F(BookmarkControllerTest, UnreadableHomeFolderGivesANoticeWithACommand)
{
    EXPECT_FALSE(BookmarkController::checkHomeFolderAccess(root));
    const auto notice = BookmarkController::checkHomeFolderAccess(root + "/no-such-home");
    ASSERT_TRUE(notice);
    EXPECT_EQ(notice->title, QStringLiteral("Home Folder Access Required"));
    EXPECT_FALSE(notice->command.isEmpty());
    EXPECT_TRUE(notice->text.contains(notice->command));
}

}  // namespace
