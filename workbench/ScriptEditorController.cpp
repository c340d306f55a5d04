#include "workbench/ScriptEditorController.h"

#include "base/AtomicFile.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tools/scripting/PluginScripting.h"
#include "workbench/FileHistoryManager.h"
#include "workbench/RunScriptManager.h"
#include "workbench/ScriptFilePanels.h"
#include "workbench/SearchReplaceManager.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QStringDecoder>
#include <QUuid>

const QString ScriptEditorController::newScriptTemplate = QStringLiteral(R"(// =============================================================
// JavaScript Tool Script for Kelvara
// =============================================================

/**
 * Entry point called by Kelvara for every tool call.
 * @param {string} sid          the session of the call
 * @param {string} handlerName  the handler the tool names
 * @param {string} jsonParams   the call's parameters as JSON text
 */
function toolEntry(sid, handlerName, jsonParams) {
    console.log("Script started - Handler: " + handlerName);
    try {
        var params = JSON.parse(jsonParams);
        switch(handlerName) {
            case "processData": return processData(params);
            default: return error("Unknown handler: " + handlerName);
        }
    } catch (e) {
        console.error("Error: " + e);
        return error(e.toString());
    }
}

// =============================================================
// Handler Functions
// =============================================================

function processData(params) {
    console.log("Processing data...");
    var result = {
        message: "Data processed successfully",
        timestamp: new Date().toISOString()
    };
    return success(result, { operation: "processData" });
}

// =============================================================
// Utility Functions
// =============================================================

function success(data, metadata) {
    return JSON.stringify({ text: JSON.stringify(data, null, 2), metadata: metadata || {} });
}

function error(message) {
    return JSON.stringify({ error: message });
}

console.log("Script loaded successfully");
)");

ScriptEditorController::ScriptEditorController(LogController *log, QObject *parent)
    : AbstractController(parent),
      m_log(log ? log : LogController::shared()),
      m_search(new SearchReplaceManager(this)),
      m_run(new RunScriptManager(this))
{
    m_isLogViewVisible = UserDefaults::standard()->value(showLogViewKey, true).toBool();
    m_isFileBrowserVisible = UserDefaults::standard()->value(showFileBrowserKey, true).toBool();
    m_fileContent = newScriptTemplate;
}

ScriptEditorController::~ScriptEditorController() = default;

void ScriptEditorController::setLogViewVisible(bool visible)
{
    m_isLogViewVisible = visible;
    UserDefaults::standard()->setValue(showLogViewKey, visible);
    notifyChange();
}

void ScriptEditorController::setFileBrowserVisible(bool visible)
{
    m_isFileBrowserVisible = visible;
    UserDefaults::standard()->setValue(showFileBrowserKey, visible);
    notifyChange();
}

void ScriptEditorController::restore()
{
    const QString last = UserDefaults::standard()->value(selectedFileKey).toString();
    if (!last.isEmpty() && QFileInfo(last).isFile())
        openFile(last);
}

bool ScriptEditorController::resolveUnsaved()
{
    if (!m_contentIsDirty || !m_panels)
        return true;
    const QString title = m_currentFilePath.isEmpty()
                              ? QStringLiteral("Save changes to file?")
                              : QStringLiteral("Save changes to file '%1'").arg(QFileInfo(m_currentFilePath).fileName());
    switch (m_panels->askToSave(title, QStringLiteral("Your changes will be lost if you don't save them."))) {
    case ScriptFilePanels::SaveAnswer::DontSave:
        m_contentIsDirty = false;
        return true;
    case ScriptFilePanels::SaveAnswer::Save:
        return saveScript();
    case ScriptFilePanels::SaveAnswer::Cancel:
        return false;
    }
    return false;
}

void ScriptEditorController::newScript()
{
    if (!resolveUnsaved())
        return;
    m_contentIsDirty = false;
    m_currentFilePath.clear();
    m_fileContent = newScriptTemplate;
    emit fileChanged();
    emit contentReplaced();
    notifyChange();
}

bool ScriptEditorController::openFile(const QString &path)
{
    if (!resolveUnsaved())
        return false;
    const QFileInfo info(path);
    if (info.isDir())
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        showAlert(QStringLiteral("Error"), file.errorString() + u'\n' + path);
        return false;
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder.decode(file.readAll());
    if (decoder.hasError()) {
        showAlert(QStringLiteral("Error"), QStringLiteral("The file is not UTF-8 text.") + u'\n' + path);
        return false;
    }
    m_fileContent = text;
    m_contentIsDirty = false;
    setCurrentFile(info.absoluteFilePath());
    UserDefaults::standard()->setValue(selectedFileKey, m_currentFilePath);
    emit contentReplaced();
    notifyChange();
    return true;
}

void ScriptEditorController::setCurrentFile(const QString &path)
{
    if (m_currentFilePath == path)
        return;
    m_currentFilePath = path;
    FileHistoryManager::shared()->add(path);
    emit fileChanged();
}

bool ScriptEditorController::saveScript()
{
    if (m_currentFilePath.isEmpty())
        return saveScriptAs();
    return saveTo(m_currentFilePath);
}

bool ScriptEditorController::saveScriptAs()
{
    if (!m_panels)
        return false;
    const QString proposed = m_currentFilePath.isEmpty() ? QStringLiteral("untitled.js") : QFileInfo(m_currentFilePath).fileName();
    const std::optional<QString> chosen = m_panels->chooseSaveLocation(proposed);
    if (!chosen)
        return false;
    return saveTo(*chosen);
}

bool ScriptEditorController::saveTo(const QString &path)
{
    if (const std::optional<QString> failed = AtomicFile::write(path, m_fileContent.toUtf8())) {
        showAlert(QStringLiteral("Error"), *failed + u'\n' + path);
        return false;
    }
    m_contentIsDirty = false;
    setCurrentFile(QFileInfo(path).absoluteFilePath());
    UserDefaults::standard()->setValue(selectedFileKey, m_currentFilePath);
    notifyChange();
    return true;
}

void ScriptEditorController::textChanged(const QString &text)
{
    if (text == m_fileContent)
        return;
    m_fileContent = text;
    if (!m_contentIsDirty) {
        m_contentIsDirty = true;
        // The matches' ranges are stale once the text moves.
        m_search->clearMatches();
        notifyChange();
    }
}

void ScriptEditorController::runScript(const QString &handlerName, const QJsonObject &params)
{
    if (m_currentFilePath.isEmpty()) {
        showAlert(QStringLiteral("Error"), QStringLiteral("No script file loaded."));
        return;
    }
    if (m_fileContent.isEmpty()) {
        showAlert(QStringLiteral("Error"), QStringLiteral("No script file content."));
        return;
    }
    if (m_contentIsDirty && !saveScript())
        return;
    const QString json = QString::fromUtf8(QJsonDocument(params).toJson(QJsonDocument::Indented));
    m_log->log(QStringLiteral("[Script] Running script: ") + m_currentFilePath, -1, MCPLogMessageType::Info);
    const QString sid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    const JSONToolResult result = PluginScripting::callScript(sid, m_currentFilePath, handlerName, json);
    m_log->log(QStringLiteral("[Script] Result: ") + result.json(), -1, MCPLogMessageType::Info);
}
