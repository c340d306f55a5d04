#include "base/AtomicFile.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

mode_t typeOf(const QString &path)
{
    struct stat st {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 ? (st.st_mode & S_IFMT) : 0;
}

}  // namespace

// What every writer of the application goes through (exports, the tools, the editors): what
// stands at the path and is not a regular file stays what it is.
TEST(AtomicFile, NeverReplacesWhatIsNotARegularFile)
{
    const QString dir = TestSupport::makeTempDir(QStringLiteral("atomic"));
    const QString fifo = dir + "/pipe";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    ASSERT_TRUE(QFile::link(fifo, dir + "/to-pipe"));
    QDir().mkpath(dir + "/folder");

    for (const QString &path : {fifo, dir + "/to-pipe", dir + "/folder"}) {
        const std::optional<QString> failure = AtomicFile::write(path, "x");
        ASSERT_TRUE(failure.has_value()) << path.toStdString();
        EXPECT_EQ(*failure, "'" + path + "' is not a regular file");
    }
    EXPECT_EQ(typeOf(fifo), mode_t(S_IFIFO));
    EXPECT_EQ(typeOf(dir + "/to-pipe"), mode_t(S_IFLNK));
    EXPECT_EQ(typeOf(dir + "/folder"), mode_t(S_IFDIR));
    // Nothing was left beside them either.
    EXPECT_EQ(QDir(dir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System | QDir::Hidden).size(), 3);

    if (::geteuid() == 0) {
        const QString device = dir + "/zero";
        ASSERT_EQ(::mknod(QFile::encodeName(device).constData(), S_IFCHR | 0666, makedev(1, 5)), 0);
        EXPECT_TRUE(AtomicFile::write(device, "x").has_value());
        EXPECT_EQ(typeOf(device), mode_t(S_IFCHR));
    }

    // A regular file, and a new one, are written as before.
    EXPECT_FALSE(AtomicFile::write(dir + "/new.txt", "fresh").has_value());
    EXPECT_FALSE(AtomicFile::write(dir + "/new.txt", "again").has_value());
    QFile written(dir + "/new.txt");
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), QByteArray("again"));
}
