#pragma once

#include "diagnostics/MCPLogMessageType.h"
#include "tools/router/JSONToolConfig.h"
#include "tools/results/JSONToolResult.h"
#include "engine/bridge/ResourceReading.h"
#include "engine/bridge/ToolInvocation.h"

#include <QJsonObject>
#include <QString>
#include <QVariantMap>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

class ExternToolBridge;
class LogController;
class MCPServerBridge;
class PluginController;
class ResourceFileWatcher;

// The application's side of the engine's three callbacks: a tool call, a resource read and
// a prompt request arrive here from the bridge, on an engine worker. The router checks what
// arrived, picks the executor by the tool's `toolType` and `execMethod`, and shapes the
// answer into a JSONToolResult. Not the engine's MCP::MCPServer.
//
// Any thread: it keeps no per-call state; everything a call needs comes with its arguments,
// its context and the tool's configuration record. Failures come back as error results
// (ToolError, code -1), never as exceptions.
class MCPServer {
public:
    // Installs a log handler in the bridge that passes each engine line to the log.
    MCPServer(LogController *logger, MCPServerBridge *bridge, PluginController *toolController);
    ~MCPServer();
    // Takes back the resource watch the router gave the bridge; whoever destroys the bridge
    // before the router calls this first.
    void releaseBridge();
    MCPServer(const MCPServer &) = delete;
    MCPServer &operator=(const MCPServer &) = delete;

    LogController *logger() const { return m_logger; }
    MCPServerBridge *bridge() const { return m_bridge; }
    PluginController *toolController() const { return m_toolController; }
    // HTTP access for link resources, made on first use.
    ExternToolBridge &httpBridge();

    // The bind flag the server was last started with.
    bool listenAtAll() const { return m_listenAtAll.load(); }
    void setListenAtAll(bool value) { m_listenAtAll.store(value); }

    // A tool call: the client's arguments as they came, the tool's configuration (which says
    // where the call goes) and the call's context (whose session id the executors get).
    JSONToolResult handleToolCall(const QJsonObject &arguments, const JSONToolConfig &config, const ToolInvocation &call);
    // A resource read: the resource in its "resources/list" form; gives the content: the
    // file's text for a textual MIME type, its bytes for another, a link's body, or why
    // it could not be read (logged as well).
    ResourceReading handleResource(const QVariantMap &resource);
    // A resource whose content a script gives: its "readResource" handler gets the template's
    // variables as its arguments ({} for a resource that is no template). The text items of
    // its answer are the text; an image, audio or blob item gives bytes instead.
    ResourceReading readScriptResource(const QVariantMap &resource, const QString &script);
    // Completion values from a script: its "complete" handler gets {argument, value,
    // arguments} (the name, what was typed, the arguments given so far) and answers with a
    // JSON array of values, or one value a line. Nothing when it fails (logged).
    QStringList completeWithScript(const QString &script, const QString &argument, const QString &typed,
                                   const QVariantMap &given);
    // Whether content of this MIME type is given as text (an empty type counts as text).
    static bool isTextual(const QString &mimeType);
    // A prompt request: its params. Prompts are listed but not rendered.
    QString handlePrompt(const QVariantMap &params);

    // Adds each property of the output schema that the result's structured content lacks,
    // with the neutral value of its type. Only adds; content is not touched.
    static void applyOutputSchema(JSONToolResult &result, const JSONToolSchema &outputSchema);

    // What the built-in and script executors get: the object under `arguments` when there is
    // one, else the whole arguments. Nothing when `arguments` is there but is no object.
    static std::optional<QJsonObject> effectiveParameters(const QJsonObject &arguments);

    static inline const QString promptNotImplementedText = QStringLiteral("Error: Prompt handler not implemented yet");

private:
    ResourceReading readBytes(const QString &path);
    JSONToolResult route(const QJsonObject &arguments, const JSONToolConfig &config, const ToolInvocation &call);
    JSONToolResult callBuiltin(const QString &name, const QString &execMethod, const QJsonObject &arguments);
    JSONToolResult callPlugin(const QJsonObject &arguments, const JSONToolConfig &config, const ToolInvocation &call);
    JSONToolResult callScript(const QJsonObject &arguments, const JSONToolConfig &config, const QString &execHandler,
                              const ToolInvocation &call);
    // Where plug-in tools reach the plug-in registry.
    JSONToolResult runPlugin(const QString &sessionId, const QString &pluginName, const QString &json);
    // Pretty-printed JSON text of a parameter object, or the error result of the failure.
    std::optional<QString> jsonText(const QJsonObject &value, JSONToolResult *failure);
    JSONToolResult fail(const QString &message, MCPLogMessageType level);

    LogController *m_logger;
    MCPServerBridge *m_bridge;
    PluginController *m_toolController;
    std::atomic<bool> m_listenAtAll{false};
    std::once_flag m_httpBridgeOnce;
    std::unique_ptr<ExternToolBridge> m_httpBridge;
    // The files of subscribed resources; made with the router, on its thread.
    std::unique_ptr<ResourceFileWatcher> m_fileWatcher;
    // Shared with the bridge's log handler, which must not reach a router that is gone.
    std::shared_ptr<std::atomic<bool>> m_alive;
};
