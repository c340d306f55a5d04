#include "diagnostics/LogController.h"

#include "app/UserDefaults.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
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

TEST_F(LogControllerTest, EntriesAreMadeOnTheMainThreadAsALaterStep)
{
    LogController log;
    log.log(QStringLiteral("first"), 0, MCPLogMessageType::Info);
    EXPECT_TRUE(log.logEntries().isEmpty());  // queued, not immediate
    ASSERT_TRUE(waitUntil([&] { return log.logEntries().size() == 1; }));
    const LogEntry entry = log.logEntries().first();
    EXPECT_EQ(entry.message, QStringLiteral("first"));
    EXPECT_EQ(entry.type, MCPLogMessageType::Info);
    EXPECT_FALSE(entry.id.isNull());
    EXPECT_FALSE(entry.isExpanded);
    EXPECT_EQ(entry.formattedTimestamp, entry.timestamp.toString(QStringLiteral("HH:mm:ss.zzz")));
}

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

TEST_F(LogControllerTest, The1001stEntryRemovesTheFirst)
{
    LogController log;
    for (int i = 1; i <= 1001; ++i)
        log.log(QStringLiteral("line %1").arg(i), 0, MCPLogMessageType::Info);
    ASSERT_TRUE(waitUntil(
        [&] { return !log.logEntries().isEmpty() && log.logEntries().last().message == QStringLiteral("line 1001"); }));
    EXPECT_EQ(log.logEntries().size(), 1000);
    EXPECT_EQ(log.logEntries().first().message, QStringLiteral("line 2"));
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
    const QVariantMap extra{{QStringLiteral("success"), true},
                            {QStringLiteral("error_code"), 1},
                            {QStringLiteral("file_path"), QStringLiteral("/tmp/x")}};
    const JSONToolResult result = log.toolError(QStringLiteral("No such file"), 2001, MCPLogMessageType::Error, extra);
    ASSERT_EQ(result.content.size(), 1);
    EXPECT_EQ(result.content.first().text, QStringLiteral("Error 2001 No such file"));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("success")).toJson(), QJsonValue(false));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("error_message")).toJson(),
              QJsonValue(QStringLiteral("No such file")));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("error_code")).toJson(), QJsonValue(2001));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("file_path")).toJson(),
              QJsonValue(QStringLiteral("/tmp/x")));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("error")).toJson(),
              QJsonValue(QStringLiteral("Error 2001 No such file")));

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

TEST_F(LogControllerTest, ExpansionFlags)
{
    LogController log;
    logNow(log, QStringLiteral("a"), 0, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("b"), 0, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("c"), 0, MCPLogMessageType::Info);
    const QUuid a = log.logEntries()[0].id, b = log.logEntries()[1].id, c = log.logEntries()[2].id;
    EXPECT_FALSE(log.anyExpanded());
    log.toggleExpanded(b);
    EXPECT_TRUE(log.logEntries()[1].isExpanded);
    EXPECT_TRUE(log.anyExpanded());
    log.toggleExpanded(b);
    EXPECT_FALSE(log.anyExpanded());
    log.setExpanded({a, c}, true);
    EXPECT_TRUE(log.logEntries()[0].isExpanded);
    EXPECT_FALSE(log.logEntries()[1].isExpanded);
    EXPECT_TRUE(log.logEntries()[2].isExpanded);
    log.collapseAll();
    EXPECT_FALSE(log.anyExpanded());
}

TEST_F(LogControllerTest, ExportWritesWholeMessagesAndReportsFailures)
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

    const QString dir = TestSupport::makeTempDir(QStringLiteral("export"));
    const QString path = dir + QLatin1Char('/') + LogController::exportFileName();
    ASSERT_TRUE(log.exportToFile(path));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(file.readAll()), expected);

    EXPECT_FALSE(log.exportToFile(dir + QStringLiteral("/missing/folder/log.txt")));
    ASSERT_TRUE(waitUntil([&] { return log.shouldShowAlert(); }));
    EXPECT_EQ(log.alertTitle(), QStringLiteral("Error"));
    EXPECT_FALSE(log.alertMessage().isEmpty());

    const QString entryPath = dir + QLatin1Char('/') + LogController::entryExportFileName();
    ASSERT_TRUE(log.exportEntryToFile(entries[0].id, entryPath));
    QFile entryFile(entryPath);
    ASSERT_TRUE(entryFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(entryFile.readAll()), longMessage);
}

TEST_F(LogControllerTest, CopyOfSelectedRowsFollowsListOrder)
{
    LogController log;
    logNow(log, QStringLiteral("one"), 0, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("two"), 0, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("three"), 0, MCPLogMessageType::Info);
    ASSERT_TRUE(waitUntil([&] { return log.filteredEntries().size() == 3; }));
    const QList<LogEntry> entries = log.logEntries();
    EXPECT_EQ(log.exportText({entries[2].id, entries[0].id}),
              entries[0].exportLine() + QLatin1Char('\n') + entries[2].exportLine());
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

}  // namespace
