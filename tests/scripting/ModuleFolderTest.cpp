#include "tests/scripting/ScriptTestFixture.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

// Each script reads its folder's files by relative names, through every host route that
// takes a path, and tells what it found.
const QString kReader = uR"JS(
function toolEntry() {
    var mark = require('./lib/mark');
    var data = Kelvara.readFile('data.txt');
    Kelvara.saveFile('out/written.txt', data);
    Kelvara.shell('cat data.txt');
    return JSON.stringify({text: 'ok', metadata: {
        module: mark.name,
        data: data,
        base64: Kelvara.readFileBase64('data.txt'),
        exists: Kelvara.fileExists('data.txt'),
        listed: Kelvara.listDirectory('lib').join(','),
        shell: stdOut.join(''),
        moduleDir: __moduleDir
    }});
}
)JS"_s;

}  // namespace

class ModuleFolderTest : public ScriptTestFixture {
protected:
    // A folder with the reader, a module and a data file that all say `name`.
    QString makeToolFolder(const QString &name)
    {
        const QString dir = folder + u'/' + name;
        writeScript(u"exports.name = '%1';\n"_s.arg(name), u"mark.js"_s, dir + u"/lib"_s);
        writeScript(name + u"-data"_s, u"data.txt"_s, dir);
        QDir().mkpath(dir + u"/out"_s);
        return writeScript(kReader, u"reader.js"_s, dir);
    }

    static QJsonObject seen(const JSONToolResult &result)
    {
        QJsonObject object;
        for (const QString &key : {u"module"_s, u"data"_s, u"base64"_s, u"exists"_s, u"listed"_s, u"shell"_s, u"moduleDir"_s})
            object.insert(key, field(result, key));
        return object;
    }

    static QJsonObject expected(const QString &dir, const QString &name)
    {
        return QJsonObject{{"module", name},         {"data", name + u"-data"_s}, {"exists", true},
                           {"base64", QString::fromLatin1((name + u"-data"_s).toUtf8().toBase64())},
                           {"listed", "mark.js"},    {"shell", name + u"-data"_s}, {"moduleDir", dir}};
    }
};

TEST_F(ModuleFolderTest, ScriptsInTwoFoldersRunningAtOnceEachSeeTheirOwnFolder)
{
    const QString before = QDir::currentPath();
    const QString alpha = makeToolFolder(u"alpha"_s);
    const QString beta = makeToolFolder(u"beta"_s);

    // Two threads call side by side, over and over, so that their calls overlap.
    constexpr int kRounds = 25;
    std::atomic<int> wrong{0};
    QStringList firstWrong[2];
    auto worker = [&](int index, const QString &path, const QString &name) {
        const QJsonObject want = expected(QFileInfo(path).absolutePath(), name);
        for (int i = 0; i < kRounds; ++i) {
            const QJsonObject got = seen(call(path));
            if (got != want) {
                if (wrong.fetch_add(1) == 0)
                    firstWrong[index] << QString::fromUtf8(QJsonDocument(got).toJson(QJsonDocument::Compact));
            }
        }
    };
    std::thread first(worker, 0, alpha, u"alpha"_s);
    std::thread second(worker, 1, beta, u"beta"_s);
    first.join();
    second.join();
    EXPECT_EQ(wrong.load(), 0) << firstWrong[0].join(u'\n').toStdString() << firstWrong[1].join(u'\n').toStdString();

    // Each wrote into its own folder, and the process's directory never moved.
    EXPECT_EQ(QDir::currentPath(), before);
    QFile written(QFileInfo(beta).absolutePath() + u"/out/written.txt"_s);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), QByteArray("beta-data"));
}

TEST_F(ModuleFolderTest, AbsolutePathsStandAndRelativeOnesNeverReachTheProcessDirectory)
{
    // A file of that name beside the process but not beside the script stays unseen.
    const QString here = TestSupport::makeTempDir(u"elsewhere"_s);
    writeScript(u"process folder"_s, u"only-here.txt"_s, here);
    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(here));
    const QString dir = folder + u"/tool"_s;
    writeScript(u"absolute"_s, u"abs.txt"_s, folder);
    const QString path = writeScript(
        u"function toolEntry() { return JSON.stringify({text: 'ok', metadata: {"
        "here: Kelvara.fileExists('only-here.txt'), abs: Kelvara.readFile(%1),"
        "upward: Kelvara.readFile('../abs.txt'), made: Kelvara.createDirectory('sub/deeper'),"
        "gone: Kelvara.deleteFile('sub')}}); }"_s.arg(u"'"_s + folder + u"/abs.txt'"_s),
        u"tool.js"_s, dir);
    const JSONToolResult result = call(path);
    QDir::setCurrent(before);

    EXPECT_EQ(field(result, u"here"_s), QJsonValue(false));
    EXPECT_EQ(field(result, u"abs"_s), QJsonValue(u"absolute"_s));
    EXPECT_EQ(field(result, u"upward"_s), QJsonValue(u"absolute"_s));
    EXPECT_EQ(field(result, u"made"_s), QJsonValue(true));
    EXPECT_EQ(field(result, u"gone"_s), QJsonValue(true));
    EXPECT_FALSE(QFileInfo::exists(here + u"/sub"_s));
    EXPECT_FALSE(QFileInfo::exists(dir + u"/sub"_s));
}

TEST_F(ModuleFolderTest, WithoutAReporterTheClientsLogGoesToKelvarasLogAndProgressNowhere)
{
    const JSONToolResult result = run(
        u"function toolEntry() {\n"
        "  Kelvara.progress(1, 2, 'half');\n"
        "  Kelvara.log('critical', 'store gone', {table: 'rows'});\n"
        "  Kelvara.log('notice', 'just text');\n"
        "  return JSON.stringify({text: 'ok'});\n}\n"_s);
    EXPECT_EQ(text(result), u"ok"_s);
    EXPECT_TRUE(log.contains(MCPLogMessageType::Critical, -1, uR"([Script] store gone {"table":"rows"})"_s));
    EXPECT_TRUE(log.contains(MCPLogMessageType::Info, -1, u"[Script] just text"_s));
    for (const Line &line : log.all())
        EXPECT_FALSE(line.message.contains(u"half"_s)) << line.message.toStdString();
}
