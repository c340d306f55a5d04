#include "app/AccessCommand.h"
#include "app/PrivacyAccessController.h"
#include "base/UserDefaults.h"
#include "tests/support/TestSupport.h"
#include "tools/calendar/CalendarStore.h"
#include "tools/contacts/ContactsStore.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/FileAccessPolicy.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace {

struct Outcome {
    int code = -1;
    QString out;
    QString err;
};

Outcome access(const QStringList &arguments)
{
    Outcome outcome;
    QTextStream out(&outcome.out);
    QTextStream err(&outcome.err);
    outcome.code = AccessCommand::run(arguments, out, err);
    out.flush();
    err.flush();
    return outcome;
}

QVariantMap storedData()
{
    return UserDefaults::standard()->value(BookmarkController::bookmarkDataKey).toMap();
}

bool mayWrite(const BookmarkController &scopes, const QString &path)
{
    return FileAccessPolicy::check(&scopes, path, FileAccessPolicy::Intent::write).allowed();
}

class AccessCommandTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto defaults = UserDefaults::standard();
        defaults->remove(BookmarkController::bookmarkDataKey);
        defaults->remove(BookmarkController::bookmarkInfoKey);
        defaults->sync();
        root = QFileInfo(TestSupport::makeTempDir(QStringLiteral("access"))).canonicalFilePath();
    }

    QString root;
};

TEST_F(AccessCommandTest, AFolderGrantedHeadlessIsWhatTheSettingsPageShowsAndTheToolsUse)
{
    QDir().mkpath(root + "/project/sub");
    ASSERT_TRUE(QFile::link(root + "/project", root + "/shortcut"));
    // Relative, through a link and with "..": stored as the folder it leads to.
    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(root));
    const Outcome granted = access({"grant", "folder", "shortcut/sub/.."});
    QDir::setCurrent(before);
    EXPECT_EQ(granted.code, 0) << granted.err;
    EXPECT_EQ(granted.out, "folder " + root + "/project: granted\n");

    // Both stored keys, as a controller of the window reads them.
    BookmarkController scopes;
    ASSERT_EQ(scopes.bookmarks().size(), 1);
    EXPECT_EQ(scopes.bookmarks().first().path(), root + "/project");
    EXPECT_EQ(storedData().keys(), QStringList{root + "/project"});
    EXPECT_TRUE(mayWrite(scopes, root + "/project/sub/notes.txt"));
    EXPECT_FALSE(mayWrite(scopes, root + "/notes.txt"));

    EXPECT_EQ(access({"grant", "folder", root + "/project/sub"}).out,
              "folder " + root + "/project/sub: already granted by folder " + root + "/project\n");
    const Outcome shown = access({"show"});
    EXPECT_EQ(shown.code, 0);
    EXPECT_TRUE(shown.out.endsWith("\nfolder: " + root + "/project\n")) << shown.out;

    // Revoked by the name it was granted through: gone from both keys, and refused again.
    const Outcome revoked = access({"revoke", "folder", root + "/shortcut"});
    EXPECT_EQ(revoked.code, 0) << revoked.err;
    EXPECT_EQ(revoked.out, "folder " + root + "/project: revoked\n");
    BookmarkController after;
    EXPECT_TRUE(after.bookmarks().isEmpty());
    EXPECT_TRUE(storedData().isEmpty());
    EXPECT_FALSE(mayWrite(after, root + "/project/sub/notes.txt"));
    EXPECT_TRUE(access({"show"}).out.endsWith("\nfolders: none granted\n"));
}

TEST_F(AccessCommandTest, AMissingPathIsRefusedAndTheOthersStillCount)
{
    const Outcome missing = access({"grant", "folder", root + "/nope", root});
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.err, "kelvara access: '" + root + "/nope' does not exist\n");
    EXPECT_EQ(missing.out, "folder " + root + ": granted\n");
    EXPECT_EQ(storedData().keys(), QStringList{root});

    // Only a stored entry is revoked; a place below one says which.
    const Outcome inner = access({"revoke", "folder", root + "/inner"});
    EXPECT_EQ(inner.code, 1);
    EXPECT_EQ(inner.err, "kelvara access: '" + root + "/inner' is not granted; it lies in the granted folder '" + root + "'\n");
    EXPECT_EQ(storedData().keys(), QStringList{root});

    for (const QStringList &bad : {QStringList{"grant", "folder"}, QStringList{"revoke", "folders", root}})
        EXPECT_EQ(access(bad).code, 2) << bad.join(' ').toStdString();
    EXPECT_EQ(BookmarkController().bookmarks().size(), 1);
}

}  // namespace

// The privacy question names the folder the tools really use, wherever a setting puts it.
TEST(PrivacyQuestion, NamesTheFolderTheToolsUse)
{
    using Kind = PrivacyAccessController::Kind;
    const QString khal = TestSupport::makeTempDir(QStringLiteral("khal-calendars"));
    UserDefaults::standard()->setValue(CalendarStore::rootSettingKey(), khal);
    EXPECT_TRUE(PrivacyAccessController::questionText(Kind::Calendars).contains(khal));
    UserDefaults::standard()->setValue(CalendarStore::rootSettingKey(), QDir::homePath() + QStringLiteral("/.calendars"));
    EXPECT_TRUE(PrivacyAccessController::questionText(Kind::Reminders).contains(QStringLiteral(" ~/.calendars ")));
    UserDefaults::standard()->remove(CalendarStore::rootSettingKey());
    EXPECT_TRUE(PrivacyAccessController::questionText(Kind::Contacts).contains(ContactsStore::defaultRoot()));
}
