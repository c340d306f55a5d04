#include "base/AppPaths.h"
#include "tests/http/TestHttpServer.h"
#include "tests/scripting/ScriptTestFixture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

namespace {

// The example tool scripts of the ToolSDK, called the way their bundle entries call them.
class ExamplesTest : public ScriptTestFixture {
protected:
    static void SetUpTestSuite()
    {
        qputenv("no_proxy", "127.0.0.1,localhost");
        qputenv("NO_PROXY", "127.0.0.1,localhost");
    }

    JSONToolResult example(const QString &script, const QString &handler, const QJsonObject &params)
    {
        const QString path = AppPaths::toolSdkDir() + QStringLiteral("/Scripts/examples/") + script;
        EXPECT_TRUE(QFileInfo::exists(path)) << path;
        return PluginScripting::callScript(QUuid::createUuid().toString(QUuid::WithoutBraces), path, handler,
                                                      QString::fromUtf8(QJsonDocument(params).toJson()));
    }

    static bool succeeded(const JSONToolResult &result) { return field(result, QStringLiteral("success")).toBool(); }
};

TEST_F(ExamplesTest, NotesAddListReadAndDelete)
{
    const QString notes = folder + QStringLiteral("/my notes");
    auto notesCall = [&](QJsonObject params) {
        params.insert(QStringLiteral("folder"), notes);
        return example(QStringLiteral("notes.js"), QStringLiteral("notes"), params);
    };
    EXPECT_EQ(field(notesCall({{"action", "list"}}), "count").toInt(-1), 0);

    const JSONToolResult added = notesCall({{"action", "add"}, {"note", "Shopping: list"}, {"text", "milk\nbread"}});
    ASSERT_TRUE(succeeded(added)) << text(added);
    EXPECT_EQ(field(added, "path").toString(), notes + QStringLiteral("/Shopping_ list.txt"));
    ASSERT_TRUE(succeeded(notesCall({{"action", "add"}, {"note", "Ideas"}, {"text", "more tests"}})));
    // A hidden file beside the notes is no note.
    writeBytes({}, QStringLiteral(".hidden.txt"), notes);

    const JSONToolResult listed = notesCall({{"action", "list"}});
    EXPECT_EQ(field(listed, "notes").toArray(), (QJsonArray{"Ideas", "Shopping_ list"}));
    EXPECT_EQ(text(notesCall({{"action", "read"}, {"note", "Shopping: list"}})), QStringLiteral("milk\nbread"));

    EXPECT_TRUE(succeeded(notesCall({{"action", "delete"}, {"note", "Ideas"}})));
    const JSONToolResult gone = notesCall({{"action", "read"}, {"note", "Ideas"}});
    EXPECT_FALSE(succeeded(gone));
    EXPECT_EQ(text(gone), QStringLiteral("There is no note 'Ideas'."));
    EXPECT_FALSE(succeeded(notesCall({{"action", "rename"}})));
}

// The summary's fields, picking and the query are checked end to end; here the texts.
TEST_F(ExamplesTest, FetchJsonSummarisesAndReportsFailures)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        return TestHttpServer::Response{request.target == "/missing" ? 404 : 200, {{"content-type", "application/json"}},
                                        request.target == "/text" ? "plain words" : R"({"items":[{"name":"first"},{"name":"second"}]})"};
    });
    const QString base = server.url(QStringLiteral(""));
    auto fetch = [&](const QString &path) { return example("fetch_json.js", "fetchJson", {{"url", base + path}}); };

    const JSONToolResult summary = fetch("/data");
    ASSERT_TRUE(succeeded(summary)) << text(summary);
    EXPECT_TRUE(text(summary).contains(QStringLiteral("array of 2 items (object)"))) << text(summary);
    const JSONToolResult missing = fetch("/missing");
    EXPECT_FALSE(succeeded(missing));
    EXPECT_TRUE(text(missing).endsWith(QStringLiteral("failed: HTTP 404"))) << text(missing);
    EXPECT_TRUE(text(fetch("/text")).contains(QStringLiteral("is no JSON")));
}

TEST_F(ExamplesTest, SystemInfoGivesUptimeAndTheTemporaryFolder)
{
    const JSONToolResult info = example("system_info.js", "systemInfo", {});
    ASSERT_TRUE(succeeded(info)) << text(info);
    EXPECT_GT(field(info, "uptime_seconds").toInt(), 0);
    EXPECT_EQ(field(info, "temp_path").toString(), QDir::tempPath());
    EXPECT_FALSE(field(info, "temp_free").toString().isEmpty());
}

TEST_F(ExamplesTest, GitLogListsTheLatestCommits)
{
    if (QStandardPaths::findExecutable(QStringLiteral("git")).isEmpty())
        GTEST_SKIP() << "git is not installed";
    const QString repository = folder + QStringLiteral("/repo");
    QDir().mkpath(repository);
    auto git = [&](const QStringList &arguments) {
        QProcess process;
        process.setWorkingDirectory(repository);
        process.start(QStringLiteral("git"), QStringList{"-c", "user.name=Ada Tester", "-c", "user.email=ada@example.org",
                                                         "-c", "commit.gpgsign=false"} + arguments);
        ASSERT_TRUE(process.waitForFinished(20000));
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    };
    git({"init", "-q"});
    git({"commit", "-q", "--allow-empty", "-m", "First step"});
    git({"commit", "-q", "--allow-empty", "-m", "Second\tstep"});

    const JSONToolResult latest = example("git_log.js", "gitLog", {{"folder", repository}, {"count", 1}});
    ASSERT_TRUE(succeeded(latest)) << text(latest);
    const QJsonArray commits = field(latest, "commits").toArray();
    ASSERT_EQ(commits.size(), 1);
    EXPECT_EQ(commits[0].toObject()["subject"].toString(), QStringLiteral("Second\tstep"));
    EXPECT_EQ(commits[0].toObject()["author"].toString(), QStringLiteral("Ada Tester"));
    EXPECT_EQ(field(example("git_log.js", "gitLog", {{"folder", repository}}), "count").toInt(), 2);

    const JSONToolResult notARepository = example("git_log.js", "gitLog", {{"folder", folder + QStringLiteral("/none")}});
    EXPECT_FALSE(succeeded(notARepository));
    EXPECT_TRUE(text(notARepository).startsWith(QStringLiteral("git log failed in "))) << text(notARepository);
}

}  // namespace

namespace {

// The built-in bundle's text_statistics script, called as its bundle entry calls it.
class BuiltinScriptTest : public ScriptTestFixture {
protected:
    JSONToolResult statistics(const QString &text)
    {
        const QString path = AppPaths::builtinConfigurationDir() + QStringLiteral("/Scripts/text_statistics.js");
        return PluginScripting::callScript(QUuid::createUuid().toString(QUuid::WithoutBraces), path,
                                                      QStringLiteral("textStatistics"),
                                                      QString::fromUtf8(QJsonDocument(QJsonObject{{"text", text}}).toJson()));
    }
};

}  // namespace

TEST_F(BuiltinScriptTest, TextStatisticsCountsSentencesAndCharactersInOnePass)
{
    const JSONToolResult small = statistics(QString::fromUtf8("Hi!! Is it? ...no. end \xf0\x9f\x98\x80"));
    EXPECT_EQ(field(small, "sentences").toInt(), 4);   // "Hi!!", " Is it?", " ...", "no." as the old pattern counted
    EXPECT_EQ(field(small, "characters").toInt(), 24);  // the emoji is one character
    // A megabyte without a sentence end: no sentence, every character counted. Its time
    // grew with the square of the length before, which ran into the test's time limit.
    const JSONToolResult large = statistics(QString(1 << 20, QLatin1Char('a')));
    ASSERT_TRUE(field(large, "success").toBool()) << text(large).toStdString();
    EXPECT_EQ(field(large, "sentences").toInt(), 0);
    EXPECT_EQ(field(large, "characters").toInt(), 1 << 20);
}
