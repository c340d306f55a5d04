#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/AppMenuBar.h"
#include "views/common/PanePosition.h"
#include "views/log/LogPaneView.h"
#include "views/app/BuiltinFeatures.h"
#include "views/common/ColorScheme.h"
#include "views/script/EditorSettingsDialog.h"
#include "views/script/RunScriptDialog.h"
#include "views/script/ScriptEditorView.h"
#include "views/script/SourceTextEditor.h"
#include "views/script/FileNodeRow.h"
#include "views/script/UnifiedFileExplorerView.h"
#include "workbench/EditorSettings.h"
#include "workbench/FileExplorerModel.h"
#include "workbench/FileExplorerPanels.h"
#include "workbench/ScriptEditorController.h"
#include "workbench/SearchReplaceManager.h"

#include <gtest/gtest.h>
#include <QFontInfo>
#include <QFontDatabase>

#include <QFileInfo>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QToolButton>
#include <QTreeWidget>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>
#include <QMimeData>
#include <QTimer>
#include <QUrl>

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

namespace {

// Answers the explorer's questions without dialogs.
struct ScriptedExplorerPanels : FileExplorerPanels {
    QString newFile;
    std::optional<QString> chooseDirectory() override { return std::nullopt; }
    std::optional<QString> chooseNewFile(const QString &folder, const QString &) override { return folder + u'/' + newFile; }
    std::optional<QString> askNewName(const QString &) override { return std::nullopt; }
    bool confirmDelete(const QString &) override { return false; }
    std::optional<QString> chooseCopyTarget(const QString &, const QString &, const QString &) override { return std::nullopt; }
    std::optional<QString> chooseMoveFolder(const QString &, const QString &) override { return std::nullopt; }
    void alert(const QString &, const QString &text) override { ADD_FAILURE() << text.toStdString(); }
};

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

}  // namespace

// The folder tree beside the editor: empty state, lazy folders that stay open across a
// refresh, the filter, opening a script into the editor, a new file with the template, and
// copy and paste with the keyboard.
TEST(ScriptScreen, ExplorerOpensCreatesAndPastes)
{
    const QString root = TestSupport::makeTempDir();
    QDir(root).mkdir(QStringLiteral("lib"));
    writeFile(root + QStringLiteral("/main.js"), "// main\n");
    writeFile(root + QStringLiteral("/lib/util.js"), "// util\n");

    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuScriptEditor);
    auto *view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ScriptedExplorerPanels panels;
    view->explorerModel()->setPanels(&panels);
    UnifiedFileExplorerView *explorer = view->explorer();
    if (!view->explorerModel()->rootNode()) {  // a folder chosen by an earlier test of this process is kept
        EXPECT_TRUE(explorer->findChild<QWidget *>(QStringLiteral("noFolderOpen"))->isVisible());
    }

    view->explorerModel()->setRoot(root);
    QTreeWidget *tree = explorer->tree();
    ASSERT_EQ(tree->topLevelItemCount(), 2);
    EXPECT_EQ(tree->topLevelItem(0)->text(0), "lib");  // folders first
    EXPECT_EQ(tree->topLevelItem(1)->text(1), "8 B");
    // A folder is read when it is opened, and stays open when the tree is read again.
    EXPECT_EQ(explorer->rowForPath(root + QStringLiteral("/lib/util.js")), nullptr);
    tree->topLevelItem(0)->setExpanded(true);
    ASSERT_NE(explorer->rowForPath(root + QStringLiteral("/lib/util.js")), nullptr);
    view->explorerModel()->refresh();
    ASSERT_NE(explorer->rowForPath(root + QStringLiteral("/lib/util.js")), nullptr);
    EXPECT_TRUE(explorer->rowForPath(root + QStringLiteral("/lib"))->isExpanded());

    explorer->filterField()->setText(QStringLiteral("UTIL"));
    EXPECT_EQ(explorer->rowForPath(root + QStringLiteral("/main.js")), nullptr);
    ASSERT_NE(explorer->rowForPath(root + QStringLiteral("/lib/util.js")), nullptr);
    explorer->filterField()->clear();

    // Activating a script opens it in the editor.
    emit tree->itemActivated(explorer->rowForPath(root + QStringLiteral("/main.js")), 0);
    EXPECT_EQ(view->controller()->currentFilePath(), root + QStringLiteral("/main.js"));
    EXPECT_EQ(view->editor()->toPlainText(), "// main\n");

    // "Create file" in the selected folder: the template, opened at once.
    tree->setCurrentItem(explorer->rowForPath(root + QStringLiteral("/lib")), 0, QItemSelectionModel::ClearAndSelect);
    panels.newFile = QStringLiteral("made.js");
    explorer->findChild<QToolButton *>(QStringLiteral("createFile"))->click();
    EXPECT_EQ(view->controller()->currentFilePath(), root + QStringLiteral("/lib/made.js"));
    EXPECT_EQ(view->editor()->toPlainText(), ScriptEditorController::newScriptTemplate);
    EXPECT_FALSE(view->controller()->contentIsDirty());
    ASSERT_NE(explorer->rowForPath(root + QStringLiteral("/lib/made.js")), nullptr);

    // Ctrl+C on main.js, Ctrl+V on the folder: a copy inside it; again beside itself: "main copy.js".
    auto pick = [&](const QString &name) {
        tree->setCurrentItem(explorer->rowForPath(root + name), 0, QItemSelectionModel::ClearAndSelect);
    };
    tree->setFocus();
    pick(QStringLiteral("/main.js"));
    QTest::keyClick(tree, Qt::Key_C, Qt::ControlModifier);
    pick(QStringLiteral("/lib"));
    QTest::keyClick(tree, Qt::Key_V, Qt::ControlModifier);
    EXPECT_TRUE(QFile::exists(root + QStringLiteral("/lib/main.js")));
    pick(QStringLiteral("/main.js"));
    QTest::keyClick(tree, Qt::Key_V, Qt::ControlModifier);
    EXPECT_TRUE(QFile::exists(root + QStringLiteral("/main copy.js")));
    EXPECT_NE(explorer->rowForPath(root + QStringLiteral("/main copy.js")), nullptr);
    view->explorerModel()->setPanels(nullptr);
    closeAllWindows();
}

// The sheet "Editor Settings": a change shows in the editor at once, "Cancel" goes back to
// what is stored, "Save changes" stores, "Reset" gives the defaults.
TEST(ScriptScreen, EditorSettingsSheet)
{
    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuScriptEditor);
    auto *view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    EditorSettings *settings = EditorSettings::shared();
    const double storedSize = settings->fontSize;

    auto withSheet = [&](std::function<void(EditorSettingsDialog *)> act) {
        QTimer::singleShot(50, [&] {
            for (QWidget *w : QApplication::topLevelWidgets()) {
                if (auto *sheet = qobject_cast<EditorSettingsDialog *>(w); sheet && sheet->isVisible())
                    return act(sheet);
            }
            ADD_FAILURE() << "no settings sheet";
        });
        view->performCommand(MenuCommand::EditorSettings);
    };

    withSheet([&](EditorSettingsDialog *sheet) {
        sheet->sizeField()->setValue(storedSize + 7);
        EXPECT_EQ(view->editor()->font().pointSizeF(), storedSize + 7);
        EXPECT_TRUE(settings->changed());
        sheet->reject();
    });
    EXPECT_EQ(settings->fontSize, storedSize);
    EXPECT_EQ(view->editor()->font().pointSizeF(), storedSize);
    EXPECT_FALSE(settings->changed());

    withSheet([&](EditorSettingsDialog *sheet) {
        sheet->tabWidthField()->setCurrentIndex(sheet->tabWidthField()->findData(2));
        sheet->fontField()->setCurrentText(QStringLiteral("JetBrains Mono"));
        sheet->saveChanges();
    });
    EXPECT_FALSE(settings->changed());
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("ScriptEditor.tabWidth")).toInt(), 2);
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("ScriptEditor.fontName")).toString(), "JetBrains Mono");
    EXPECT_EQ(settings->indentUnit(), "  ");

    withSheet([&](EditorSettingsDialog *sheet) {
        sheet->resetAll();
        EXPECT_EQ(sheet->tabWidthField()->currentData().toInt(), 4);
        EXPECT_EQ(sheet->fontField()->currentText(), "Menlo");
        // Debian carries no Menlo: the sheet says which face the editor falls back to, a fixed one.
        if (!QFontDatabase::families().contains(QStringLiteral("Menlo"))) {
            EXPECT_FALSE(sheet->fontNote()->isHidden());
            EXPECT_TRUE(sheet->fontNote()->text().startsWith(QStringLiteral("Menlo is not installed here")));
            EXPECT_TRUE(QFontInfo(SourceTextEditor::editorFont(QStringLiteral("Menlo"), 13)).fixedPitch());
        }
        sheet->saveChanges();
    });
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("ScriptEditor.tabWidth")).toInt(), 4);
    closeAllWindows();
}

// Tab walks the title row with the recent files first, then the editor, the find bar, the log
// and the folder tree.
TEST(ScriptScreen, TabWalksToolbarEditorFindBarLogAndTree)
{
    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuScriptEditor);
    auto *view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    const QStringList walk = {"recentFiles", "new", "open", "save", "run", "find", "settings", "sourceTextEditor",
                              "findBar", "searchField", "replaceField", "findPrevious", "findNext", "replace",
                              "replaceAll", "logView", "fileExplorer", "explorerSplit"};
    EXPECT_EQ(focusOrder(view, walk), walk);
    closeAllWindows();
}

namespace {

// The colour the editor gave the character at this column of the first line holding `line`.
QColor colourAt(SourceTextEditor &editor, const QString &line, qsizetype column)
{
    const QTextBlock block = editor.document()->findBlock(int(editor.document()->toPlainText().indexOf(line)));
    for (const QTextLayout::FormatRange &range : block.layout()->formats()) {
        if (column >= range.start && column < range.start + range.length)
            return range.format.foreground().color();
    }
    return {};
}

}  // namespace

// Regular-expression literals are strings to the eye, and a quote inside one opens nothing;
// a "/" after a value divides. Only the 36 keywords of JavaScript are keywords.
TEST(ScriptEditorColours, RegularExpressionLiteralsAndTheKeywordList)
{
    EditorSettings settings;
    SourceTextEditor editor(&settings);
    const QString regex = QStringLiteral("var words = text.split(/[\\s\"']+/g); var after = 1;");
    const QString division = QStringLiteral("var half = total / 2 / count;");
    const QString words = QStringLiteral("if (x === undefined || y === null) return true;");
    editor.setPlainText(regex + u'\n' + division + u'\n' + words);
    QCoreApplication::processEvents();
    // The colours as shown: the settings' own, made readable on this editor's background.
    const QColor base = QApplication::palette().color(QPalette::Base);
    const QColor stringColor = ColorScheme::readableOn(settings.stringColor, base);
    const QColor keywordColor = ColorScheme::readableOn(settings.keywordColor, base);
    ASSERT_NE(stringColor, keywordColor);

    const qsizetype slash = regex.indexOf(u'/');
    EXPECT_EQ(colourAt(editor, regex, slash), stringColor);
    EXPECT_EQ(colourAt(editor, regex, regex.indexOf(u'"')), stringColor);
    EXPECT_EQ(colourAt(editor, regex, regex.indexOf(QStringLiteral("/g")) + 1), stringColor);  // the flag
    // After the literal the line is code again: the quote inside it opened no string.
    EXPECT_EQ(colourAt(editor, regex, regex.lastIndexOf(QStringLiteral("var"))), keywordColor);
    EXPECT_NE(colourAt(editor, division, division.indexOf(u'/') + 2), stringColor);
    EXPECT_EQ(colourAt(editor, words, 0), keywordColor);                                   // if
    EXPECT_EQ(colourAt(editor, words, words.indexOf(QStringLiteral("return"))), keywordColor);
    for (const char *plain : {"undefined", "null", "true"})
        EXPECT_NE(colourAt(editor, words, words.indexOf(QLatin1String(plain))), keywordColor) << plain;
}

// A script dropped on the editor opens; its address is not typed into the text.
TEST(ScriptScreen, AFileDroppedOnTheEditorOpens)
{
    const QString path = TestSupport::makeTempDir() + QStringLiteral("/dropped.js");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("function toolEntry() { return '{\"text\":\"dropped\"}'; }\n");
    file.close();

    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuScriptEditor);
    auto *view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    QMimeData drop;
    drop.setUrls({QUrl::fromLocalFile(path)});
    SourceTextEditor *editor = view->editor();
    // The events a drag from the file manager brings, in order.
    QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &drop, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(editor->viewport(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent dropEvent(QPointF(20, 20), Qt::CopyAction, &drop, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(editor->viewport(), &dropEvent);
    EXPECT_EQ(view->controller()->currentFilePath(), path);
    EXPECT_TRUE(editor->toPlainText().startsWith("function toolEntry")) << editor->toPlainText().toStdString();
    EXPECT_FALSE(editor->toPlainText().contains(QStringLiteral("file://")));
    closeAllWindows();
}

// A saved script's row in the tree gives its size on disk, not the size it was read with.
TEST(ScriptScreen, TheTreeShowsTheSizeOfTheSavedFile)
{
    const QString root = TestSupport::makeTempDir();
    writeFile(root + QStringLiteral("/big.js"), QByteArray(2100, 'x'));
    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuScriptEditor);
    auto *view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    view->explorerModel()->setRoot(root);
    UnifiedFileExplorerView *explorer = view->explorer();
    const QString path = root + QStringLiteral("/big.js");
    ASSERT_NE(explorer->rowForPath(path), nullptr);
    EXPECT_EQ(explorer->rowForPath(path)->text(1), "2 KB");

    view->controller()->openFile(path);
    view->editor()->setPlainText(QString(408, u'y'));
    ASSERT_TRUE(view->controller()->contentIsDirty());
    view->controller()->saveScript();
    ASSERT_EQ(QFileInfo(path).size(), 408);
    EXPECT_EQ(explorer->rowForPath(path)->text(1), "408 B");
    closeAllWindows();
}

// The View menu's toggles hide and show the log and the file browser; the choice is stored,
// a new screen starts with it, and a stored "hidden" is undone by the same command. The two
// dividers come back where the user left them.
TEST(ScriptScreen, TheViewTogglesAndTheDividersAreKept)
{
    UserDefaults::standard()->remove(ScriptEditorController::showLogViewKey);
    UserDefaults::standard()->remove(ScriptEditorController::showFileBrowserKey);
    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuScriptEditor);
    auto *view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ASSERT_TRUE(view->logPane()->isVisible() && view->explorer()->isVisible());
    QAction *toggleLog = window->appMenuBar()->action(MenuCommand::ToggleLogPane);
    QAction *toggleTree = window->appMenuBar()->action(MenuCommand::ToggleFileBrowser);
    window->appMenuBar()->refresh();
    ASSERT_TRUE(toggleLog->isVisible() && toggleLog->isEnabled());
    ASSERT_TRUE(toggleTree->isVisible() && toggleTree->isEnabled());

    // The stored divider is in place once the screen has been laid out.
    auto *sides = view->findChild<QSplitter *>(QStringLiteral("explorerSplit"));
    ASSERT_NE(sides, nullptr);
    ASSERT_TRUE(waitUntil([&] { return sides->findChild<PanePosition *>()->applied(); }));
    toggleLog->trigger();
    toggleTree->trigger();
    EXPECT_FALSE(view->logPane()->isVisible());
    EXPECT_FALSE(view->explorer()->isVisible());
    EXPECT_EQ(UserDefaults::standard()->value(ScriptEditorController::showLogViewKey), false);
    EXPECT_EQ(UserDefaults::standard()->value(ScriptEditorController::showFileBrowserKey), false);

    // The divider between tree and editor, as a user's drag reports it.
    emit sides->splitterMoved(260, 1);
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("spScriptEditorView")).toDouble(), 260.0);
    closeAllWindows();

    window = launchedWindow(MenuDestination::menuScriptEditor);
    window->resize(1400, 900);  // room beside the editor's toolbar for a wider tree
    view = qobject_cast<ScriptEditorView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    EXPECT_FALSE(view->logPane()->isVisible());
    EXPECT_FALSE(view->explorer()->isVisible());
    window->appMenuBar()->action(MenuCommand::ToggleLogPane)->trigger();
    window->appMenuBar()->action(MenuCommand::ToggleFileBrowser)->trigger();
    EXPECT_TRUE(view->logPane()->isVisible());
    EXPECT_TRUE(view->explorer()->isVisible());
    EXPECT_EQ(UserDefaults::standard()->value(ScriptEditorController::showLogViewKey), true);
    sides = view->findChild<QSplitter *>(QStringLiteral("explorerSplit"));
    EXPECT_TRUE(waitUntil([&] { return sides->sizes().value(0) == 260; }))
        << sides->sizes().value(0) << " applied " << sides->findChild<PanePosition *>()->applied();
    // Elsewhere the toggles are not offered.
    window->navigate(MenuDestination::menuServerConfig);
    EXPECT_FALSE(window->appMenuBar()->action(MenuCommand::ToggleLogPane)->isVisible());
    closeAllWindows();
}
