#include "base/AppPaths.h"
#include "tests/scripting/ScriptTestFixture.h"
#include "tools/scripting/PluginScripting.h"
#include "tools/scripting/ScriptContextManager.h"
#include "tools/scripting/ScriptWatchdog.h"
#include "base/UserDefaults.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using PluginScriptingTest = ScriptTestFixture;

TEST_F(PluginScriptingTest, ResultObjectBecomesTextAndStructuredContent)
{
    const JSONToolResult result = run(R"JS(
        function toolEntry(sid, handlerName, jsonParams) {
            var p = JSON.parse(jsonParams);
            return JSON.stringify({ text: handlerName + ':' + p.name + ':' + (sid.length > 0), extra: 'ignored' });
        })JS",
                                      QStringLiteral("{\n    \"name\": \"Ada\"\n}"));
    EXPECT_EQ(result.toJsonObject(), (QJsonObject{{"content", QJsonArray{QJsonObject{{"type", "text"}, {"text", "handler:Ada:true"}}}},
                                                  {"structuredContent", QJsonObject{{"error", ""}, {"success", true}}}}));
}

TEST_F(PluginScriptingTest, ErrorSuccessAndMetadataFollowTheirPrecedence)
{
    auto result = [&](const char *object) {
        return run(QStringLiteral("function toolEntry() { return JSON.stringify(%1); }").arg(QString::fromUtf8(object)));
    };
    const JSONToolResult failed = result(R"({"text":"t","error":"x"})");
    EXPECT_FALSE(field(failed, "success").toBool(true));
    EXPECT_EQ(field(failed, "error").toString(), "x");

    EXPECT_TRUE(field(result(R"({"text":"t","error":"x","success":true})"), "success").toBool());

    const JSONToolResult blank = result(R"({"text":"t","error":"  \n "})");
    EXPECT_TRUE(field(blank, "success").toBool());
    EXPECT_EQ(field(blank, "error").toString(), "  \n ");

    const JSONToolResult meta = result(R"({"text":"t","success":true,"metadata":{"success":false,"rows":3,"error":"m"}})");
    EXPECT_FALSE(field(meta, "success").toBool(true));
    EXPECT_EQ(field(meta, "rows").toInt(), 3);
    EXPECT_EQ(field(meta, "error").toString(), "m");

    EXPECT_TRUE(field(result(R"({"text":"t","metadata":[1,2]})"), "success").toBool());
}

TEST_F(PluginScriptingTest, ResultsThatAreNoObjectOrLackTextGiveTheirCodes)
{
    const JSONToolResult undefinedReturn = run("function toolEntry() { }");
    EXPECT_EQ(text(undefinedReturn), "Error 1400 [Script] Invalid JSON result");
    EXPECT_EQ(field(undefinedReturn, "error_code").toInt(), 1400);
    EXPECT_FALSE(field(undefinedReturn, "success").toBool(true));

    EXPECT_EQ(field(run("function toolEntry() { return '[1,2]'; }"), "error_code").toInt(), 1400);
    EXPECT_EQ(field(run("function toolEntry() { return {text: 'not a string'}; }"), "error_code").toInt(), 1400);

    const JSONToolResult noText = run(R"JS(function toolEntry() { return '{"error":"x"}'; })JS");
    EXPECT_EQ(text(noText), "Error 1401 [Script] Result object missing attribute 'text'");
    EXPECT_EQ(field(noText, "error_message").toString(), "[Script] Result object missing attribute 'text'");
    EXPECT_FALSE(text(noText).contains("x\""));
}

TEST_F(PluginScriptingTest, EmptyReturnWithoutResultFailsAndClearsTheContext)
{
    const QString sid = QStringLiteral("empty-return");
    const JSONToolResult result = call(writeScript("function toolEntry() { return ''; }"), "{}", sid);
    EXPECT_EQ(text(result), "Error -1 [Script] Script must return a JSON result structure");
    EXPECT_FALSE(ScriptContextManager::shared()->hasContext(sid));
    EXPECT_TRUE(log.contains(-1, "[Script] Cleared context for session: " + sid));
}

TEST_F(PluginScriptingTest, SetToolResultWinsOverTheReturnValueAndTheLastCallWins)
{
    const JSONToolResult kept = run(R"JS(
        function toolEntry() {
            Kelvara.setToolResult(JSON.stringify({text: 'first'}));
            Kelvara.setToolResult(JSON.stringify({text: 'second', error: 'bad'}));
            return 'this is not JSON';
        })JS");
    EXPECT_EQ(text(kept), "second");
    EXPECT_FALSE(field(kept, "success").toBool(true));
}

TEST_F(PluginScriptingTest, ExceptionsAreLoggedWithMessageAndStack)
{
    const JSONToolResult thrown = run(R"JS(
        function inner() { throw new Error('boom'); }
        function toolEntry() { inner(); })JS");
    EXPECT_EQ(field(thrown, "error_code").toInt(), 1400);
    const QString error = described({onlyLine(500)}).first();
    EXPECT_TRUE(error.startsWith("E 500 [Script] Error: boom\n") && error.contains("inner@")) << error;
}

TEST_F(PluginScriptingTest, SyntaxErrorIsLoggedAndLeavesTheSessionsContextForItsNextCall)
{
    const QString sid = QStringLiteral("syntax-error");
    const JSONToolResult broken = call(writeScript("function toolEntry( {", "broken.js"), "{}", sid);
    EXPECT_EQ(text(broken), "Error -1 [Script] Script must define 'toolEntry' function");
    const QString error = onlyLine(500).message;
    EXPECT_TRUE(error.startsWith("[Script] SyntaxError") && error.endsWith("\n")) << error;  // no stack for a syntax error
    EXPECT_TRUE(ScriptContextManager::shared()->hasContext(sid));

    // The next call of the session finds the old globals, then clears the context.
    const JSONToolResult next = call(writeScript(R"JS(
        var leftover = typeof stdOut;
        function toolEntry() { return JSON.stringify({text: leftover}); })JS", "fine.js"), "{}", sid);
    EXPECT_EQ(text(next), "object");
    EXPECT_FALSE(ScriptContextManager::shared()->hasContext(sid));
}

TEST_F(PluginScriptingTest, MissingFileAndMissingEntryPointSayWhatIsWrong)
{
    const QString missing = folder + "/absent.js";
    EXPECT_EQ(text(call(missing)), "Error -1 [Script] Failed to load script file: " + missing);
    EXPECT_EQ(onlyLine(404).message, "[Script] Script file not found: " + missing);

    const QString latin1 = writeBytes("// caf\xe9\n", "latin1.js");
    EXPECT_EQ(text(call(latin1)), "Error -1 [Script] Failed to load script file: " + latin1);
    EXPECT_EQ(linesWithCode(500).size(), 1);  // "Error reading file at", then "not found" too
    EXPECT_EQ(linesWithCode(404).size(), 2);

    EXPECT_EQ(text(run("var toolEntry;")), "Error -1 [Script] Script must define 'toolEntry' function");
    EXPECT_EQ(text(run("var toolEntry = 42;")), "Error -1 [Script] Script must return a JSON result structure");
}

TEST_F(PluginScriptingTest, ModuleDirKeepsApostrophesAndTakesBackslashesAsEscapes)
{
    const QString quoted = folder + "/it's here";
    const QString before = QDir::currentPath();
    const JSONToolResult result = call(writeScript(
        "function toolEntry() { return JSON.stringify({text: __moduleDir}); }", "tool.js", quoted));
    EXPECT_EQ(text(result), quoted);
    EXPECT_EQ(QDir::currentPath(), before);  // the folder is the script's, not the process's

    const QString slashed = folder + "/back\\slash";
    EXPECT_EQ(text(call(writeScript("function toolEntry() { return JSON.stringify({text: __moduleDir}); }", "tool.js",
                                    slashed))),
              folder + "/backslash");
    EXPECT_EQ(PluginScripting::moduleDirDeclaration("/a'b"), "var __moduleDir = '/a\\'b';");
}

TEST_F(PluginScriptingTest, EveryCallSeesTheFileAsItIsNow)
{
    const QString path = writeScript("function toolEntry() { return JSON.stringify({text: 'one'}); }", "edited.js");
    EXPECT_EQ(text(call(path)), "one");
    EXPECT_EQ(text(call(path)), "one");
    writeScript(QString::fromUtf8("function toolEntry() { return JSON.stringify({text: 'zw\xc3\xb6lf'}); }"), "edited.js");
    EXPECT_EQ(text(call(path)), QString::fromUtf8("zw\xc3\xb6lf"));
    writeScript("var toolEntry = function () { return JSON.stringify({text: 'two'}); };", "edited.js");
    EXPECT_EQ(text(call(path)), "two");
}

TEST_F(PluginScriptingTest, EveryCallGetsAFreshContextWithEverythingInPlace)
{
    // Each call changes what a later call would see if it shared the context: globals,
    // `console`, the host object, the output arrays and the pre-processor's `Tool`.
    const QString path = writeScript(R"JS(
        function toolEntry(sid) {
            var seen = [typeof leftover, typeof console.log, typeof Kelvara.log, stdOut.length, stdErr.length,
                        typeof Tool.dispatch, typeof require, __moduleDir].join(' ');
            leftover = 1;
            console.log = null;
            Kelvara.log = null;
            stdOut.push('x');
            Tool = null;
            Kelvara.setToolResult(JSON.stringify({text: seen, metadata: {sid: sid}}));
            return 'ignored';
        })JS", "fresh.js");
    // On one thread one after another, as a worker serves its calls (reusing its context
    // group), and now and then on a thread of its own.
    for (int i = 0; i < 6; ++i) {
        const QString sid = QStringLiteral("fresh-%1").arg(i);
        JSONToolResult result;
        if (i % 3 == 2) {
            std::thread other([&] { result = call(path, "{}", sid); });
            other.join();
        } else {
            result = call(path, "{}", sid);
        }
        EXPECT_EQ(text(result), "undefined function function 0 0 function function " + folder) << i;
        EXPECT_EQ(field(result, "sid").toString(), sid);
        EXPECT_FALSE(ScriptContextManager::shared()->hasContext(sid));
    }
}

TEST_F(PluginScriptingTest, AnEditedPreprocessorReachesTheNextCall)
{
    const QString resources = TestSupport::makeTempDir("own-resources");
    const QString bootstrap = resources + "/ToolSDK/Scripts/bootstrap.js";
    const QByteArray previous = qgetenv("KELVARA_RESOURCES");
    qputenv("KELVARA_RESOURCES", resources.toUtf8());
    const QString path = writeScript("function toolEntry() { return JSON.stringify({text: String(mark)}); }", "mark.js");
    writeBytes("var mark = 'one';", "bootstrap.js", resources + "/ToolSDK/Scripts");
    EXPECT_EQ(text(call(path)), "one");
    EXPECT_EQ(text(call(path)), "one");
    // Another text of another length, read again though the call before kept the old one.
    writeBytes("var mark = 'second';", "bootstrap.js", resources + "/ToolSDK/Scripts");
    EXPECT_EQ(text(call(path)), "second");
    EXPECT_EQ(text(call(path)), "second");
    ASSERT_TRUE(QFile::remove(bootstrap));
    EXPECT_EQ(text(call(path, "{}", "gone-bootstrap")), "Error -1 [Script] Failed to load pre-processor from bundle");
    ScriptContextManager::shared()->clearContext("gone-bootstrap");
    qputenv("KELVARA_RESOURCES", previous);
}

TEST_F(PluginScriptingTest, RelativePathNamesAScriptInTheApplicationsContainer)
{
    const QString container = AppPaths::dataDir();
    writeScript("function toolEntry() { return JSON.stringify({text: __moduleDir}); }", "relative.js", container + "/Scripts");
    QDir::setCurrent(folder);  // wherever the last call left the process
    EXPECT_EQ(text(call("Scripts/relative.js")), container + "/Scripts");
    EXPECT_EQ(text(call("Scripts/absent.js")), "Error -1 [Script] Failed to load script file: " + container + "/Scripts/absent.js");
}

TEST_F(PluginScriptingTest, ConsoleAndLogReachTheLogWithTheirLevelsAndCodes)
{
    run(R"JS(
        console.log('top level');
        function toolEntry() {
            console.error({toString: function () { return 'obj'; }});
            console.warn('w');
            console.debug(5);
            Kelvara.log('WARNING', 77, 'loud');
            Kelvara.log('chatty', 78, 'plain');
            var detached = Kelvara.log;
            detached('error', 79, 'nowhere');
            return JSON.stringify({text: typeof stdOut + typeof stdErr + stdOut.length});
        })JS");
    EXPECT_TRUE(log.contains(MCPLogMessageType::Info, -1, "top level"));
    QStringList seen;
    for (int code : {-2, -3, -4, 77, 78, 79})
        seen << described(linesWithCode(code));
    EXPECT_EQ(seen, (QStringList{"E -2 obj", "W -3 w", "D -4 5", "W 77 loud", "I 78 plain"}));
}

TEST_F(PluginScriptingTest, MissingPreprocessorFailsAndLeavesTheContext)
{
    const QString emptyResources = TestSupport::makeTempDir("no-resources");
    const QByteArray previous = qgetenv("KELVARA_RESOURCES");
    qputenv("KELVARA_RESOURCES", emptyResources.toUtf8());
    const JSONToolResult result = call(writeScript("function toolEntry() { return '{\"text\":\"t\"}'; }"), "{}", "no-bootstrap");
    qputenv("KELVARA_RESOURCES", previous);
    EXPECT_EQ(text(result), "Error -1 [Script] Failed to load pre-processor from bundle");
    EXPECT_TRUE(ScriptContextManager::shared()->hasContext("no-bootstrap"));
    ScriptContextManager::shared()->clearContext("no-bootstrap");
    EXPECT_TRUE(onlyLine(500).message.startsWith("[Script] Error reading bundle script " + emptyResources + ": "));
}

TEST_F(PluginScriptingTest, CallsOnManyThreadsRunSideBySideAndKeepTheirOwnResults)
{
    const QString path = writeScript(R"JS(
        function toolEntry(sid, handlerName, jsonParams) {
            var p = JSON.parse(jsonParams), sum = 0;
            for (var i = 0; i < 2000; i++) { sum += i % 7; }
            return JSON.stringify({text: sid, metadata: {n: p.n, sum: sum}});
        })JS");
    constexpr int threads = 8;
    constexpr int callsPerThread = 25;
    std::atomic<int> wrong{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < callsPerThread; ++i) {
                const QString sid = QStringLiteral("worker-%1-%2").arg(t).arg(i);
                const int n = t * 1000 + i;
                const JSONToolResult result = PluginScripting::callScript(
                    sid, path, QStringLiteral("h"), QStringLiteral("{\"n\": %1}").arg(n));
                if (text(result) != sid || field(result, "n").toInt() != n || field(result, "sum").toInt() != 5995)
                    ++wrong;
            }
        });
    }
    for (auto &worker : workers)
        worker.join();
    EXPECT_EQ(wrong.load(), 0);

    // Calls of one session that overlap share its context and still all end with a result.
    std::atomic<int> failed{0};
    workers.clear();
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < 10; ++i) {
                const JSONToolResult result = PluginScripting::callScript("shared", path, "h", "{\"n\": 1}");
                if (!field(result, "success").toBool())
                    ++failed;
            }
        });
    }
    for (auto &worker : workers)
        worker.join();
    EXPECT_EQ(failed.load(), 0);
    EXPECT_FALSE(ScriptContextManager::shared()->hasContext("shared"));
}

}  // namespace

TEST_F(PluginScriptingTest, ARunawayScriptEndsAtItsTimeLimitAndTheWorkerServesTheNextCall)
{
    UserDefaults::standard()->setValue(ScriptWatchdog::timeLimitKey, 1);
    const QString expected = QStringLiteral("Script exceeded its time limit of 1 s");
    // In the handler, and in the script's own top-level code, where a try cannot catch it.
    const JSONToolResult inHandler = run("function toolEntry() { try { while (true) {} } catch (e) { return '{}'; } }");
    EXPECT_EQ(field(inHandler, "error_message").toString(), expected);
    EXPECT_FALSE(field(inHandler, "success").toBool(true));
    const JSONToolResult atTopLevel = run("for (;;) {}\nfunction toolEntry() { return '{\"text\":\"never\"}'; }");
    EXPECT_EQ(field(atTopLevel, "error_message").toString(), expected);

    const JSONToolResult next = run("function toolEntry() { return JSON.stringify({ text: 'after' }); }");
    EXPECT_EQ(text(next), "after");

    // A limit of 0 means none: a script that runs a while longer than a tick still finishes.
    UserDefaults::standard()->setValue(ScriptWatchdog::timeLimitKey, 0);
    const JSONToolResult unlimited = run(R"JS(function toolEntry() {
        var end = Date.now() + 400; while (Date.now() < end) {} return JSON.stringify({ text: 'done' }); })JS");
    EXPECT_EQ(text(unlimited), "done");
    UserDefaults::standard()->remove(ScriptWatchdog::timeLimitKey);
}
