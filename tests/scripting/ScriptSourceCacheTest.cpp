#include "tests/support/TestSupport.h"
#include "tools/scripting/ScriptSourceCache.h"
#include "tools/scripting/ScriptValue.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

namespace {

class ScriptSourceCacheTest : public ::testing::Test {
protected:
    void SetUp() override { folder = TestSupport::makeTempDir(QStringLiteral("sources")); }

    QString write(const QByteArray &bytes, const QString &name = QStringLiteral("tool.js"))
    {
        const QString path = folder + QLatin1Char('/') + name;
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
        return path;
    }

    static QString text(const std::optional<ScriptValue::String> &source)
    {
        return source ? ScriptValue::toQString(source->get()) : QStringLiteral("<none>");
    }

    QString folder;
    ScriptSourceCache cache;
};

TEST_F(ScriptSourceCacheTest, AnUnchangedFileGivesTheKeptStringAndAnyChangeIsReadAgain)
{
    const QString path = write("var a = 'one';");
    const auto first = cache.load(path);
    const auto again = cache.load(path);
    ASSERT_TRUE(first && again);
    EXPECT_EQ(first->get(), again->get()) << "kept, not read and copied again";
    EXPECT_EQ(text(again), "var a = 'one';");

    // Same length, and its times set back to the old ones: the status-change time still moves.
    struct stat before {};
    ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &before), 0);
    write("var a = 'two';");
    const utimbuf times{before.st_atime, before.st_mtime};
    ::utime(QFile::encodeName(path).constData(), &times);
    EXPECT_EQ(text(cache.load(path)), "var a = 'two';");

    // Replaced by another file under the same name (a new inode), as editors save.
    const QString other = write(QString::fromUtf8("var b = 'zwölf';").toUtf8(), QStringLiteral("other.js"));
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QFile::rename(other, path));
    EXPECT_EQ(text(cache.load(path)), QString::fromUtf8("var b = 'zwölf';"));
    EXPECT_EQ(cache.size(), 1);
}

TEST_F(ScriptSourceCacheTest, MissingAndUnreadableFilesSaySoAndAreNotKept)
{
    ScriptSourceCache::Failure why = ScriptSourceCache::Failure::None;
    QString description;
    EXPECT_FALSE(cache.load(folder + QStringLiteral("/absent.js"), &why, &description));
    EXPECT_EQ(why, ScriptSourceCache::Failure::Missing);

    const QString path = write("var kept = 1;");
    ASSERT_TRUE(cache.load(path));
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_FALSE(cache.load(path, &why));
    EXPECT_EQ(why, ScriptSourceCache::Failure::Missing) << "a deleted file is not served from memory";

    // A folder in its place cannot be read; the reader says why.
    ASSERT_TRUE(QDir().mkpath(path));
    EXPECT_FALSE(cache.load(path, &why, &description));
    EXPECT_EQ(why, ScriptSourceCache::Failure::Unreadable);
    EXPECT_FALSE(description.isEmpty());

    // Bytes that are no UTF-8 are refused as by every read of a script.
    const QString broken = write(QByteArray("var x = '\xff';"), QStringLiteral("broken.js"));
    EXPECT_FALSE(cache.load(broken, &why));
    EXPECT_EQ(why, ScriptSourceCache::Failure::Unreadable);
}

TEST_F(ScriptSourceCacheTest, KeepsABoundedNumberOfFiles)
{
    for (int i = 0; i < ScriptSourceCache::maxEntries + 10; ++i)
        ASSERT_TRUE(cache.load(write(QByteArray("var n = ") + QByteArray::number(i) + ";", QStringLiteral("f%1.js").arg(i))));
    EXPECT_EQ(cache.size(), ScriptSourceCache::maxEntries);
    cache.clear();
    EXPECT_EQ(cache.size(), 0);
}

}  // namespace
