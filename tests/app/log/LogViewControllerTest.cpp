#include "app/log/LogViewController.h"

#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>

using TestSupport::waitUntil;

namespace {

// A fresh log and its view state per test.
class LogViewControllerTest : public ::testing::Test {
protected:
    void SetUp() override { UserDefaults::standard()->remove(LogViewController::searchTextDefaultsKey); }

    // Logs and waits until the line has become an entry.
    void logNow(LogController &log, const QString &message, int code, MCPLogMessageType level)
    {
        log.log(message, code, level);
        ASSERT_TRUE(
            waitUntil([&] { return !log.logEntries().isEmpty() && log.logEntries().last().message == message; }));
    }

    // Sets the search text and waits for the debounced filter.
    QList<LogEntry> search(LogViewController &view, const QString &text)
    {
        view.setSearchText(text);
        int passes = 0;
        auto connection = QObject::connect(&view, &LogViewController::filteredEntriesChanged, [&] { ++passes; });
        EXPECT_TRUE(waitUntil([&] { return passes > 0; }));
        QObject::disconnect(connection);
        return view.filteredEntries();
    }
};

}  // namespace

TEST_F(LogViewControllerTest, FilterByCodeLabelAndTextOnTheDisplayedText)
{
    LogController log;
    LogViewController view(&log);
    logNow(log, QStringLiteral("Route failed"), 3001, MCPLogMessageType::Error);
    logNow(log, QStringLiteral("Engine down"), 0, MCPLogMessageType::Critical);
    logNow(log, QStringLiteral("Listening on 3001"), -1, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("Request\n{}"), 1002, MCPLogMessageType::Debug);
    const QString hidden = QString(1100, QLatin1Char('a')) + QStringLiteral("NEEDLE") + QString(1100, QLatin1Char('b'));
    logNow(log, hidden, 0, MCPLogMessageType::Warning);

    // Everything passes an empty search, once the debounce has run.
    ASSERT_TRUE(waitUntil([&] { return view.filteredEntries().size() == 5; }));
    EXPECT_TRUE(view.hasMultiLine());

    auto messages = [](const QList<LogEntry> &entries) {
        QStringList out;
        for (const LogEntry &e : entries)
            out.append(e.message.left(20));
        return out;
    };
    // By code even though the message lacks it, and by text in another line.
    EXPECT_EQ(messages(search(view, QStringLiteral("3001"))),
              (QStringList{QStringLiteral("Route failed"), QStringLiteral("Listening on 3001")}));
    EXPECT_FALSE(view.hasMultiLine());
    // Errors and critical lines share their label.
    EXPECT_EQ(messages(search(view, QStringLiteral("[E]"))),
              (QStringList{QStringLiteral("Route failed"), QStringLiteral("Engine down")}));
    // Case-insensitive.
    EXPECT_EQ(messages(search(view, QStringLiteral("eNGINE"))), QStringList{QStringLiteral("Engine down")});
    // A word only in the shortened-away middle finds nothing.
    EXPECT_TRUE(search(view, QStringLiteral("NEEDLE")).isEmpty());
    // A code of -1 or 0 is never matched as a number.
    EXPECT_TRUE(search(view, QStringLiteral("-1")).isEmpty());
    EXPECT_EQ(messages(search(view, QStringLiteral("1002"))), QStringList{QStringLiteral("Request\n{}")});
    EXPECT_TRUE(view.hasMultiLine());
}

TEST_F(LogViewControllerTest, FilterIsDebouncedIntoOnePass)
{
    LogController log;
    LogViewController view(&log);
    TestSupport::spin(80);  // let the initial pass run
    int passes = 0;
    QObject::connect(&view, &LogViewController::filteredEntriesChanged, [&] { ++passes; });
    for (int i = 0; i < 50; ++i)
        log.log(QStringLiteral("burst %1").arg(i), 0, MCPLogMessageType::Info);
    ASSERT_TRUE(waitUntil([&] { return view.filteredEntries().size() == 50; }));
    TestSupport::spin(80);
    EXPECT_EQ(passes, 1);
}

TEST_F(LogViewControllerTest, ClearEmptiesLogAndStoresEmptySearchText)
{
    UserDefaults::standard()->setValue(LogViewController::searchTextDefaultsKey, QStringLiteral("route"));
    LogController log;
    LogViewController view(&log);
    ASSERT_TRUE(waitUntil([&] { return view.searchText() == QStringLiteral("route"); }));
    logNow(log, QStringLiteral("something"), 0, MCPLogMessageType::Info);

    log.clear();
    EXPECT_TRUE(log.logEntries().isEmpty());
    EXPECT_EQ(view.searchText(), QString());
    ASSERT_TRUE(waitUntil(
        [] { return UserDefaults::standard()->value(LogViewController::searchTextDefaultsKey) == QVariant(QString()); }));
    ASSERT_TRUE(waitUntil([&] { return view.filteredEntries().isEmpty(); }));
}

// Expanding all and collapsing all are checked through the log pane.
TEST_F(LogViewControllerTest, ToggleAndExpandSomeRows)
{
    LogController log;
    LogViewController view(&log);
    for (const char *line : {"a", "b", "c"})
        logNow(log, QString::fromLatin1(line), 0, MCPLogMessageType::Info);
    auto expanded = [&] {
        QList<bool> flags;
        for (const LogEntry &entry : log.logEntries())
            flags.append(view.isExpanded(entry.id));
        return flags;
    };
    const QList<LogEntry> entries = log.logEntries();
    view.toggleExpanded(entries[1].id);
    EXPECT_EQ(expanded(), (QList<bool>{false, true, false}));
    EXPECT_TRUE(view.anyExpanded());
    view.toggleExpanded(entries[1].id);
    EXPECT_FALSE(view.anyExpanded());
    view.setExpanded({entries[0].id, entries[2].id}, true);
    EXPECT_EQ(expanded(), (QList<bool>{true, false, true}));
}

TEST_F(LogViewControllerTest, ExportsWholeMessages)
{
    LogController log;
    LogViewController view(&log);
    const QString longMessage = QStringLiteral("start\n") + QString(3000, QLatin1Char('x')) + QStringLiteral("\nend");
    logNow(log, longMessage, 3001, MCPLogMessageType::Error);
    logNow(log, QStringLiteral("plain"), 0, MCPLogMessageType::Info);
    logNow(log, QStringLiteral("app line"), -1, MCPLogMessageType::Warning);

    const QList<LogEntry> entries = log.logEntries();
    const QString expected = entries[0].formattedTimestamp + QStringLiteral(" [E] [3001] ") + longMessage +
                             QLatin1Char('\n') + entries[1].formattedTimestamp + QStringLiteral(" [I] plain\n") +
                             entries[2].formattedTimestamp + QStringLiteral(" [W] app line");
    EXPECT_EQ(view.exportText(), expected);

    // Writing the whole log, and its failure alert, are checked through the log pane.
    const QString entryPath = TestSupport::makeTempDir(QStringLiteral("export")) + QStringLiteral("/entry.txt");
    ASSERT_TRUE(view.exportEntryToFile(entries[0].id, entryPath));
    QFile entryFile(entryPath);
    ASSERT_TRUE(entryFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(entryFile.readAll()), longMessage);
}

TEST(LogViewControllerFileNames, DateForms)
{
    const QDateTime when(QDate(2025, 1, 2), QTime(3, 4, 5));
    EXPECT_EQ(LogViewController::exportFileName(when), QStringLiteral("mcp_server_logs_2025-01-02_030405.txt"));
    EXPECT_EQ(LogViewController::entryExportFileName(when), QStringLiteral("log_entry_2025-01-02_030405.txt"));
}

// Each log has one view state that all its panes share. Rows that leave the log leave the
// expanded set with them, so "Collapse All" is not offered for rows nobody can see.
TEST_F(LogViewControllerTest, OneViewStatePerLogAndExpandedRowsLeaveWithTheirEntries)
{
    LogController log;
    LogViewController *view = LogViewController::of(&log);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(LogViewController::of(&log), view);
    LogController other;
    EXPECT_NE(LogViewController::of(&other), view);
    EXPECT_EQ(LogViewController::of(nullptr), nullptr);

    logNow(log, QStringLiteral("first"), 0, MCPLogMessageType::Info);
    const QUuid first = log.logEntries().first().id;
    view->toggleExpanded(first);
    EXPECT_TRUE(view->isExpanded(first));
    for (int i = 0; i < LogController::maxLogEntries; ++i)
        log.log(QStringLiteral("line %1").arg(i), 0, MCPLogMessageType::Info);
    ASSERT_TRUE(waitUntil([&] { return !log.entry(first).has_value(); }));
    EXPECT_FALSE(view->isExpanded(first));
    EXPECT_FALSE(view->anyExpanded());

    // Only rows the log holds can be expanded.
    view->toggleExpanded(first);
    view->setExpanded({QUuid::createUuid()}, true);
    EXPECT_FALSE(view->anyExpanded());
    const QUuid last = log.logEntries().last().id;
    view->setExpanded({last}, true);
    log.clear();
    EXPECT_FALSE(view->anyExpanded());
}
