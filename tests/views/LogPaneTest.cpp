#include "app/log/LogViewController.h"
#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/log/LogEntryDelegate.h"
#include "views/log/LogEntryWindow.h"
#include "views/log/LogListModel.h"
#include "views/log/LogPaneView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QLineEdit>
#include <QListView>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QToolButton>

using namespace ViewsTestSupport;
using namespace Qt::StringLiterals;

namespace {

class LogPaneTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        pane = new LogPaneView(&log);
        pane->resize(700, 300);
        pane->show();
    }
    void TearDown() override
    {
        delete pane;
        closeAllWindows();
    }
    void addLines()
    {
        log.log(u"listening on 127.0.0.1:8888"_s, 1001, MCPLogMessageType::Info);
        log.log(u"tools/call failed"_s, 3001, MCPLogMessageType::Error);
        log.log(u"request body\n{\"id\": 1}"_s, 0, MCPLogMessageType::Debug);
        log.log(u"disk almost full"_s, -1, MCPLogMessageType::Critical);
        ASSERT_TRUE(TestSupport::waitUntil([&] { return pane->model()->rowCount() == 4; }));
    }
    int rows() const { return pane->model()->rowCount(); }
    LogViewController *view() const { return pane->viewController(); }

    LogController log;
    LogPaneView *pane = nullptr;
};

// What the filter matches is the controller's; the pane binds the field and the model to it.
TEST_F(LogPaneTest, SearchFieldFiltersTheRowsAndClearEmptiesIt)
{
    addLines();
    EXPECT_EQ(pane->model()->data(pane->model()->index(1), LogListModel::LabelRole).toString(), "[E]");
    EXPECT_EQ(pane->model()->data(pane->model()->index(1), LogListModel::CodeRole).toInt(), 3001);

    pane->searchField()->setText(u"3001"_s);  // only in the code
    EXPECT_EQ(view()->searchText(), "3001");
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 1; }));
    EXPECT_EQ(pane->model()->entryAt(0).code, 3001);

    // Clearing the log empties the search field too.
    pane->findChild<QToolButton *>(u"clearLogButton"_s)->click();
    EXPECT_TRUE(pane->searchField()->text().isEmpty());
    EXPECT_TRUE(log.logEntries().isEmpty());
    log.log(u"after"_s, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 1; }));
}

TEST_F(LogPaneTest, NewLinesArriveAsInsertsSoTheSelectionStays)
{
    addLines();
    pane->listView()->selectionModel()->select(pane->model()->index(1), QItemSelectionModel::Select);
    const QUuid selected = pane->model()->entryAt(1).id;
    log.log(u"one more"_s, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 5; }));
    EXPECT_EQ(pane->selectedLogIDs(), QSet<QUuid>{selected});
}

TEST_F(LogPaneTest, CopySelectAllAndExpansion)
{
    addLines();
    pane->selectAllRows();
    EXPECT_EQ(pane->selectedLogIDs().size(), 4);
    pane->listView()->clearSelection();
    pane->listView()->selectionModel()->select(pane->model()->index(3), QItemSelectionModel::Select);
    pane->listView()->selectionModel()->select(pane->model()->index(1), QItemSelectionModel::Select);
    pane->copySelection();
    const QStringList copied = QApplication::clipboard()->text().split(QLatin1Char('\n'));
    ASSERT_EQ(copied.size(), 2);  // in list order, whatever the order of selecting
    EXPECT_TRUE(copied.at(0).endsWith(u" [E] [3001] tools/call failed"_s));
    EXPECT_TRUE(copied.at(1).endsWith(u" [E] disk almost full"_s));

    const int collapsedHeight = pane->listView()->visualRect(pane->model()->index(2)).height();
    pane->expandAll();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return pane->model()->data(pane->model()->index(2), LogListModel::ExpandedRole).toBool(); }));
    EXPECT_TRUE(view()->anyExpanded());
    // The two-line message now takes two lines.
    ASSERT_TRUE(TestSupport::waitUntil([&] { return pane->listView()->visualRect(pane->model()->index(2)).height() > collapsedHeight; }));
    pane->collapseAll();
    EXPECT_FALSE(view()->anyExpanded());
}

TEST_F(LogPaneTest, AutoScrollToggleNamesTheChangeItMakes)
{
    EXPECT_EQ(pane->autoScrollText(), "Disable Auto-scroll");
    EXPECT_EQ(pane->autoScrollButton()->toolTip(), "Disable Auto-scroll");
    pane->autoScrollButton()->click();
    EXPECT_FALSE(view()->autoScrollEnabled());
    EXPECT_EQ(pane->autoScrollButton()->toolTip(), "Enable Auto-scroll");

    // Following: many lines bring the newest to the bottom; not while searching or disabled.
    pane->autoScrollButton()->click();
    for (int i = 0; i < 200; ++i)
        log.log(u"line %1"_s.arg(i), 0, MCPLogMessageType::Info);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 200; }));
    QScrollBar *bar = pane->listView()->verticalScrollBar();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bar->maximum() > 0 && bar->value() == bar->maximum(); }));
    pane->autoScrollButton()->click();
    bar->setValue(0);
    log.log(u"quiet"_s, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 201; }));
    TestSupport::spin(30);
    EXPECT_EQ(bar->value(), 0);
}

TEST_F(LogPaneTest, ExportWritesTheWholeLogUnderTheSuggestedName)
{
    addLines();
    FakeFileDialogs dialogs;
    dialogs.answer = TestSupport::makeTempDir() + u"/export.txt"_s;
    pane->findChild<QToolButton *>(u"exportLogButton"_s)->click();
    ASSERT_EQ(dialogs.saveRequests.size(), 1);
    EXPECT_TRUE(dialogs.saveRequests.first().suggestedName.startsWith(u"mcp_server_logs_"_s));
    EXPECT_TRUE(dialogs.saveRequests.first().suggestedName.endsWith(u".txt"_s));
    QFile file(dialogs.answer);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(file.readAll()), view()->exportText());

    // A place that cannot be written gives the alert with the reason.
    dialogs.answer = u"/nonexistent-folder/x.txt"_s;
    pane->exportLog();
    ASSERT_TRUE(TestSupport::waitUntil([] { return openMessageBox() != nullptr; }));
    EXPECT_EQ(openMessageBox()->windowTitle(), "Error");
    openMessageBox()->accept();
    EXPECT_TRUE(TestSupport::waitUntil([&] { return !view()->shouldShowAlert(); }));

    // Cancelling writes nothing.
    dialogs.answer.clear();
    pane->exportLog();
    EXPECT_EQ(dialogs.saveRequests.size(), 3);
}

TEST_F(LogPaneTest, LogEntryWindowSearchesTheWholeMessage)
{
    log.log(u"alpha beta ALPHA gamma alpha"_s, 7, MCPLogMessageType::Warning);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 1; }));
    pane->showDetails(pane->model()->entryAt(0).id);
    LogEntryWindow *window = pane->detailWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->windowTitle(), "Log Entry");
    EXPECT_EQ(window->textView()->toPlainText(), "alpha beta ALPHA gamma alpha");
    EXPECT_TRUE(window->matchCountText().isEmpty());

    window->searchField()->setText(u"alpha"_s);
    EXPECT_EQ(window->matchCountText(), "1 of 3");
    window->findNext();
    EXPECT_EQ(window->matchCountText(), "2 of 3");
    window->findNext();
    window->findNext();
    EXPECT_EQ(window->matchCountText(), "1 of 3");  // wraps around
    window->findPrevious();
    EXPECT_EQ(window->matchCountText(), "3 of 3");
    EXPECT_EQ(window->textView()->textCursor().selectionStart(), 23);
    window->searchField()->setText(u"delta"_s);
    EXPECT_EQ(window->matchCountText(), "0 of 0");

    window->copyMessage();
    EXPECT_EQ(QApplication::clipboard()->text(), "alpha beta ALPHA gamma alpha");
    FakeFileDialogs dialogs;
    dialogs.answer = TestSupport::makeTempDir() + u"/entry.txt"_s;
    window->saveMessage();
    ASSERT_EQ(dialogs.saveRequests.size(), 1);
    EXPECT_TRUE(dialogs.saveRequests.first().suggestedName.startsWith(u"log_entry_"_s));
    QFile file(dialogs.answer);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "alpha beta ALPHA gamma alpha");
}

}  // namespace

// A folded entry shows its first line that says something: not the "{" or "[" a
// pretty-printed result opens with.
TEST(LogEntrySummaryTest, AFoldedEntryShowsItsFirstMeaningfulLine)
{
    EXPECT_EQ(LogEntryDelegate::summaryLine(QStringLiteral("{\n  \"total\": 3,\n  \"items\": []\n}")), "\"total\": 3,");
    EXPECT_EQ(LogEntryDelegate::summaryLine(QStringLiteral("[\n  {\n    \"id\": 1\n  }\n]")), "\"id\": 1");
    // A first line with words stays as it is, indentation and all.
    EXPECT_EQ(LogEntryDelegate::summaryLine(QStringLiteral("  Script result:\n{\n  \"a\": 1\n}")), "  Script result:");
    EXPECT_EQ(LogEntryDelegate::summaryLine(QStringLiteral("plain")), "plain");
    // Brackets and nothing else: the first line, rather than nothing.
    EXPECT_EQ(LogEntryDelegate::summaryLine(QStringLiteral("{\n}")), "{");
    EXPECT_EQ(LogEntryDelegate::summaryLine(QString()), "");
}
