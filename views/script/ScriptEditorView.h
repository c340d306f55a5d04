#pragma once

#include "views/app/DestinationScreen.h"

#include <memory>

class LogPaneView;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QSplitter;
class QtScriptFilePanels;
class ScriptEditorController;
class SourceTextEditor;

// The Script destination: recent files, the editor, the find and replace bar and the log
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
    // "Check and Run Script": the run dialog, modal.
    void openRunDialog();
    void openFileDialog();

private:
    void loadContent();
    void refreshRecent();
    void refreshSearch();

    ScriptEditorController *m_controller;
    std::unique_ptr<QtScriptFilePanels> m_panels;
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
