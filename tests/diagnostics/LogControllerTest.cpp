#include "diagnostics/LogController.h"

#include "base/UserDefaults.h"
#include "engine/bridge/MainThreadQueue.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QThread>

#include <thread>
#include <vector>

using TestSupport::waitUntil;

namespace {

// A fresh controller per test; the shared one is covered on its own.
class LogControllerTest : public ::testing::Test {
protected:
    void SetUp() override { UserDefaults::standard()->remove(LogController::searchTextDefaultsKey); }

    // Logs and waits until the line has become an entry.
    void logNow(LogController &log, const QString &message, int code, MCPLogMessageType level)
    {
        log.log(message, code, level);
        ASSERT_TRUE(
            waitUntil([&] { return !log.logEntries().isEmpty() && log.logEntries().last().message == message; }));
    }

    // Sets the search text and waits for the debounced filter.
    QList<LogEntry> search(LogController &log, const QString &text)
    {
        log.setSearchText(text);
        int passes = 0;
        auto connection = QObject::connect(&log, &LogController::filteredEntriesChanged, [&] { ++passes; });
        EXPECT_TRUE(waitUntil([&] { return passes > 0; }));
        QObject::disconnect(connection);
        return log.filteredEntries();
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

TEST_F(LogControllerTest, FilterByCodeLabelAndTextOnTheDisplayedText)
{
    LogController log;
    logNow(log, QStringLiteral("Route failed"), 3001, MCPLogMessageType::Error);
    logNow(log, QStringLiteral("Engine down"), 0, MCPLogMessageType::Critical);
    logNow(log, QStringLiteral("Listening on 3001"), -1, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("Request\n{}"), 1002, MCPLogMessageType::Debug);
    const QString hidden = QString(1100, QLatin1Char('a')) + QStringLiteral("NEEDLE") + QString(1100, QLatin1Char('b'));
    logNow(log, hidden, 0, MCPLogMessageType::Warning);

    // Everything passes an empty search, once the debounce has run.
    ASSERT_TRUE(waitUntil([&] { return log.filteredEntries().size() == 5; }));
    EXPECT_TRUE(log.hasMultiLine());

    auto messages = [](const QList<LogEntry> &entries) {
        QStringList out;
        for (const LogEntry &e : entries)
            out.append(e.message.left(20));
        return out;
    };
    // By code even though the message lacks it, and by text in another line.
    EXPECT_EQ(messages(search(log, QStringLiteral("3001"))),
              (QStringList{QStringLiteral("Route failed"), QStringLiteral("Listening on 3001")}));
    EXPECT_FALSE(log.hasMultiLine());
    // Errors and critical lines share their label.
    EXPECT_EQ(messages(search(log, QStringLiteral("[E]"))),
              (QStringList{QStringLiteral("Route failed"), QStringLiteral("Engine down")}));
    // Case-insensitive.
    EXPECT_EQ(messages(search(log, QStringLiteral("eNGINE"))), QStringList{QStringLiteral("Engine down")});
    // A word only in the shortened-away middle finds nothing.
    EXPECT_TRUE(search(log, QStringLiteral("NEEDLE")).isEmpty());
    // A code of -1 or 0 is never matched as a number.
    EXPECT_TRUE(search(log, QStringLiteral("-1")).isEmpty());
    EXPECT_EQ(messages(search(log, QStringLiteral("1002"))), QStringList{QStringLiteral("Request\n{}")});
    EXPECT_TRUE(log.hasMultiLine());
}

TEST_F(LogControllerTest, FilterIsDebouncedIntoOnePass)
{
    LogController log;
    TestSupport::spin(80);  // let the initial pass run
    int passes = 0;
    QObject::connect(&log, &LogController::filteredEntriesChanged, [&] { ++passes; });
    for (int i = 0; i < 50; ++i)
        log.log(QStringLiteral("burst %1").arg(i), 0, MCPLogMessageType::Info);
    ASSERT_TRUE(waitUntil([&] { return log.filteredEntries().size() == 50; }));
    TestSupport::spin(80);
    EXPECT_EQ(passes, 1);
}

TEST_F(LogControllerTest, ToolErrorLogsAndOverridesExtras)
{
    LogController log;
    const QVariantMap extra{{"success", true}, {"error_code", 1}, {"file_path", "/tmp/x"}};
    const JSONToolResult result = log.toolError(QStringLiteral("No such file"), 2001, MCPLogMessageType::Error, extra);
    EXPECT_EQ(QJsonDocument(result.toJsonObject()).toJson(QJsonDocument::Compact),
              R"({"content":[{"text":"Error 2001 No such file","type":"text"}],"structuredContent":{"error":"Error 2001 No such file",)"
              R"("error_code":2001,"error_message":"No such file","file_path":"/tmp/x","success":false}})");
    ASSERT_TRUE(waitUntil([&] { return log.logEntries().size() == 1; }));
    EXPECT_EQ(log.logEntries().first().code, 2001);
    EXPECT_EQ(log.logEntries().first().type, MCPLogMessageType::Error);
}

TEST_F(LogControllerTest, ClearEmptiesLogAndStoresEmptySearchText)
{
    UserDefaults::standard()->setValue(LogController::searchTextDefaultsKey, QStringLiteral("route"));
    LogController log;
    ASSERT_TRUE(waitUntil([&] { return log.searchText() == QStringLiteral("route"); }));
    logNow(log, QStringLiteral("something"), 0, MCPLogMessageType::Info);

    log.clear();
    EXPECT_TRUE(log.logEntries().isEmpty());
    EXPECT_EQ(log.searchText(), QString());
    ASSERT_TRUE(waitUntil(
        [] { return UserDefaults::standard()->value(LogController::searchTextDefaultsKey) == QVariant(QString()); }));
    ASSERT_TRUE(waitUntil([&] { return log.filteredEntries().isEmpty(); }));
}

// Expanding all and collapsing all are checked through the log pane.
TEST_F(LogControllerTest, ToggleAndExpandSomeRows)
{
    LogController log;
    for (const char *line : {"a", "b", "c"})
        logNow(log, QString::fromLatin1(line), 0, MCPLogMessageType::Info);
    auto expanded = [&] {
        QList<bool> flags;
        for (const LogEntry &entry : log.logEntries())
            flags.append(entry.isExpanded);
        return flags;
    };
    const QList<LogEntry> entries = log.logEntries();
    log.toggleExpanded(entries[1].id);
    EXPECT_EQ(expanded(), (QList<bool>{false, true, false}));
    EXPECT_TRUE(log.anyExpanded());
    log.toggleExpanded(entries[1].id);
    EXPECT_FALSE(log.anyExpanded());
    log.setExpanded({entries[0].id, entries[2].id}, true);
    EXPECT_EQ(expanded(), (QList<bool>{true, false, true}));
}

TEST_F(LogControllerTest, ExportsWholeMessages)
{
    LogController log;
    const QString longMessage = QStringLiteral("start\n") + QString(3000, QLatin1Char('x')) + QStringLiteral("\nend");
    logNow(log, longMessage, 3001, MCPLogMessageType::Error);
    logNow(log, QStringLiteral("plain"), 0, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("app line"), -1, MCPLogMessageType::Warning);

    const QList<LogEntry> entries = log.logEntries();
    const QString expected = entries[0].formattedTimestamp + QStringLiteral(" [E] [3001] ") + longMessage +
                             QLatin1Char('\n') + entries[1].formattedTimestamp + QStringLiteral(" [I] plain\n") +
                             entries[2].formattedTimestamp + QStringLiteral(" [W] app line");
    EXPECT_EQ(log.exportText(), expected);

    // Writing the whole log, and its failure alert, are checked through the log pane.
    const QString entryPath = TestSupport::makeTempDir(QStringLiteral("export")) + QStringLiteral("/entry.txt");
    ASSERT_TRUE(log.exportEntryToFile(entries[0].id, entryPath));
    QFile entryFile(entryPath);
    ASSERT_TRUE(entryFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(entryFile.readAll()), longMessage);
}

TEST(LogControllerFileNames, DateForms)
{
    const QDateTime when(QDate(2025, 1, 2), QTime(3, 4, 5));
    EXPECT_EQ(LogController::exportFileName(when), QStringLiteral("mcp_server_logs_2025-01-02_030405.txt"));
    EXPECT_EQ(LogController::entryExportFileName(when), QStringLiteral("log_entry_2025-01-02_030405.txt"));
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
