#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "workbench/DeclarationIndex.h"
#include "workbench/EditorSettings.h"
#include "workbench/FileHistoryManager.h"
#include "workbench/RunScriptManager.h"
#include "workbench/ScriptEditorController.h"
#include "workbench/ScriptFilePanels.h"
#include "workbench/SearchReplaceManager.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTextCursor>
#include <QTextDocument>

using TestSupport::waitUntil;

namespace {

QList<int> locations(const SearchReplaceManager &search)
{
    QList<int> at;
    for (const auto &range : search.matches())
        at.append(range.location);
    return at;
}

struct FakePanels : ScriptFilePanels {
    SaveAnswer answer = SaveAnswer::Cancel;
    std::optional<QString> location;
    int asked = 0;
    SaveAnswer askToSave(const QString &, const QString &) override
    {
        ++asked;
        return answer;
    }
    std::optional<QString> chooseSaveLocation(const QString &) override { return location; }
};

QString writeScript(const QString &name, const QByteArray &text)
{
    const QString path = TestSupport::makeTempDir() + u'/' + name;
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(text);
    return path;
}

}  // namespace

TEST(SearchReplace, MatchesDoNotOverlapWholeWordsAndUTF16Ranges)
{
    QTextDocument document(QStringLiteral("aaaa"));
    SearchReplaceManager search;
    search.setDocument(&document);
    search.setSearchText(QStringLiteral("aa"));
    EXPECT_EQ(locations(search), QList<int>({0, 2}));
    EXPECT_EQ(search.countText(), "1 of 2");

    // Whole words: not in foo_bar or foo1, but in foo-bar; the scan goes on behind a miss.
    document.setPlainText(QStringLiteral("foo_bar foo1 foo-bar FOO"));
    search.setExactMatch(true);
    search.setSearchText(QStringLiteral("foo"));
    EXPECT_EQ(locations(search), QList<int>({13, 21}));
    search.setCaseSensitive(true);
    EXPECT_EQ(locations(search), QList<int>({13}));

    // Characters outside the basic plane count two units; the text is searched to its end.
    document.setPlainText(QString::fromUtf8("😀x 😀x 😀x"));
    search.setCaseSensitive(false);
    search.setExactMatch(false);
    search.setSearchText(QStringLiteral("x"));
    EXPECT_EQ(locations(search), QList<int>({2, 6, 10}));

    // Moves wrap, or stay at the end without wrapping.
    search.findPrevious();
    EXPECT_EQ(search.currentMatchIndex(), 2);
    search.setWrapAround(false);
    search.findNext();
    EXPECT_EQ(search.currentMatchIndex(), 2);
    search.setWrapAround(true);
    search.findNext();
    EXPECT_EQ(search.currentMatchIndex(), 0);

    // A replacement that holds the searched text: new matches after one, none after all.
    search.setReplaceText(QStringLiteral("xx"));
    search.replaceCurrent();
    EXPECT_EQ(document.toPlainText(), QString::fromUtf8("😀xx 😀x 😀x"));
    EXPECT_EQ(search.totalMatches(), 4);
    search.replaceAll();
    EXPECT_EQ(document.toPlainText(), QString::fromUtf8("😀xxxx 😀xx 😀xx"));
    EXPECT_EQ(search.totalMatches(), 0);
    // Replace all is one step to undo.
    document.undo();
    EXPECT_EQ(document.toPlainText(), QString::fromUtf8("😀xx 😀x 😀x"));

    // Matches that no longer lie on what they found (an edit came between) are left alone:
    // the one deleted, and the last one, which moved.
    search.setReplaceText(QStringLiteral("y"));
    search.performSearch();
    ASSERT_EQ(search.totalMatches(), 4);
    QTextCursor edit(&document);
    edit.setPosition(document.toPlainText().indexOf(QStringLiteral(" 😀x 😀x")) + 3);
    edit.deleteChar();  // the middle "x" goes; its range now points at " "
    search.replaceAll();
    EXPECT_EQ(document.toPlainText(), QString::fromUtf8("😀yy 😀 😀x"));
}

TEST(RunDialog, ParametersAreBuiltByTypeAndABlankHandlerRunsNothing)
{
    RunScriptManager run;
    run.setVisible(true);
    auto row = [&](const char *key, JSONParameter::JSONValueType type, const char *value) {
        JSONParameter p;
        p.key = QString::fromLatin1(key);
        p.valueType = type;
        p.value = QString::fromLatin1(value);
        run.parameters().append(p);
    };
    using T = JSONParameter::JSONValueType;
    row("n", T::number, "1e3");
    row("s", T::number, "12abc");
    row("b", T::boolean, "TRUE");
    row("f", T::boolean, "yes");
    row("o", T::object, "{not json");
    row("a", T::array, "[1, 2]");
    row("z", T::null, "anything");
    row("  ", T::string, "skipped");
    row("n", T::string, "later wins");
    const QJsonObject built = run.builtParameters();
    EXPECT_EQ(built.value("s").toString(), "12abc");
    EXPECT_EQ(built.value("b").toBool(), true);
    EXPECT_EQ(built.value("f").toBool(true), false);
    EXPECT_EQ(built.value("o").toObject(), QJsonObject());
    EXPECT_EQ(built.value("a").toArray(), QJsonArray({1, 2}));
    EXPECT_TRUE(built.value("z").isNull());
    EXPECT_EQ(built.value("n").toString(), "later wins");
    EXPECT_EQ(built.size(), 7);
    const JSONParameter thousand{QUuid(), QStringLiteral("k"), T::number, QStringLiteral("1e3")};
    EXPECT_EQ(thousand.jsonValue().toDouble(), 1000.0);
    const JSONParameter blank{QUuid(), QStringLiteral("k"), T::number, QStringLiteral(" 5")};
    EXPECT_TRUE(blank.jsonValue().isString());

    int runs = 0;
    run.setHandlerName(QStringLiteral("   "));
    run.execute([&](const QString &, const QJsonObject &) { ++runs; });
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(run.isVisible());
    run.setHandlerName(QStringLiteral(" processData "));
    QString handler;
    run.execute([&](const QString &h, const QJsonObject &) { handler = h; ++runs; });
    EXPECT_EQ(handler, "processData");
    EXPECT_FALSE(run.isVisible());
}

TEST(RecentFilesAndSettings, TenNewestFirstAndUsableValuesOnly)
{
    FileHistoryManager history;
    history.clear();
    QStringList files;
    for (int i = 0; i < 11; ++i)
        files.append(writeScript(QStringLiteral("s%1.js").arg(i), "x"));
    history.add(files.at(0));
    history.add(files.at(1));
    history.add(files.at(0));
    EXPECT_EQ(history.entries(), QStringList({files.at(0), files.at(1)}));
    for (const QString &file : files)
        history.add(file);
    EXPECT_EQ(history.entries().size(), FileHistoryManager::maxEntries);
    EXPECT_EQ(history.entries().first(), files.last());
    EXPECT_FALSE(history.entries().contains(files.first()));  // the oldest went
    // Read again, files that are gone are dropped.
    QFile::remove(files.at(5));
    FileHistoryManager reread;
    EXPECT_EQ(reread.entries().size(), FileHistoryManager::maxEntries - 1);

    UserDefaults::standard()->setValue(QStringLiteral("ScriptEditor.fontSize"), 0.0);
    UserDefaults::standard()->setValue(QStringLiteral("ScriptEditor.tabWidth"), 2);
    UserDefaults::standard()->setValue(QStringLiteral("ScriptEditor.keywordColor"), QStringLiteral("not a colour"));
    EditorSettings settings;
    EXPECT_EQ(settings.fontSize, 13.0);
    EXPECT_EQ(settings.tabWidth, 2);
    EXPECT_EQ(settings.indentUnit(), "  ");
    EXPECT_EQ(settings.keywordColor, QColor::fromRgbF(0.8f, 0.5f, 1.0f, 0.85f));
    settings.stringColor = QColor(10, 20, 30, 40);
    settings.save();
    EXPECT_FALSE(settings.changed());
    EXPECT_EQ(EditorSettings().stringColor, QColor(10, 20, 30, 40));
}

TEST(ScriptEditor, NewOpenSaveAndRunThroughCallScript)
{
    FakePanels panels;
    ScriptEditorController editor;
    editor.setPanels(&panels);
    EXPECT_TRUE(editor.fileContent().contains("function toolEntry(sid, handlerName, jsonParams) {"));
    EXPECT_TRUE(editor.fileContent().contains("case \"processData\": return processData(params);"));
    EXPECT_TRUE(editor.fileContent().endsWith("console.log(\"Script loaded successfully\");\n"));

    // A never-saved buffer cannot run, though it holds text.
    editor.runScript(QStringLiteral("processData"), {});
    ASSERT_TRUE(waitUntil([&] { return editor.shouldShowAlert(); }));
    EXPECT_EQ(editor.alertMessage(), "No script file loaded.");
    editor.setShouldShowAlert(false);

    // Save As puts the template in a file; the run goes through callScript and the log.
    const QString path = TestSupport::makeTempDir() + QStringLiteral("/tool.js");
    panels.location = path;
    ASSERT_TRUE(editor.saveScript());
    EXPECT_EQ(editor.currentFilePath(), path);
    EXPECT_EQ(FileHistoryManager::shared()->entries().first(), path);
    LogController::shared()->clear();
    editor.runScript(QStringLiteral("processData"), QJsonObject{{"x", 1}});
    ASSERT_TRUE(waitUntil([] {
        const QList<LogEntry> entries = LogController::shared()->logEntries();
        return !entries.isEmpty() && entries.last().message.startsWith("[Script] Result: ");
    }));
    const QList<LogEntry> entries = LogController::shared()->logEntries();
    bool started = false;
    for (const LogEntry &entry : entries)
        started = started || entry.message == QStringLiteral("[Script] Running script: ") + path;
    EXPECT_TRUE(started);
    EXPECT_TRUE(entries.last().message.contains("Data processed successfully")) << entries.last().message.toStdString();

    // The first edit of a clean buffer drops the matches; the save question can stop an open.
    QTextDocument document(editor.fileContent());
    editor.searchManager()->setDocument(&document);
    editor.searchManager()->setSearchText(QStringLiteral("processData"));
    EXPECT_GT(editor.searchManager()->totalMatches(), 0);
    editor.textChanged(editor.fileContent() + QStringLiteral("\n// more"));
    EXPECT_TRUE(editor.contentIsDirty());
    EXPECT_EQ(editor.searchManager()->totalMatches(), 0);
    const QString other = writeScript(QStringLiteral("other.js"), "// other\n");
    panels.answer = ScriptFilePanels::SaveAnswer::Cancel;
    EXPECT_FALSE(editor.openFile(other));
    EXPECT_EQ(panels.asked, 1);
    EXPECT_EQ(editor.currentFilePath(), path);
    panels.answer = ScriptFilePanels::SaveAnswer::Save;
    EXPECT_TRUE(editor.openFile(other));
    EXPECT_EQ(editor.fileContent(), "// other\n");
    QFile saved(path);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    EXPECT_TRUE(saved.readAll().endsWith("// more"));
}

// The index over a real script (the ToolSDK's example) and the rules of the last
// declaration winning and of a declaration being no link to itself.
TEST(DeclarationIndexTest, FunctionsAndVariablesOfAScript)
{
    QFile example(AppPaths::builtinConfigurationDir() + QStringLiteral("/Scripts/text_statistics.js"));
    ASSERT_TRUE(example.open(QIODevice::ReadOnly)) << example.fileName().toStdString();
    const QString script = QString::fromUtf8(example.readAll());
    DeclarationIndex index;
    index.parse(script);
    for (const char *name : {"statistics", "codePoints", "sentences", "toolEntry"})
        EXPECT_TRUE(index.functionDeclarations().contains(QString::fromLatin1(name))) << name;
    EXPECT_TRUE(index.variableDeclarations().contains(QStringLiteral("STOP_WORDS")));
    // A use of statistics( inside toolEntry leads to its declaration.
    const int use = int(script.lastIndexOf(QStringLiteral("statistics(text)")));
    ASSERT_GE(use, 0);
    const auto target = index.declarationAt(script, use + 3);
    ASSERT_TRUE(target);
    EXPECT_EQ(script.mid(target->location, target->length), "statistics");
    EXPECT_TRUE(script.mid(target->location - 9, 9) == "function ");
    // On the declaration itself: no link.
    EXPECT_FALSE(index.declarationAt(script, target->location));

    const QString twice = QStringLiteral("function a() {}\nfunction a() { return 1; }\nconst b = (x) => x;\nlet c = 2;\na(); b(); c;");
    index.parse(twice);
    EXPECT_EQ(index.functionDeclarations().value("a").location, twice.indexOf(QStringLiteral("a() { return")));
    EXPECT_TRUE(index.functionDeclarations().contains("b"));
    EXPECT_FALSE(index.variableDeclarations().contains("b"));  // a function already
    EXPECT_TRUE(index.variableDeclarations().contains("c"));
    EXPECT_FALSE(DeclarationIndex::wordAt(twice, int(twice.size())));
    EXPECT_EQ(DeclarationIndex::wordAt(twice, 1)->text, "function");
}
