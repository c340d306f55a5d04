#pragma once

#include "engine/bridge/BridgeError.h"
#include "engine/MCPTypes.h"
#include "engine/bridge/MCPServerConfiguration.h"
#include "engine/bridge/ResourceReading.h"
#include "engine/bridge/ToolInvocation.h"

#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace MCP {
class IMCPTransport;
class MCPHttpTransport;
class MCPServer;
}

// The one seam between the application layer and the engine: the application's composition
// root makes one, which owns the MCP server for the whole run. It converts configurations given as variant maps
// into the engine's definitions, wraps the application's callbacks, and delivers the
// engine's log lines on the Qt main thread, in order.
class MCPServerBridge {
public:
    // Gets the client's arguments as they came and the call's context; gives the result
    // (a tool result object), or nothing.
    using ToolHandler = std::function<std::optional<QJsonValue>(const QJsonObject &arguments, const ToolInvocation &call)>;
    // Gets the resource in its "resources/list" form; gives its content, or why it failed.
    using ResourceProvider = std::function<ResourceReading(const QVariantMap &resource)>;
    // Gets the request's params; gives the rendered prompt.
    using PromptRenderer = std::function<QString(const QVariantMap &params)>;
    // Gets the script a record names for its completion values, the argument's name, what
    // was typed and the arguments given so far; gives the values (unfiltered).
    using CompletionRunner = std::function<QStringList(const QString &script, const QString &argument,
                                                       const QString &typed, const QVariantMap &given)>;
    // Always called on the Qt main thread.
    using LogHandler = std::function<void(int type, int code, const QString &message)>;

    MCPServerBridge();
    ~MCPServerBridge();
    MCPServerBridge(const MCPServerBridge &) = delete;
    MCPServerBridge &operator=(const MCPServerBridge &) = delete;

    QString serverName() const { return m_serverName; }
    void setServerName(const QString &name) { m_serverName = name; }
    QString serverVersion() const { return m_serverVersion; }
    void setServerVersion(const QString &version) { m_serverVersion = version; }

    void setLogHandler(LogHandler handler);
    // The engine's lines less severe than this (0 critical to 4 debug) are neither built
    // nor delivered; at 3 (info) and above no request or response body is formatted.
    void setLogLevel(int type);
    // Engine level to application level: 0 to 4 stay, anything else becomes 3 (Info).
    static int convertLogType(int type);

    void configureWithConfiguration(const MCPServerConfiguration &configuration);
    MCPServerConfiguration getConfiguration() const;

    // On failure fills error (when given) with domain "MCPServerBridge", code 1001, and the
    // transport's reason ("Failed to start MCP server: Failed to bind socket to port 8888:
    // Address already in use").
    bool startOnPort(int port, bool listenAtAll, BridgeError *error);
    // The port the server listens on (the system's choice for port 0), or -1.
    int listeningPort() const;

    // The HTTP listener's access rules and limits, for connections accepted from now on
    // (the connection cap at the next start). Keys, each optional: "allowedOrigins" (string
    // list), "bearerToken" (empty: none required), "receiveTimeout" (seconds, 0 for none),
    // "maxConnections" (0: from the open-file limit), "maxConnectionsPerPeer" (0: a quarter
    // of those), "maxBodyBytes", "maxHeadBytes", "maxBufferedBytes" (0: no limit),
    // "keepAlive" (bool), "idleTimeout" (seconds), "maxRequestsPerConnection".
    // Ignored while another transport than HTTP is in place.
    void setAccessPolicy(const QVariantMap &policy);
    QVariantMap accessPolicy() const;
    // Puts another transport in place of the HTTP listener (while stopped).
    void setTransport(std::unique_ptr<MCP::IMCPTransport> transport);
    void stop();
    bool isRunning() const;
    // The process's last act with the server: stops it and waits at most `limit` until no
    // request is being handled or answered any more. True when none is.
    bool waitUntilIdle(std::chrono::milliseconds limit);

    void resetRegistry();
    void resetPromotRegistry();
    void resetResourceRegistry();
    void resetToolRegistry();

    // Each reads the keys of the configuration that are present; a configuration without
    // its key field ("name" or "uri") is logged to the system log and registers nothing.
    void registerTool(const QVariantMap &configuration, ToolHandler handler);
    // A "valuesScript" of the resource (or of a prompt's argument) is run by completions,
    // when given, for completion/complete.
    void registerResource(const QVariantMap &configuration, ResourceProvider provider, CompletionRunner completions = {});
    void registerPrompt(const QVariantMap &configuration, PromptRenderer renderer, CompletionRunner completions = {});
    void unregisterToolWithName(const QString &name);
    void unregisterResourceWithURI(const QString &uri);
    void unregisterPromptWithName(const QString &name);

    // Resource subscriptions. The watch is told, on an engine worker, when a URI gains its
    // first subscriber (true) and loses its last one (false), with the resource's type; it
    // must only hand the news on (never call back into the bridge there). Any source of a
    // resource, a file watcher or a provider of its own, says "changed" through
    // resourceChanged, from any thread; each subscribed session hears of it.
    using ResourceWatch = std::function<void(const QString &uri, const QString &type, bool watch)>;
    void setResourceWatch(ResourceWatch watch);
    void resourceChanged(const QString &uri);

    QStringList listTools() const;
    QStringList listResources() const;
    QStringList listPrompts() const;

    MCP::MCPServer &server() { return *m_cppServer; }

    // The conversions of configuration values, public for the tests.
    static QString cleanToken(const QString &text);
    static MCP::ToolSchema convertToolSchema(const QVariantMap &schema);
    static MCP::ToolSchemaProperty convertToolSchemaProperty(const QVariantMap &property);
    static MCP::ToolAnnotations convertAnnotations(const QVariantMap &annotations);
    static std::vector<std::string> convertContextTags(const QString &text);
    static std::vector<MCP::RelatedResource> convertRelatedResources(const QString &text);
    // The present time as 2025-01-02T03:04:05.678Z (UTC, milliseconds).
    static QString currentTimestamp();

private:
    struct LogSink;
    void setupLogCallback();
    MCP::ResourceDefinition provideResource(const MCP::ResourceDefinition &definition);
    std::string renderPrompt(const std::string &name, const MCP::JSONValue &params);

    QString m_serverName = QStringLiteral("Kelvara Server");
    QString m_serverVersion = QStringLiteral("1.0.0");
    std::shared_ptr<LogSink> m_logSink;
    std::unique_ptr<MCP::MCPServer> m_cppServer;
    MCP::MCPHttpTransport *m_http = nullptr;  // owned by m_cppServer while it is its transport
    mutable std::mutex m_blocksMutex;  // the two tables are read on transport workers
    QHash<QString, ResourceProvider> m_resourceProviders;
    QHash<QString, PromptRenderer> m_promptRenderers;
};
