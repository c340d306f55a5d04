#pragma once

#include "views/common/DestinationScreen.h"

#include <memory>

class FileExplorerModel;
class LogPaneView;
class QtFileExplorerPanels;
class UnifiedFileExplorerView;
class QCheckBox;
class QComboBox;
class QLabel;
class QLayout;
class QLineEdit;
class QSplitter;
class QtScriptFilePanels;
class ScriptEditorController;
class SourceTextEditor;

// The Script destination: the folder tree, recent files, the editor, the find and replace bar and the log
// under the editor. File ▸ New, Save and Save As, Script ▸ Run Script and Edit ▸ Find,
// Find Next, Find Previous and Replace act on it.
class ScriptEditorView : public DestinationScreen {
    Q_OBJECT

public:
    explicit ScriptEditorView(ScriptEditorController *controller = nullptr, QWidget *parent = nullptr);
    ~ScriptEditorView() override;

    AbstractController *activeController() const override;
    bool handlesCommand(MenuCommand command) const override;
    void performCommand(MenuCommand command) override;

    ScriptEditorController *controller() const { return m_controller; }
    SourceTextEditor *editor() const { return m_editor; }
    QComboBox *recentFiles() const { return m_recent; }
    QLineEdit *searchField() const { return m_search; }
    QLineEdit *replaceField() const { return m_replace; }
    QLabel *matchCount() const { return m_count; }
    LogPaneView *logPane() const { return m_log; }
    FileExplorerModel *explorerModel() const { return m_explorerModel; }
    UnifiedFileExplorerView *explorer() const { return m_explorer; }
    // The sheet "Editor Settings", modal.
    void openSettings();
    // "Check and Run Script": the run dialog, modal.
    void openRunDialog();
    void openFileDialog();

private:
    // The screen's areas and what their controls do.
    QLayout *buildToolbar();
    void buildEditor();
    void buildFindBar();
    QSplitter *buildEditorAndLog();
    void buildExplorer();
    void layOut(QLayout *toolbar, QSplitter *editorAndLog);
    void bindToolbar();
    void bindEditor();

    void loadContent();
    void refreshRecent();
    void refreshSearch();

    ScriptEditorController *m_controller;
    std::unique_ptr<QtScriptFilePanels> m_panels;
    std::unique_ptr<QtFileExplorerPanels> m_explorerPanels;
    FileExplorerModel *m_explorerModel;
    UnifiedFileExplorerView *m_explorer;
    SourceTextEditor *m_editor;
    QComboBox *m_recent;
    QWidget *m_findBar;
    QLineEdit *m_search;
    QLineEdit *m_replace;
    QLabel *m_count;
    QLabel *m_title;
    LogPaneView *m_log;
    bool m_loading = false;
};
