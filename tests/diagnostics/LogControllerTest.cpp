#include "diagnostics/LogController.h"

#include "engine/bridge/MainThreadQueue.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>

#include <thread>
#include <vector>

using TestSupport::waitUntil;

namespace {

// A fresh controller per test; the shared one is covered on its own.
class LogControllerTest : public ::testing::Test {
protected:
    // Logs and waits until the line has become an entry.
    void logNow(LogController &log, const QString &message, int code, MCPLogMessageType level)
    {
        log.log(message, code, level);
        ASSERT_TRUE(
            waitUntil([&] { return !log.logEntries().isEmpty() && log.logEntries().last().message == message; }));
    }
};

TEST_F(LogControllerTest, LinesFromManyThreadsKeepEachThreadsOrder)
{
    LogController log;
    constexpr int threads = 4;
    constexpr int perThread = 150;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&log, t] {
            for (int i = 0; i < perThread; ++i)
                log.log(QStringLiteral("%1:%2").arg(t).arg(i), t + 1, MCPLogMessageType::Debug);
        });
    }
    for (auto &worker : workers)
        worker.join();
    ASSERT_TRUE(waitUntil([&] { return log.logEntries().size() == threads * perThread; }));
    std::vector<int> next(threads, 0);
    for (const LogEntry &entry : log.logEntries()) {
        const QStringList parts = entry.message.split(QLatin1Char(':'));
        const int t = parts[0].toInt();
        EXPECT_EQ(parts[1].toInt(), next[t]) << "thread " << t;
        next[t] = parts[1].toInt() + 1;
        EXPECT_EQ(entry.code, t + 1);
    }
}

TEST_F(LogControllerTest, HandlerReceivesLinesAndMissingHandlerDropsThem)
{
    LogController log;
    QList<QString> seen;
    log.setLogHandler([&](MCPLogMessageType level, int code, const QString &message) {
        EXPECT_TRUE(QThread::currentThread() == qApp->thread());
        seen.append(QStringLiteral("%1/%2/%3").arg(int(level)).arg(code).arg(message));
    });
    log.log(QStringLiteral("on main"), 5, MCPLogMessageType::Warning);
    EXPECT_EQ(seen, QList<QString>{QStringLiteral("2/5/on main")});  // direct on the main thread
    std::thread([&] { log.log(QStringLiteral("from worker"), -1, MCPLogMessageType::Error); }).join();
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen.last(), QStringLiteral("1/-1/from worker"));

    log.setLogHandler(nullptr);
    log.log(QStringLiteral("lost"), 0, MCPLogMessageType::Info);
    TestSupport::spin(20);
    EXPECT_EQ(seen.size(), 2);
    EXPECT_TRUE(log.logEntries().isEmpty());
}

TEST_F(LogControllerTest, EntriesComeAsALaterStepAndThe1001stRemovesTheFirst)
{
    LogController log;
    for (int i = 1; i <= 1001; ++i)
        log.log(QStringLiteral("line %1").arg(i), 0, MCPLogMessageType::Info);
    EXPECT_TRUE(log.logEntries().isEmpty());  // queued, not immediate
    ASSERT_TRUE(waitUntil(
        [&] { return !log.logEntries().isEmpty() && log.logEntries().last().message == QStringLiteral("line 1001"); }));
    EXPECT_EQ(log.logEntries().size(), 1000);
    EXPECT_EQ(log.logEntries().first().message, QStringLiteral("line 2"));
    EXPECT_FALSE(log.logEntries().first().id.isNull());
    logNow(log, QStringLiteral("line 1002"), 0, MCPLogMessageType::Info);
    EXPECT_EQ(log.logEntries().size(), 1000);
    EXPECT_EQ(log.logEntries().first().message, QStringLiteral("line 3"));
}








TEST(LogControllerShared, FirstUseFromAWorkerThreadLivesOnTheMainThread)
{
    LogController *fromWorker = nullptr;
    std::thread([&] { fromWorker = LogController::shared(); }).join();
    ASSERT_NE(fromWorker, nullptr);
    EXPECT_EQ(fromWorker, LogController::shared());
    EXPECT_EQ(fromWorker->thread(), qApp->thread());
    const auto before = fromWorker->logEntries().size();
    std::thread([&] { fromWorker->log(QStringLiteral("shared line"), 0, MCPLogMessageType::Info); }).join();
    ASSERT_TRUE(waitUntil([&] { return fromWorker->logEntries().size() == before + 1; }));
    EXPECT_EQ(fromWorker->logEntries().last().message, QStringLiteral("shared line"));
}

TEST_F(LogControllerTest, LongTextsAreShortenedOldestFirstOnceTheByteBudgetIsReached)
{
    LogController log;
    log.setTextBudget(400'000);
    const QString body(100'000, QLatin1Char('b'));  // 200 KB each as the budget counts
    logNow(log, QStringLiteral("short line"), 0, MCPLogMessageType::Info);
    logNow(log, body, 0, MCPLogMessageType::Debug);
    EXPECT_EQ(log.logEntries().at(1).message, body);  // within the budget: as logged
    logNow(log, body + QLatin1Char('!'), 0, MCPLogMessageType::Debug);
    logNow(log, QStringLiteral("last"), 0, MCPLogMessageType::Info);

    const QList<LogEntry> entries = log.logEntries();
    ASSERT_EQ(entries.size(), 4);  // nothing dropped: shortening was enough
    EXPECT_EQ(entries.at(0).message, "short line");
    EXPECT_EQ(entries.at(1).message, LogController::keptForBudget(body));
    EXPECT_TRUE(entries.at(1).message.contains(QStringLiteral(" … [100000 characters in all, the middle not kept] … ")));
    EXPECT_EQ(entries.at(1).type, MCPLogMessageType::Debug);
    EXPECT_EQ(entries.at(2).message.size(), 100'001);  // the newest long one fits again
    EXPECT_LE(log.textBytes(), 400'000);

    // Shortening alone not enough: whole entries go, oldest first.
    log.setTextBudget(10'000);
    EXPECT_LE(log.textBytes(), 10'000);
    EXPECT_EQ(log.logEntries().last().message, "last");
}

TEST(LogControllerShared, UnderLoadTheOldestWaitingLinesAreDroppedAndCounted)
{
    LogController *log = LogController::shared();
    MainThreadQueue &queue = MainThreadQueue::logLines();
    queue.setCapacity(100, 1u << 20);
    log->clear();
    ASSERT_TRUE(waitUntil([&] { return log->logEntries().isEmpty(); }));
    // 250 lines from a worker while the main thread is busy elsewhere: 150 never reach it.
    std::thread([&] {
        for (int i = 0; i < 250; ++i)
            log->log(QStringLiteral("line %1").arg(i), 0, MCPLogMessageType::Info);
    }).join();
    ASSERT_TRUE(waitUntil([&] { return log->logEntries().size() == 101; }));
    const QList<LogEntry> entries = log->logEntries();
    EXPECT_EQ(entries.first().message, "… 150 log lines dropped under load");
    EXPECT_EQ(entries.first().type, MCPLogMessageType::Warning);
    EXPECT_EQ(entries.at(1).message, "line 150");
    EXPECT_EQ(entries.last().message, "line 249");

    // The byte budget counts too: two long lines do not fit in 100 KiB, the newest stays.
    queue.setCapacity(100, 100u << 10);
    std::thread([&] {
        for (int i = 0; i < 3; ++i)
            log->log(QStringLiteral("long %1 ").arg(i) + QString(30000, QLatin1Char('x')), 0, MCPLogMessageType::Info);
    }).join();
    ASSERT_TRUE(waitUntil([&] { return log->logEntries().last().message.startsWith("long 2"); }));
    EXPECT_EQ(log->logEntries().at(log->logEntries().size() - 2).message, "… 2 log lines dropped under load");

    // Below the minimum level nothing is queued at all.
    queue.setCapacity(10000, 16u << 20);
    log->setMinimumLevel(MCPLogMessageType::Info);
    std::thread([&] { log->log(QStringLiteral("hidden"), 0, MCPLogMessageType::Debug); }).join();
    EXPECT_EQ(queue.pendingCount(), 0u);
    log->setMinimumLevel(MCPLogMessageType::Debug);
}

// The queue records how long its lines waited for a busy main thread, and forgets it on reset.
TEST(LogControllerShared, TheLongestWaitForTheMainThreadIsRecorded)
{
    LogController *log = LogController::shared();
    MainThreadQueue &queue = MainThreadQueue::logLines();
    log->log(QStringLiteral("before"), 0, MCPLogMessageType::Info);
    ASSERT_TRUE(waitUntil([&] { return queue.pendingCount() == 0; }));
    queue.resetLongestWait();
    EXPECT_EQ(queue.longestWait().count(), 0);
    std::thread([&] { log->log(QStringLiteral("while busy"), 0, MCPLogMessageType::Info); }).join();
    QThread::msleep(60);  // the main thread is busy here
    ASSERT_TRUE(waitUntil([&] {
        const QList<LogEntry> entries = log->logEntries();
        return !entries.isEmpty() && entries.last().message == QStringLiteral("while busy");
    }));
    EXPECT_GE(queue.longestWait(), std::chrono::milliseconds(60));
    queue.resetLongestWait();
    EXPECT_EQ(queue.longestWait().count(), 0);
}

}  // namespace
