#include "chat/appearance/HistoryModel.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/chat/HistoryPanel.h"

#include <gtest/gtest.h>

#include <QAbstractItemModel>
#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>

namespace {

// The panel's confirmation or warning of that name, once it is on screen.
QMessageBox *box(HistoryPanel &panel, const QString &name)
{
    QApplication::processEvents();
    for (QMessageBox *candidate : panel.findChildren<QMessageBox *>(name))
        if (candidate->isVisible())
            return candidate;
    return nullptr;
}

QPushButton *boxButton(QMessageBox *box, const QString &text)
{
    for (QAbstractButton *button : box->buttons())
        if (button->text() == text)
            return qobject_cast<QPushButton *>(button);
    return nullptr;
}

class HistoryPanelTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        model.clear();
        panel.resize(300, 500);
        panel.show();
    }
    void TearDown() override { model.clear(); }

    HistoryModel model;
    HistoryPanel panel{&model};
};

} // namespace

// Search, the empty states, copy, delete, and what a row carries when dragged out.
TEST_F(HistoryPanelTest, RowsAreFoundCopiedDeletedAndDraggedAsText)
{
    EXPECT_TRUE(panel.list()->isHidden());
    EXPECT_EQ(panel.emptyLabel()->text(), "No history yet");
    EXPECT_FALSE(panel.button("clearHistory")->isEnabled());

    model.add("List the tools");
    model.add("Write a haiku\nabout rivers");
    model.add("list the TOOLS again");
    ASSERT_EQ(panel.list()->count(), 3);
    EXPECT_TRUE(panel.emptyLabel()->isHidden());
    // Newest first; a row shows one line but keeps the whole prompt.
    EXPECT_EQ(panel.prompt(0), "list the TOOLS again");
    EXPECT_EQ(panel.list()->item(1)->text(), "Write a haiku about rivers");
    EXPECT_EQ(panel.prompt(1), "Write a haiku\nabout rivers");

    panel.searchField()->setText("tools");
    ASSERT_EQ(panel.list()->count(), 2); // ignoring case
    EXPECT_EQ(panel.prompt(1), "List the tools");
    panel.searchField()->setText("nothing like it");
    EXPECT_TRUE(panel.list()->isHidden());
    EXPECT_EQ(panel.emptyLabel()->text(), "No results");
    panel.searchField()->clear();

    // Copy and delete act on the chosen row; with none chosen they are off.
    EXPECT_FALSE(panel.button("copyHistoryRow")->isEnabled());
    panel.list()->setCurrentRow(1);
    ASSERT_TRUE(panel.button("copyHistoryRow")->isEnabled());
    QApplication::clipboard()->clear();
    panel.button("copyHistoryRow")->click();
    EXPECT_EQ(QApplication::clipboard()->text(), "Write a haiku\nabout rivers");

    // Dragged out, a row is plain text: the whole prompt.
    QListWidget *list = panel.list();
    const QModelIndex index = list->model()->index(1, 0);
    std::unique_ptr<QMimeData> dragged(list->model()->mimeData({index}));
    ASSERT_TRUE(dragged);
    EXPECT_TRUE(dragged->hasText());
    EXPECT_EQ(dragged->text(), "Write a haiku\nabout rivers");
    EXPECT_TRUE(list->item(1)->flags() & Qt::ItemIsDragEnabled);

    panel.button("deleteHistoryRow")->click();
    ASSERT_EQ(model.items().size(), 2);
    EXPECT_EQ(model.items().at(0).prompt, "List the tools");
    EXPECT_EQ(model.items().at(1).prompt, "list the TOOLS again");
    EXPECT_EQ(panel.list()->count(), 2);

    // A double click hands the prompt to the input.
    QString chosen;
    QObject::connect(&panel, &HistoryPanel::promptChosen, [&](const QString &prompt) { chosen = prompt; });
    emit panel.list()->itemDoubleClicked(panel.list()->item(0));
    EXPECT_EQ(chosen, "list the TOOLS again");
}

// Save offers the dated name and writes the list; load replaces it; a bad file or place warns
// and leaves the list; clear asks first and only "Clear" empties.
TEST_F(HistoryPanelTest, SaveLoadAndClearTheWholeList)
{
    model.add("first");
    model.add("second");
    const QString dir = TestSupport::makeTempDir();
    ViewsTestSupport::FakeFileDialogs dialogs;
    dialogs.answer = dir + "/saved.json";
    panel.button("saveHistory")->click();
    ASSERT_EQ(dialogs.saveRequests.size(), 1);
    EXPECT_TRUE(dialogs.saveRequests.first().suggestedName.startsWith("history-"));
    EXPECT_TRUE(dialogs.saveRequests.first().suggestedName.endsWith(".json"));
    ASSERT_TRUE(QFile::exists(dir + "/saved.json"));

    model.add("third");
    ASSERT_TRUE(panel.loadFrom(dir + "/saved.json"));
    ASSERT_EQ(model.items().size(), 2);
    EXPECT_EQ(panel.prompt(0), "second");

    QFile junk(dir + "/junk.json");
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write("{\"not\": \"a list\"}");
    junk.close();
    EXPECT_FALSE(panel.loadFrom(dir + "/junk.json"));
    QMessageBox *warning = box(panel, "historyFailure");
    ASSERT_NE(warning, nullptr);
    EXPECT_TRUE(warning->text().contains("isn't a history list"));
    warning->close();
    EXPECT_FALSE(panel.loadFrom(dir + "/missing/nowhere.json"));
    warning = box(panel, "historyFailure");
    ASSERT_NE(warning, nullptr);
    EXPECT_EQ(warning->text(), "Failed to load history.");
    warning->close();
    EXPECT_FALSE(panel.saveTo(dir + "/missing/folder/out.json"));
    warning = box(panel, "historyFailure");
    ASSERT_NE(warning, nullptr);
    EXPECT_EQ(warning->text(), "Failed to save history.");
    warning->close();
    EXPECT_EQ(model.items().size(), 2);

    panel.button("clearHistory")->click();
    QMessageBox *confirm = box(panel, "confirmClearHistory");
    ASSERT_NE(confirm, nullptr);
    boxButton(confirm, "Cancel")->click();
    QApplication::processEvents();
    EXPECT_EQ(model.items().size(), 2);
    panel.button("clearHistory")->click();
    confirm = box(panel, "confirmClearHistory");
    ASSERT_NE(confirm, nullptr);
    boxButton(confirm, "Clear")->click();
    QApplication::processEvents();
    EXPECT_TRUE(model.items().isEmpty());
    EXPECT_EQ(panel.emptyLabel()->text(), "No history yet");
    EXPECT_FALSE(panel.button("clearHistory")->isEnabled());
}
