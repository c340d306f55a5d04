#include "engine/CancellationToken.h"
#include "tests/scripting/ScriptTestFixture.h"
#include "tools/scripting/ScriptContext.h"
#include "tools/scripting/ScriptContextManager.h"
#include "tools/scripting/ScriptThreadPool.h"

#include <QSet>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

class ScriptThreadPoolTest : public ScriptTestFixture {
protected:
    // Calls from a plain thread, as the engine's workers make them: those go to the pool.
    JSONToolResult callOffMain(const QString &path, const QString &sid = QString())
    {
        JSONToolResult result;
        std::thread worker([&] { result = call(path, u"{}"_s, sid); });
        worker.join();
        return result;
    }
};

TEST_F(ScriptThreadPoolTest, JobsRunOnPoolThreadsWithTheCallersTokenAndFindAPreparedContextAfterTheFirst)
{
    ScriptThreadPool pool;
    MCP::CancellationToken token;
    std::thread::id ranOn;
    const MCP::CancellationToken *seenToken = nullptr;
    bool hadPrepared = true;
    ASSERT_TRUE(pool.run(
        [&](ScriptThreadPool::Slot &slot) {
            ranOn = std::this_thread::get_id();
            seenToken = MCP::CancellationToken::current();
            hadPrepared = slot.prepared != nullptr;
        },
        &token));
    EXPECT_NE(ranOn, std::this_thread::get_id());
    EXPECT_EQ(seenToken, &token);
    EXPECT_FALSE(hadPrepared);  // a new thread serves its first call at once
    EXPECT_EQ(MCP::CancellationToken::current(), nullptr);

    // The same thread, once it prepared: everything in place, in its own group.
    std::thread::id second;
    QString kinds;
    bool sameBootstrap = false;
    ASSERT_TRUE(TestSupport::waitUntil([&] { return pool.idleThreadCount() == 1; }, 10000));
    ASSERT_TRUE(pool.run(
        [&](ScriptThreadPool::Slot &slot) {
            second = std::this_thread::get_id();
            if (!slot.prepared)
                return;
            sameBootstrap = slot.preparedWith.has_value() && slot.preparedBridge != nullptr;
            JSValueRef seen = slot.prepared->evaluateScript(
                u"[typeof Kelvara.readFile, typeof console.log, stdOut.length, typeof Tool, typeof require].join(' ')"_s);
            kinds = seen ? ScriptValue::stringForm(slot.prepared->jsContext(), seen).value_or(QString()) : QString();
        },
        nullptr));
    EXPECT_EQ(second, ranOn);
    EXPECT_TRUE(sameBootstrap);
    EXPECT_EQ(kinds, u"function function 0 object function"_s);
    EXPECT_EQ(pool.threadCount(), 1u);

    // Two calls at once get two threads: each waits inside until the other has arrived.
    std::atomic<int> arrived{0};
    std::atomic<int> metTheOther{0};
    auto overlapping = [&] {
        pool.run(
            [&](ScriptThreadPool::Slot &) {
                ++arrived;
                if (TestSupport::waitUntil([&] { return arrived.load() == 2; }, 10000))
                    ++metTheOther;
            },
            nullptr);
    };
    std::thread a(overlapping);
    std::thread b(overlapping);
    a.join();
    b.join();
    EXPECT_EQ(metTheOther.load(), 2);
    EXPECT_GE(pool.threadCount(), 2u);

    // A stop joins every thread; later calls are refused and run nowhere.
    pool.stop();
    EXPECT_EQ(pool.threadCount(), 0u);
    bool ran = false;
    EXPECT_FALSE(pool.run([&](ScriptThreadPool::Slot &) { ran = true; }, nullptr));
    EXPECT_FALSE(ran);
}

TEST_F(ScriptThreadPoolTest, PooledCallsEachGetAFreshContextAndSeeAnEditedPreprocessor)
{
    const QString path = writeScript(uR"JS(
        function toolEntry(sid) {
            var seen = [typeof leftover, typeof console.log, typeof Kelvara.log, stdOut.length, typeof Tool.dispatch,
                        typeof mark, __moduleDir].join(' ');
            leftover = 1;
            console.log = null;
            Kelvara.log = null;
            stdOut.push('x');
            Tool = null;
            Kelvara.setToolResult(JSON.stringify({text: seen, metadata: {sid: sid}}));
        })JS"_s, u"fresh.js"_s);
    // Many in a row from one caller, so that prepared contexts serve most of them.
    for (int i = 0; i < 12; ++i) {
        const QString sid = u"pooled-%1"_s.arg(i);
        const JSONToolResult result = callOffMain(path, sid);
        EXPECT_EQ(text(result), u"undefined function function 0 function undefined "_s + folder) << i;
        EXPECT_EQ(field(result, u"sid"_s).toString(), sid);
        EXPECT_FALSE(ScriptContextManager::shared()->hasContext(sid));
    }

    // A prepared context evaluated the pre-processor as it was; an edit reaches the next call.
    const QString resources = TestSupport::makeTempDir(u"pool-resources"_s);
    const QByteArray previous = qgetenv("KELVARA_RESOURCES");
    qputenv("KELVARA_RESOURCES", resources.toUtf8());
    const QString mark = writeScript(u"function toolEntry() { return JSON.stringify({text: String(mark)}); }"_s, u"mark.js"_s);
    writeBytes("var mark = 'one';", u"bootstrap.js"_s, resources + u"/ToolSDK/Scripts"_s);
    EXPECT_EQ(text(callOffMain(mark)), u"one"_s);
    EXPECT_EQ(text(callOffMain(mark)), u"one"_s);
    writeBytes("var mark = 'second';", u"bootstrap.js"_s, resources + u"/ToolSDK/Scripts"_s);
    EXPECT_EQ(text(callOffMain(mark)), u"second"_s);
    EXPECT_EQ(text(callOffMain(mark)), u"second"_s);
    qputenv("KELVARA_RESOURCES", previous);
}
