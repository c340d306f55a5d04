#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "tests/support/TestSupport.h"
#include "tools/builtin/FileAccessHandler.h"
#include "tools/builtin/Utf8TextFile.h"
#include "tools/security/BookmarkController.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <atomic>
#include <thread>

namespace {

void writeBytes(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray readBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void setModified(const QString &path, const QDateTime &when)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(when, QFileDevice::FileModificationTime));
}

QJsonValue field(const JSONToolResult &result, const QString &key)
{
    return result.structuredContent.value(key).toJson();
}

QStringList names(const JSONToolResult &result, const QString &key = QStringLiteral("relative_path"))
{
    QStringList list;
    for (const QJsonValue &file : field(result, QStringLiteral("files")).toArray())
        list << file.toObject().value(key).toString();
    return list;
}

class FileAccessHandlerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto defaults = UserDefaults::standard();
        defaults->remove(BookmarkController::bookmarkDataKey);
        defaults->remove(BookmarkController::bookmarkInfoKey);
        scopes = std::make_unique<BookmarkController>();
        handler = std::make_unique<FileAccessHandler>(scopes.get());

        root = TestSupport::makeTempDir(QStringLiteral("files"));
        writeBytes(root + "/a.txt", "aaaa");
        writeBytes(root + "/notes.md", "# notes\n");
        writeBytes(root + "/test_one.js", "1");
        writeBytes(root + "/.hidden", "h");
        writeBytes(root + "/sub/c.TXT", "cc");
        writeBytes(root + "/sub/deep/d.txt", "ddddddddd");
        QDir().mkpath(root + "/empty");
        // The tools act only inside granted folders.
        ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(root)));
    }

    JSONToolResult list(const QVariantMap &extra) const
    {
        QVariantMap params{{"project_path", root}};
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            params.insert(it.key(), it.value());
        return handler->listFiles(params);
    }

    std::unique_ptr<BookmarkController> scopes;
    std::unique_ptr<FileAccessHandler> handler;
    QString root;
};

// The fields of one entry and its text line are checked end to end on a flat listing.
TEST_F(FileAccessHandlerTest, ListingWalksEverythingOrOneLevelAndCountsFolders)
{
    const JSONToolResult result = list({});
    EXPECT_TRUE(field(result, "success").toBool());
    EXPECT_EQ(names(result), (QStringList{".hidden", "a.txt", "notes.md", "sub/c.TXT", "sub/deep/d.txt", "test_one.js"}));
    EXPECT_EQ(field(result, "total_files").toInt(), 6);
    EXPECT_EQ(field(result, "directories").toInt(), 3);  // empty, sub, sub/deep
    EXPECT_EQ(result.content.first().text.split('\n').at(4).section(", ", 0, 3), root + "/sub/deep/d.txt, sub/deep/d.txt, d.txt, 9");

    // One level takes folders like files and reports one directory.
    const JSONToolResult flat = list({{"recursive", false}});
    EXPECT_EQ(names(flat), (QStringList{".hidden", "a.txt", "empty", "notes.md", "sub", "test_one.js"}));
    EXPECT_EQ(field(flat, "directories").toInt(), 1);
    // A value of another JSON type counts as absent: recursive again.
    EXPECT_EQ(field(list({{"recursive", "false"}}), "directories").toInt(), 3);
}

TEST_F(FileAccessHandlerTest, PatternsMatchCaseInsensitivelyWithOrWithoutDotAndByStar)
{
    EXPECT_EQ(names(list({{"extensions", QVariantList{".TXT"}}})), (QStringList{"a.txt", "sub/c.TXT", "sub/deep/d.txt"}));
    EXPECT_EQ(names(list({{"extensions", QVariantList{" txt\n", 7, ""}}})), (QStringList{"a.txt", "sub/c.TXT", "sub/deep/d.txt"}));
    EXPECT_EQ(names(list({{"extensions", QVariantList{"TEST_*"}}})), QStringList{"test_one.js"});
    EXPECT_EQ(names(list({{"extensions", QVariantList{"*.md", "*.py"}}})), QStringList{"notes.md"});
    EXPECT_EQ(names(list({{"extensions", QVariantList{"*"}}})).size(), 6);

    EXPECT_TRUE(FileAccessHandler::matchesPatterns("aba", {"a*a"}));
    EXPECT_FALSE(FileAccessHandler::matchesPatterns("a", {"a*a"}));
    EXPECT_FALSE(FileAccessHandler::matchesPatterns("anything", {"**"}));
    EXPECT_TRUE(FileAccessHandler::matchesPatterns("Makefile", {}));
}

TEST_F(FileAccessHandlerTest, NothingLeftGivesTheErrorResultWithItsFields)
{
    EXPECT_EQ(list({{"extensions", QVariantList{"pdf"}}}).toJsonObject(),
              (QJsonObject{{"content", QJsonArray{QJsonObject{{"type", "text"}, {"text", "Error -1 No files or directories found"}}}},
                           {"structuredContent", QJsonObject{{"success", false}, {"error_code", -1}, {"error_message", "No files or directories found"},
                                                             {"error", "Error -1 No files or directories found"},
                                                             {"project_path", root}, {"total_files", 0}, {"directories", 0},
                                                             {"files", QJsonArray()}}}}));

    const JSONToolResult missing = handler->listFiles({{"project_path", 42}});
    EXPECT_EQ(field(missing, "error_message").toString(), "Tool parameter 'project_path' must not be empty.");

    const JSONToolResult notThere = handler->listFiles({{"project_path", root + "/nope"}, {"recursive", false}});
    EXPECT_FALSE(field(notThere, "success").toBool());
    EXPECT_TRUE(field(notThere, "error_message").toString().contains("No such file or directory"));
    EXPECT_EQ(field(handler->listFiles({{"project_path", root + "/nope"}}), "error_message").toString(),
              "No files or directories found");
}

TEST_F(FileAccessHandlerTest, SortWordsAreExactAndTrailingBlanksAreOnlyEchoed)
{
    setModified(root + "/a.txt", QDateTime::currentDateTimeUtc().addDays(-1));
    setModified(root + "/notes.md", QDateTime::currentDateTimeUtc().addDays(-3));
    setModified(root + "/test_one.js", QDateTime::currentDateTimeUtc().addDays(-2));
    const QVariantMap flatFiles{{"recursive", false}, {"extensions", QVariantList{"txt", "md", "js"}}};

    const std::pair<const char *, QStringList> orders[] = {{"size", {"test_one.js", "a.txt", "notes.md"}},
                                                           {"date", {"notes.md", "test_one.js", "a.txt"}},
                                                           {"SIZE", {"a.txt", "notes.md", "test_one.js"}}};
    for (const auto &[sort, expected] : orders) {
        QVariantMap params = flatFiles;
        params.insert("sort", sort);
        EXPECT_EQ(names(list(params)), expected) << sort;
    }

    const JSONToolResult blank = handler->listFiles({{"project_path", root + "/sub  "}});
    EXPECT_TRUE(field(blank, "success").toBool());
    EXPECT_EQ(field(blank, "project_path").toString(), root + "/sub  ");
    EXPECT_EQ(names(blank, "path"), (QStringList{root + "/sub/c.TXT", root + "/sub/deep/d.txt"}));
}

TEST_F(FileAccessHandlerTest, ReadFileCountsLinesAndBytesAndRefusesBrokenText)
{
    writeBytes(root + "/empty.txt", "");
    EXPECT_EQ(handler->readFile({{"file_path", "  " + root + "/empty.txt\n"}}).toJsonObject()["structuredContent"].toObject(),
              (QJsonObject{{"success", true}, {"line_count", 1}, {"size", 0}, {"content", ""}, {"encoding", "UTF-8"},
                           {"file_path", root + "/empty.txt"}}));

    writeBytes(root + "/crlf.txt", "one\r\ntwo\nthr\xc3\xa9\xe2\x80\xa8");
    const JSONToolResult crlf = handler->readFile({{"file_path", root + "/crlf.txt"}});
    EXPECT_EQ(field(crlf, "line_count").toInt(), 5);
    EXPECT_EQ(field(crlf, "size").toInt(), 17);
    EXPECT_EQ(crlf.content.first().text, QString::fromUtf8("one\r\ntwo\nthr\xc3\xa9\xe2\x80\xa8"));

    writeBytes(root + "/latin1.txt", "caf\xe9");
    const JSONToolResult broken = handler->readFile({{"file_path", root + "/latin1.txt"}});
    EXPECT_FALSE(field(broken, "success").toBool());
    EXPECT_TRUE(broken.content.first().text.startsWith("Failed to read file: "));
    EXPECT_EQ(field(broken, "line_count").toInt(-1), 0);
    EXPECT_EQ(field(broken, "content").toString("x"), "");

    const JSONToolResult missing = handler->readFile({{"file_path", root + "/none.txt"}});
    EXPECT_EQ(missing.content.first().text, "File '" + root + "/none.txt' does not exist.");
    EXPECT_EQ(field(missing, "error").toString(), missing.content.first().text);
}

TEST_F(FileAccessHandlerTest, WriteFileKeepsOneBackupOfThePreviousText)
{
    const QString path = root + "/out.txt";
    const JSONToolResult first = handler->writeFile({{"file_path", path}, {"content", QString::fromUtf8("caf\xc3\xa9")}});
    EXPECT_EQ(field(first, "bytes_written").toInt(), 5);  // bytes, not characters
    EXPECT_FALSE(QFileInfo::exists(path + ".backup"));

    handler->writeFile({{"file_path", path}, {"content", "second"}});
    EXPECT_EQ(readBytes(path + ".backup"), QByteArray("caf\xc3\xa9"));
    handler->writeFile({{"file_path", path}, {"content", "third"}});
    EXPECT_EQ(readBytes(path + ".backup"), QByteArray("second"));
    EXPECT_EQ(readBytes(path), QByteArray("third"));

    const QString nowhere = root + "/no/such/folder/x.txt";
    const JSONToolResult failed = handler->writeFile({{"file_path", nowhere}, {"content", "x"}});
    EXPECT_FALSE(field(failed, "success").toBool());
    EXPECT_TRUE(failed.content.first().text.startsWith("Failed to write file: "));
    EXPECT_EQ(field(failed, "message").toString(), "Failed to write file: " + nowhere);
    EXPECT_EQ(field(failed, "bytes_written").toInt(-1), 0);
    EXPECT_EQ(field(failed, "file_path").toString(), nowhere);

    EXPECT_EQ(field(handler->writeFile({{"file_path", path}, {"content", ""}}), "error_message").toString(),
              "Tool parameter 'content' must not be empty.");
}

TEST_F(FileAccessHandlerTest, EveryOperationIsBracketedByTheScopeOfItsFolder)
{
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(root)));
    handler->readFile({{"file_path", root + "/a.txt"}});
    handler->writeFile({{"file_path", root + "/a.txt"}, {"content", "new"}});
    writeBytes(root + "/broken.txt", "caf\xe9");
    handler->readFile({{"file_path", root + "/broken.txt"}});  // an error path closes too
    EXPECT_EQ(scopes->findBookmark(QUrl::fromLocalFile(root))->accessCount, 6);
    list({{"recursive", false}});
    EXPECT_EQ(scopes->findBookmark(QUrl::fromLocalFile(root))->accessCount, 8);
    // A path with no stored choice looks up nothing and opens nothing.
    handler->readFile({{"file_path", root + "/missing.txt"}});
    EXPECT_EQ(scopes->findBookmark(QUrl::fromLocalFile(root))->accessCount, 8);
    EXPECT_EQ(scopes->activeAccessCount(), 0);
}

}  // namespace

TEST_F(FileAccessHandlerTest, OnlyRegularTextFilesWithinTheLimitAreRead)
{
    // A FIFO without a writer and a device are refused at once, without waiting or reading.
    const QString fifo = root + "/pipe.json";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(QStringLiteral("/dev"))));
    for (const QString &path : {fifo, QStringLiteral("/dev/zero")}) {
        const JSONToolResult refused = handler->readFile({{"file_path", path}});
        EXPECT_FALSE(field(refused, "success").toBool()) << path.toStdString();
        EXPECT_EQ(refused.content.first().text,
                  "Failed to read file: The file '" + QFileInfo(path).fileName() +
                      "' couldn't be read: it is not a regular file (a FIFO, a device or a socket)");
    }

    // Zeros are valid UTF-8 but no text: refused as the encoding failure, not cut short.
    writeBytes(root + "/zeros.bin", QByteArray(4096, '\0'));
    writeBytes(root + "/nul-inside.txt", QByteArray("before\0after", 12));
    for (const char *name : {"zeros.bin", "nul-inside.txt"}) {
        const JSONToolResult binary = handler->readFile({{"file_path", root + "/" + name}});
        EXPECT_EQ(binary.content.first().text, QStringLiteral("Failed to read file: The file '%1' couldn't be opened using "
                                                              "text encoding Unicode (UTF-8).").arg(QLatin1String(name)));
    }

    // Read in pieces: a character split between two pieces is whole, one cut off at the end is not.
    writeBytes(root + "/split.txt", QByteArray(65535, 'a') + "\xc3\xa9" "b");
    const JSONToolResult split = handler->readFile({{"file_path", root + "/split.txt"}});
    EXPECT_TRUE(field(split, "success").toBool());
    EXPECT_EQ(field(split, "size").toInt(), 65538);
    EXPECT_TRUE(split.content.first().text.endsWith(QString::fromUtf8("a\xc3\xa9" "b")));
    writeBytes(root + "/cut.txt", "caf\xc3");
    EXPECT_FALSE(field(handler->readFile({{"file_path", root + "/cut.txt"}}), "success").toBool());

    UserDefaults::standard()->setValue(QStringLiteral("mcp.files.maxReadBytes"), 100);
    writeBytes(root + "/big.txt", QByteArray(101, 'x'));
    writeBytes(root + "/fits.txt", QByteArray(100, 'x'));
    EXPECT_EQ(handler->readFile({{"file_path", root + "/big.txt"}}).content.first().text,
              "Failed to read file: The file 'big.txt' couldn't be read: it is larger than 100 bytes, the limit of "
              "mcp.files.maxReadBytes");
    EXPECT_TRUE(field(handler->readFile({{"file_path", root + "/fits.txt"}}), "success").toBool());
    UserDefaults::standard()->remove(QStringLiteral("mcp.files.maxReadBytes"));
}

TEST_F(FileAccessHandlerTest, WriteFileKeepsTheModeAndWritesThroughLinks)
{
    const QString secret = root + "/secret.txt";
    writeBytes(secret, "old");
    ASSERT_EQ(::chmod(QFile::encodeName(secret).constData(), 0600), 0);
    EXPECT_TRUE(field(handler->writeFile({{"file_path", secret}, {"content", "new"}}), "success").toBool());
    struct stat st {};
    ASSERT_EQ(::stat(QFile::encodeName(secret).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(readBytes(secret), QByteArray("new"));

    // Through a relative link: the target changes, the link stays a link.
    QDir().mkpath(root + "/links");
    ASSERT_TRUE(QFile::link(QStringLiteral("../secret.txt"), root + "/links/current"));
    const QString link = root + "/links/current";
    EXPECT_TRUE(field(handler->writeFile({{"file_path", link}, {"content", "via link"}}), "success").toBool());
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(readBytes(secret), QByteArray("via link"));
    ASSERT_EQ(::stat(QFile::encodeName(secret).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(readBytes(link + ".backup"), QByteArray("new"));  // the backup sits beside the name used
}

TEST_F(FileAccessHandlerTest, AReadThatFailsOnTheProcessLimitSaysSo)
{
    writeBytes(root + "/fine.txt", "fine");
    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // No descriptor left: the next open fails with EMFILE.
        const rlimit none{static_cast<rlim_t>(::dup(0)), static_cast<rlim_t>(4096)};
        ::setrlimit(RLIMIT_NOFILE, &none);
        QString description;
        Utf8TextFile::read(root + "/fine.txt", &description, 1 << 20);
        const QByteArray text = description.toUtf8();
        [[maybe_unused]] const ssize_t n = ::write(channel[1], text.constData(), size_t(text.size()));
        ::_exit(0);
    }
    ::close(channel[1]);
    QByteArray reported;
    char buffer[512];
    for (ssize_t n; (n = ::read(channel[0], buffer, sizeof buffer)) > 0;)
        reported.append(buffer, n);
    ::close(channel[0]);
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(reported.startsWith("The file 'fine.txt' couldn't be opened: the process has no open files left"))
        << reported.toStdString();
}

namespace {

QString refusal(const QString &path, const QString &folder)
{
    return "Access to '" + path + "' is not granted. Grant its folder in Settings ▸ Security Scopes, or run: "
           "kelvara access grant folder " + folder;
}

bool isFifo(const QString &path)
{
    struct stat st {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 && S_ISFIFO(st.st_mode);
}

}  // namespace

TEST_F(FileAccessHandlerTest, OutsideEveryGrantNothingIsReadWrittenOrListed)
{
    const QString outside = QFileInfo(TestSupport::makeTempDir(QStringLiteral("outside"))).canonicalFilePath();
    const QString key = outside + "/key";
    writeBytes(key, "secret");
    ASSERT_EQ(::chmod(QFile::encodeName(key).constData(), 0600), 0);

    const JSONToolResult read = handler->readFile({{"file_path", key}});
    EXPECT_EQ(read.content.first().text, "Failed to read file: " + refusal(key, outside));
    EXPECT_EQ(field(read, "content").toString("x"), "");

    const JSONToolResult written = handler->writeFile({{"file_path", key}, {"content", "pwned"}});
    EXPECT_EQ(written.content.first().text, "Failed to write file: " + refusal(key, outside));
    EXPECT_EQ(field(written, "message").toString(), "Failed to write file: " + key);
    EXPECT_FALSE(field(handler->writeFile({{"file_path", outside + "/planted"}, {"content", "x"}}), "success").toBool());
    EXPECT_EQ(readBytes(key), QByteArray("secret"));
    EXPECT_EQ(QDir(outside).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList{"key"});

    EXPECT_EQ(field(handler->listFiles({{"project_path", outside}}), "error_message").toString(),
              "Failed to list files: " + refusal(outside, outside));
    // A file that is not there is not even reported missing.
    EXPECT_EQ(handler->readFile({{"file_path", outside + "/none"}}).content.first().text,
              "Failed to read file: " + refusal(outside + "/none", outside));
}

TEST_F(FileAccessHandlerTest, ALinkOrDotDotOutOfTheGrantedFolderIsDenied)
{
    const QString outside = QFileInfo(TestSupport::makeTempDir(QStringLiteral("outside"))).canonicalFilePath();
    writeBytes(outside + "/key", "secret");
    const QString canonicalRoot = QFileInfo(root).canonicalFilePath();

    ASSERT_TRUE(QFile::link(outside + "/key", root + "/escape"));
    const JSONToolResult viaLink = handler->readFile({{"file_path", root + "/escape"}});
    EXPECT_EQ(viaLink.content.first().text, "Failed to read file: Access to '" + root + "/escape' (which leads to '" + outside
                                                + "/key') is not granted. Grant its folder in Settings ▸ Security Scopes, or "
                                                  "run: kelvara access grant folder " + outside);
    EXPECT_FALSE(field(handler->writeFile({{"file_path", root + "/escape"}, {"content", "pwned"}}), "success").toBool());
    EXPECT_EQ(readBytes(outside + "/key"), QByteArray("secret"));
    EXPECT_FALSE(QFileInfo::exists(root + "/escape.backup"));

    const QString climbed = root + "/../" + QFileInfo(outside).fileName() + "/key";
    EXPECT_FALSE(field(handler->readFile({{"file_path", climbed}}), "success").toBool());
    EXPECT_FALSE(field(handler->writeFile({{"file_path", climbed}, {"content", "pwned"}}), "success").toBool());
    EXPECT_EQ(readBytes(outside + "/key"), QByteArray("secret"));

    // A linked folder is not listed, and a listing of the granted folder does not go through it.
    ASSERT_TRUE(QFile::link(outside, root + "/elsewhere"));
    EXPECT_FALSE(field(handler->listFiles({{"project_path", root + "/elsewhere"}}), "success").toBool());
    EXPECT_FALSE(names(list({})).contains("elsewhere/key"));
    EXPECT_TRUE(field(handler->readFile({{"file_path", canonicalRoot + "/a.txt"}}), "success").toBool());
}

TEST_F(FileAccessHandlerTest, KelvarasOwnFilesAreNotWrittenEvenUnderAGrantedParent)
{
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(TestSupport::sandboxDir())));
    const QString settings = AppPaths::configDir() + "/Kelvara.conf";
    const QString bundled = AppPaths::preferencesDir() + "/Tools/read_file.json";
    const QString store = AppPaths::storePath();
    writeBytes(bundled, "{}");
    writeBytes(store, "SQLite format 3");
    const QByteArray settingsBefore = readBytes(settings);
    ASSERT_FALSE(settingsBefore.isEmpty());

    for (const QString &path : {settings, bundled, store}) {
        const QByteArray before = readBytes(path);
        const JSONToolResult refused = handler->writeFile({{"file_path", path}, {"content", "[General]\nx=1\n"}});
        EXPECT_TRUE(refused.content.first().text.endsWith("which the tools never change, whatever is granted."))
            << refused.content.first().text;
        EXPECT_EQ(readBytes(path), before) << path;
        EXPECT_FALSE(QFileInfo::exists(path + ".backup")) << path;
    }
    // The bundle may be read where granted; the settings, with the token and keys, may not.
    EXPECT_TRUE(field(handler->readFile({{"file_path", bundled}}), "success").toBool());
    EXPECT_TRUE(handler->readFile({{"file_path", settings}}).content.first().text.endsWith("which the tools never read or change."));
}

TEST_F(FileAccessHandlerTest, WriteFileRefusesAFifoAtOnceAndLeavesItBe)
{
    const QString fifo = root + "/pipe";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    ASSERT_TRUE(QFile::link(QStringLiteral("pipe"), root + "/to-pipe"));

    for (const QString &path : {fifo, root + "/to-pipe"}) {
        // On a worker, as the engine calls it; a reader left waiting is let go, so that a
        // regression fails here instead of hanging the run.
        JSONToolResult result;
        std::atomic<bool> done{false};
        std::thread worker([&] {
            result = handler->writeFile({{"file_path", path}, {"content", "x"}});
            done = true;
        });
        const bool answered = TestSupport::waitUntil([&] { return done.load(); }, 20000);
        if (!answered)
            ::close(::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK));
        worker.join();
        EXPECT_TRUE(answered) << "writeFile waited on the FIFO";
        EXPECT_EQ(result.content.first().text, "Failed to write file: '" + path + "' is not a regular file");
        EXPECT_TRUE(isFifo(fifo));
        EXPECT_FALSE(QFileInfo::exists(path + ".backup"));
    }
    // A folder is no file either.
    EXPECT_EQ(handler->writeFile({{"file_path", root + "/sub"}, {"content", "x"}}).content.first().text,
              "Failed to write file: '" + root + "/sub' is not a regular file");
    EXPECT_TRUE(QFileInfo(root + "/sub").isDir());
}

TEST_F(FileAccessHandlerTest, WriteFileLeavesACharacterDeviceADevice)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "making a device node needs root";
    // The same device as /dev/zero, made in the test's own folder.
    const QString device = root + "/zero";
    ASSERT_EQ(::mknod(QFile::encodeName(device).constData(), S_IFCHR | 0666, makedev(1, 5)), 0);
    ASSERT_TRUE(QFile::link(device, root + "/to-zero"));
    for (const QString &path : {device, root + "/to-zero"}) {
        const JSONToolResult result = handler->writeFile({{"file_path", path}, {"content", "x"}});
        EXPECT_EQ(result.content.first().text, "Failed to write file: '" + path + "' is not a regular file");
        EXPECT_FALSE(QFileInfo::exists(path + ".backup"));
    }
    struct stat st {};
    ASSERT_EQ(::lstat(QFile::encodeName(device).constData(), &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    EXPECT_EQ(st.st_rdev, makedev(1, 5));
}

// An image is recognised by its first bytes whatever its name, or else by its extension, and
// read whole as an image item; text, and a FIFO named like an image, are what they were.
TEST_F(FileAccessHandlerTest, ReadFileGivesAnImageAsAnImageItem)
{
    const QByteArray png = QByteArray("\x89PNG\r\n\x1a\n", 8) + QByteArray(70000, '\0') + "end";
    const QByteArray webp = QByteArray("RIFF\x10\0\0\0WEBPVP8 ", 16);
    const QList<std::tuple<QString, QByteArray, QString>> images = {
        {"chart.dat", png, "image/png"},
        {"photo", QByteArray("\xff\xd8\xff\xe0", 4) + QByteArray(10, 'j'), "image/jpeg"},
        {"anim.bin", "GIF89a\x01\0", "image/gif"},
        {"small", webp, "image/webp"},
        {"named.WEBP", "not really", "image/webp"},
        {"tiny.png", "", "image/png"}};
    for (const auto &[name, bytes, mimeType] : images) {
        writeBytes(root + "/" + name, bytes);
        const JSONToolResult read = handler->readFile({{"file_path", root + "/" + name}});
        ASSERT_EQ(read.content.size(), 1) << name.toStdString();
        EXPECT_EQ(read.content.first().type, "image") << name.toStdString();
        EXPECT_EQ(read.content.first().members.value("mimeType").toString(), mimeType) << name.toStdString();
        EXPECT_EQ(QByteArray::fromBase64(read.content.first().members.value("data").toString().toLatin1()), bytes)
            << name.toStdString();
        EXPECT_TRUE(field(read, "success").toBool());
        EXPECT_EQ(field(read, "size").toInt(), bytes.size());
    }
    EXPECT_EQ(handler->readFile({{"file_path", root + "/notes.md"}}).content.first().type, "text");

    const QString fifo = root + "/pipe.png";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const JSONToolResult refused = handler->readFile({{"file_path", fifo}});
    EXPECT_FALSE(field(refused, "success").toBool());
    EXPECT_EQ(refused.content.first().text, "Failed to read file: The file 'pipe.png' couldn't be read: it is not a "
                                            "regular file (a FIFO, a device or a socket)");
    UserDefaults::standard()->setValue(QStringLiteral("mcp.files.maxReadBytes"), 100);
    EXPECT_FALSE(field(handler->readFile({{"file_path", root + "/chart.dat"}}), "success").toBool());
    UserDefaults::standard()->remove(QStringLiteral("mcp.files.maxReadBytes"));
}
