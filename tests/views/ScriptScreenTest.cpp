#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/BuiltinFeatures.h"
#include "views/script/RunScriptDialog.h"
#include "views/script/ScriptEditorView.h"
#include "views/script/SourceTextEditor.h"
#include "workbench/ScriptEditorController.h"
#include "workbench/SearchReplaceManager.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace ViewsTestSupport;
using TestSupport::waitUntil;

// Open a script, edit it, save it, find in it and run it through the run dialog; the run's
// lines reach the log under the editor.
TEST(ScriptScreen, OpenEditSaveFindAndRun)
{
    const QString path = TestSupport::makeTempDir() + QStringLiteral("/hello.js");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("function toolEntry(sid, handlerName, jsonParams) {\n"
               "    return Tool.dispatch({ hello: function (p) { return { text: 'Hello ' + p.who, metadata: {} }; } },\n"
               "                         sid, handlerName, jsonParams);\n"
               "}\n");
    file.close();

    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuScriptEditor);
    auto *view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ScriptEditorController *controller = view->controller();
    ASSERT_TRUE(controller->openFile(path));
    EXPECT_TRUE(view->editor()->toPlainText().startsWith("function toolEntry"));
    EXPECT_EQ(view->recentFiles()->itemData(0).toString(), path);

    // Typing: Return keeps the line's indentation.
    QTextCursor cursor = view->editor()->textCursor();
    cursor.movePosition(QTextCursor::End);
    view->editor()->setTextCursor(cursor);
    view->editor()->setFocus();
    QTest::keyClicks(view->editor(), QStringLiteral("    // greet"));
    QTest::keyClick(view->editor(), Qt::Key_Return);
    QTest::keyClicks(view->editor(), QStringLiteral("x"));
    EXPECT_TRUE(view->editor()->toPlainText().endsWith("    // greet\n    x")) << view->editor()->toPlainText().toStdString();
    EXPECT_TRUE(controller->contentIsDirty());
    const QString typed = view->editor()->toPlainText();

    // Tab indents the selected lines that are not empty; Shift+Tab takes a level back out.
    SourceTextEditor *editor = view->editor();
    editor->setPlainText(QStringLiteral("a\n\nb\n"));
    QTextCursor all(editor->document());
    all.setPosition(0);
    all.setPosition(4, QTextCursor::KeepAnchor);
    editor->setTextCursor(all);
    QTest::keyClick(editor, Qt::Key_Tab);
    EXPECT_EQ(editor->toPlainText(), "    a\n\n    b\n");
    QTest::keyClick(editor, Qt::Key_Backtab);
    EXPECT_EQ(editor->toPlainText(), "a\n\nb\n");

    // Ctrl+click on a use goes to the declaration.
    editor->setPlainText(QStringLiteral("function greet() {}\n\ngreet();\n"));
    editor->resize(600, 400);
    QTextCursor use(editor->document());
    use.setPosition(23);
    const QPoint at = editor->cursorRect(use).center() + QPoint(2, 0);
    QTest::mouseClick(editor->viewport(), Qt::LeftButton, Qt::ControlModifier, at);
    EXPECT_EQ(editor->textCursor().selectedText(), "greet");
    EXPECT_EQ(editor->textCursor().selectionStart(), 9);
    editor->setPlainText(typed);
    view->performCommand(MenuCommand::Save);
    EXPECT_FALSE(controller->contentIsDirty());
    QFile saved(path);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    EXPECT_TRUE(saved.readAll().endsWith("    x"));

    // Find marks every match and counts them.
    view->performCommand(MenuCommand::Find);
    view->searchField()->setText(QStringLiteral("handlerName"));
    EXPECT_EQ(controller->searchManager()->totalMatches(), 2);
    EXPECT_EQ(view->matchCount()->text(), "1 of 2");
    EXPECT_EQ(view->editor()->extraSelections().size(), 2);
    view->performCommand(MenuCommand::FindNext);
    EXPECT_EQ(view->matchCount()->text(), "2 of 2");

    // The run dialog: a blank handler stays open; "hello" runs and closes.
    LogController::shared()->clear();
    QTimer::singleShot(100, [] {
        for (QWidget *w : QApplication::topLevelWidgets()) {
            if (auto *dialog = qobject_cast<RunScriptDialog *>(w); dialog && dialog->isVisible()) {
                dialog->handlerField()->setText(QStringLiteral("  "));
                dialog->execute();
                EXPECT_TRUE(dialog->isVisible());
                dialog->handlerField()->setText(QStringLiteral("hello"));
                dialog->addRow(QStringLiteral("who"), QStringLiteral("string"), QStringLiteral("Ada"));
                dialog->execute();
                return;
            }
        }
        ADD_FAILURE() << "no run dialog";
    });
    view->performCommand(MenuCommand::RunScript);
    ASSERT_TRUE(waitUntil([] {
        const QList<LogEntry> entries = LogController::shared()->logEntries();
        return !entries.isEmpty() && entries.last().message.startsWith("[Script] Result: ");
    }));
    EXPECT_TRUE(LogController::shared()->logEntries().last().message.contains("Hello Ada"))
        << LogController::shared()->logEntries().last().message.toStdString();
    closeAllWindows();
}
