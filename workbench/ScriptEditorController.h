#pragma once

#include "base/AbstractController.h"

#include <QJsonObject>
#include <QString>

class EditorSettings;
class FileHistoryManager;
class LogController;
class RunScriptManager;
class ScriptFilePanels;
class SearchReplaceManager;

// The Script destination's controller: the open script and its text, new/open/save with the
// save question, and the run through the same callScript a client's tool call reaches, with
// its lines in the log. Main thread only; a run blocks it until the script ends.
class ScriptEditorController : public AbstractController {
    Q_OBJECT

public:
    static const QString newScriptTemplate;
    static inline const QString selectedFileKey = QStringLiteral("scriptEditorSelectedFile");
    static inline const QString showLogViewKey = QStringLiteral("scriptEditorShowLogView");
    static inline const QString showFileBrowserKey = QStringLiteral("scriptEditorShowFileBrowserView");

    explicit ScriptEditorController(LogController *log = nullptr, QObject *parent = nullptr);
    ~ScriptEditorController() override;

    // The screen's answers to the save question and the save panel.
    void setPanels(ScriptFilePanels *panels) { m_panels = panels; }

    QString fileContent() const { return m_fileContent; }
    bool contentIsDirty() const { return m_contentIsDirty; }
    // Empty for a new script that was never saved.
    QString currentFilePath() const { return m_currentFilePath; }
    bool isLogViewVisible() const { return m_isLogViewVisible; }
    void setLogViewVisible(bool visible);
    // The folder tree beside the editor; stored like the log pane's flag, shown when unset.
    bool isFileBrowserVisible() const { return m_isFileBrowserVisible; }
    void setFileBrowserVisible(bool visible);
    SearchReplaceManager *searchManager() const { return m_search; }
    RunScriptManager *runManager() const { return m_run; }

    // The buffer takes the template (after the save question when dirty).
    void newScript();
    // False when the user cancelled or the file could not be read (alert "Error").
    bool openFile(const QString &path);
    bool saveScript();
    bool saveScriptAs();
    // A new text from the editor; the first edit of a clean buffer drops the stale matches.
    void textChanged(const QString &text);
    // Runs the open script once: "No script file loaded." without a file, a save first when
    // dirty, then callScript with the parameters as pretty JSON; both lines go to the log.
    void runScript(const QString &handlerName, const QJsonObject &params);
    // Opens the last file of the previous run when it still exists.
    void restore();

    bool canSave() const override { return true; }

signals:
    void contentReplaced();
    void fileChanged();

private:
    // Asks when dirty; false when the caller must stop.
    bool resolveUnsaved();
    bool saveTo(const QString &path);
    void setCurrentFile(const QString &path);

    LogController *m_log;
    ScriptFilePanels *m_panels = nullptr;
    SearchReplaceManager *m_search;
    RunScriptManager *m_run;
    QString m_fileContent;
    bool m_contentIsDirty = false;
    QString m_currentFilePath;
    bool m_isLogViewVisible = true;
    bool m_isFileBrowserVisible = true;
};
