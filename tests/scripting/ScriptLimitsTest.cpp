#include "base/UserDefaults.h"
#include "engine/CancellationToken.h"
#include "tests/http/TestHttpServer.h"
#include "tests/scripting/ScriptTestFixture.h"
#include "tests/support/TestSupport.h"
#include "tools/http/HttpClient.h"
#include "tools/scripting/ScriptChildProcesses.h"
#include "tools/scripting/ScriptProcess.h"
#include "tools/scripting/ScriptWatchdog.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <thread>

namespace {

// What a script may take: the settings of its limits, set for one test and put back after it.
class ScriptLimitsTest : public ScriptTestFixture {
protected:
    static void SetUpTestSuite()
    {
        qputenv("no_proxy", "127.0.0.1,localhost");
        qputenv("NO_PROXY", "127.0.0.1,localhost");
    }

    void TearDown() override
    {
        for (const QString &key : {ScriptWatchdog::timeLimitKey, ScriptWatchdog::memoryLimitKey, HttpClient::maxResponseBytesKey})
            UserDefaults::standard()->remove(key);
    }

    static void set(const QString &key, const QVariant &value) { UserDefaults::standard()->setValue(key, value); }

    // A script whose toolEntry gives the JSON text of Kelvara.httpGet(url) as its result's text.
    QString httpGetScript(const QString &url)
    {
        return writeScript(QStringLiteral("function toolEntry() { return JSON.stringify({ text: Kelvara.httpGet('%1') }); }").arg(url));
    }

    // Runs a call on a thread of its own and waits for its end, at most a minute: far past the
    // limits under test, and short of what would end the call without them. Past it, unblock
    // frees the call so that its thread can be joined, and the test fails.
    JSONToolResult callBounded(const std::function<JSONToolResult()> &callScript, const std::function<void()> &unblock)
    {
        JSONToolResult result;
        std::atomic<bool> finished{false};
        std::thread caller([&] {
            result = callScript();
            finished = true;
        });
        const bool ended = TestSupport::waitUntil([&] { return finished.load(); }, 60000);
        if (!ended)
            unblock();
        caller.join();
        EXPECT_TRUE(ended) << "the call outlived its limit";
        return result;
    }

    // The process is gone, or only waits as a zombie for a reaper; a number used again by
    // another program counts as gone as well.
    static bool isGone(pid_t pid)
    {
        if (::kill(pid, 0) != 0)
            return errno == ESRCH;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            return true;
        const QByteArray line = stat.readAll();
        const qsizetype nameEnd = line.lastIndexOf(')');
        return line.mid(1 + line.indexOf('('), nameEnd - line.indexOf('(') - 1) != "sleep" || line.mid(nameEnd + 2, 1) == "Z";
    }

    // A SIGKILL takes a moment to land; the wait is bounded, the check is the state.
    static bool becomesGone(pid_t pid)
    {
        return TestSupport::waitUntil([pid] { return isGone(pid); }, 10000);
    }

    static pid_t pidIn(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? pid_t(file.readAll().trimmed().toInt()) : 0;
    }
};

TEST_F(ScriptLimitsTest, AnEndlessBodyIsRefusedAtTheSizeLimitAndTheScriptGoesOn)
{
    TestHttpServer server([](const TestHttpServer::Request &) {
        return TestHttpServer::Response{200, {}, QByteArray(64 * 1024, 'x'), TestHttpServer::Response::Mode::Endless};
    });
    set(HttpClient::maxResponseBytesKey, 1 << 20);
    const JSONToolResult result = call(httpGetScript(server.url(QStringLiteral("/endless"))));
    const QJsonObject answer = QJsonDocument::fromJson(text(result).toUtf8()).object();
    EXPECT_EQ(answer.value("success"), false);
    EXPECT_EQ(answer.value("statusCode"), 0);
    EXPECT_EQ(answer.value("error"), "The response is larger than 1048576 bytes, the limit of mcp.http.maxResponseBytes");
    EXPECT_EQ(answer.value("body"), "");
}

TEST_F(ScriptLimitsTest, ATricklingEndlessBodyEndsAtTheTimeLimit)
{
    // A byte every 100 ms: the transfer never stands idle, and only its two-minute cap
    // would end it.
    TestHttpServer server([](const TestHttpServer::Request &) {
        return TestHttpServer::Response{200, {}, ".", TestHttpServer::Response::Mode::Endless, 100};
    });
    set(ScriptWatchdog::timeLimitKey, 1);
    const QString path = httpGetScript(server.url(QStringLiteral("/trickle")));
    const JSONToolResult result = callBounded([&] { return call(path); }, [&] { server.stop(); });
    EXPECT_EQ(field(result, "error_message").toString(), "Script exceeded its time limit of 1 s");
    EXPECT_FALSE(field(result, "success").toBool(true));
}

TEST_F(ScriptLimitsTest, ACancelledToolCallEndsItsTransferAndItsScript)
{
    TestHttpServer server([](const TestHttpServer::Request &) {
        return TestHttpServer::Response{200, {}, ".", TestHttpServer::Response::Mode::Endless, 100};
    });
    set(ScriptWatchdog::timeLimitKey, 0);  // nothing else ends it
    MCP::CancellationToken token;
    const QString path = httpGetScript(server.url(QStringLiteral("/trickle")));
    std::thread canceller([&] {
        while (server.requests().isEmpty())
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        token.cancel();
    });
    const JSONToolResult result = callBounded(
        [&] {
            // As the route of a tool call does on its worker.
            const MCP::CancellationToken::Scope current(&token);
            return call(path);
        },
        [&] { server.stop(); });
    canceller.join();
    EXPECT_EQ(field(result, "error_message").toString(), ScriptWatchdog::cancelledText());
}

TEST_F(ScriptLimitsTest, AScriptThatAllocatesWithoutEndEndsAtTheMemoryLimitAndTheMemoryFallsBack)
{
    set(ScriptWatchdog::memoryLimitKey, 64);
    // Should the memory limit fail, this ends the test before it takes the machine's memory.
    set(ScriptWatchdog::timeLimitKey, 2);
    const QString endless = QStringLiteral("function toolEntry() { var kept = []; for (var i = 0; ; ++i) kept.push('x'.repeat(1 << 20) + i); }");
    const QString small = QStringLiteral("function toolEntry() { return JSON.stringify({ text: 'small ' + [1, 2, 3].length }); }");
    // The thread's group and the engine warmed up first, so that they are not counted as growth.
    ASSERT_EQ(text(run(small)), "small 3");
    const qint64 before = ScriptWatchdog::residentBytes();
    ASSERT_GT(before, 0);

    const JSONToolResult ended = run(endless);
    EXPECT_EQ(field(ended, "error_message").toString(), "Script exceeded its memory limit of 64 MiB");
    EXPECT_FALSE(field(ended, "success").toBool(true));
    // It grew past the limit, and gave back at least half of it when it ended.
    EXPECT_LT(ScriptWatchdog::residentBytes(), before + (32 << 20));

    // The same in the script's own top-level code; the thread then serves the next call.
    const JSONToolResult atTopLevel = run(QStringLiteral("var kept = []; for (var i = 0; ; ++i) kept.push('y'.repeat(1 << 20) + i);\n") + small);
    EXPECT_EQ(field(atTopLevel, "error_message").toString(), "Script exceeded its memory limit of 64 MiB");
    EXPECT_EQ(text(run(small)), "small 3");
    EXPECT_LT(ScriptWatchdog::residentBytes(), before + (32 << 20));

    // 0 means no limit: an allocation well past 64 MiB finishes.
    set(ScriptWatchdog::memoryLimitKey, 0);
    const JSONToolResult unlimited = run(QStringLiteral(
        "function toolEntry() { var kept = []; for (var i = 0; i < 96; ++i) kept.push('z'.repeat(1 << 20) + i);"
        " return JSON.stringify({ text: 'kept ' + kept.length }); }"));
    EXPECT_EQ(text(unlimited), "kept 96");
}

TEST_F(ScriptLimitsTest, ABackgroundChildLivesAsLongAsItsCallAndEndsWithIt)
{
    const JSONToolResult result = run(QStringLiteral(R"JS(
        function toolEntry() {
            Kelvara.shell('/bin/sleep 120 >/dev/null 2>&1 & echo $!');
            var pid = stdOut[0];
            var alive = Kelvara.shell('kill -0 ' + pid);
            return JSON.stringify({ text: pid, metadata: { alive: alive } });
        })JS"));
    const pid_t child = pid_t(text(result).toInt());
    ASSERT_GT(child, 1) << text(result);
    EXPECT_TRUE(field(result, "alive").toBool()) << "a background child outlives the shell call within its script call";
    EXPECT_TRUE(becomesGone(child));
    EXPECT_EQ(ScriptChildProcesses::shared().count(), 0u);
}

TEST_F(ScriptLimitsTest, AChildThatOutrunsTheTimeLimitEndsWithTheCall)
{
    set(ScriptWatchdog::timeLimitKey, 1);
    const QString pidFile = folder + QStringLiteral("/sleeper.pid");
    const QString path = writeScript(QStringLiteral(R"JS(
        function toolEntry() {
            var ok = Kelvara.shell("echo $$ > '%1'; exec /bin/sleep 600");
            return JSON.stringify({ text: 'the shell gave ' + ok });
        })JS").arg(pidFile));
    const JSONToolResult result = callBounded([&] { return call(path); }, [&] { ::kill(pidIn(pidFile), SIGKILL); });
    EXPECT_EQ(field(result, "error_message").toString(), "Script exceeded its time limit of 1 s");
    const pid_t child = pidIn(pidFile);
    ASSERT_GT(child, 1);
    EXPECT_TRUE(becomesGone(child));
    EXPECT_EQ(ScriptChildProcesses::shared().count(), 0u);
}

TEST_F(ScriptLimitsTest, AShutdownEndsTheChildrenOfACallBeforeTheCallEnds)
{
    JSContextGroupRef group = JSContextGroupCreate();
    {
        ScriptWatchdog call(group, 0);
        ASSERT_EQ(ScriptWatchdog::current(), &call);
        const ScriptProcess::Outcome started = ScriptProcess::run(
            QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("/bin/sleep 120 >/dev/null 2>&1 & echo $!")});
        const pid_t child = pid_t(started.standardOutput.value(0).toInt());
        ASSERT_GT(child, 1);
        EXPECT_FALSE(isGone(child));
        EXPECT_EQ(ScriptChildProcesses::shared().count(), 1u);

        ScriptWatchdog::terminateAll();
        EXPECT_TRUE(becomesGone(child));
        EXPECT_EQ(ScriptChildProcesses::shared().count(), 0u);
        EXPECT_EQ(call.reasonToStop().value_or(QString()), ScriptWatchdog::shutdownText());
        EXPECT_EQ(call.stopped(), ScriptWatchdog::Stop::Shutdown);
    }
    EXPECT_EQ(ScriptWatchdog::current(), nullptr);
    JSContextGroupRelease(group);
}

TEST_F(ScriptLimitsTest, AShutdownEndsARunningScriptAndTheChildrenOfScripts)
{
    set(ScriptWatchdog::timeLimitKey, 0);
    const QString pidFile = folder + QStringLiteral("/background.pid");
    const QString path = writeScript(QStringLiteral(R"JS(
        function toolEntry() {
            Kelvara.shell("/bin/sleep 120 >/dev/null 2>&1 & echo $! > '%1'");
            while (true) {}
        })JS").arg(pidFile));
    JSONToolResult result;
    std::thread caller([&] { result = call(path); });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return pidIn(pidFile) > 1; }, 10000));
    const pid_t child = pidIn(pidFile);
    EXPECT_EQ(ScriptChildProcesses::shared().count(), 1u);

    ScriptWatchdog::terminateAll();
    EXPECT_TRUE(becomesGone(child));
    caller.join();
    EXPECT_EQ(field(result, "error_message").toString(), ScriptWatchdog::shutdownText());
    EXPECT_EQ(ScriptChildProcesses::shared().count(), 0u);
}

TEST_F(ScriptLimitsTest, OutsideACallAChildsBackgroundProcessesEndWithIt)
{
    // The background sleep holds no pipe; the output before it is read whole.
    const ScriptProcess::Outcome outcome = ScriptProcess::run(
        QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("seq 1 30000; /bin/sleep 120 >/dev/null 2>&1 & echo $!")});
    ASSERT_TRUE(outcome.succeeded());
    ASSERT_EQ(outcome.standardOutput.size(), 30001);
    EXPECT_EQ(outcome.standardOutput.at(29999), "30000");
    const pid_t child = pid_t(outcome.standardOutput.last().toInt());
    ASSERT_GT(child, 1);
    EXPECT_TRUE(becomesGone(child));
    EXPECT_EQ(ScriptChildProcesses::shared().count(), 0u);
}

}  // namespace
