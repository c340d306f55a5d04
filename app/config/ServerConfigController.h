#pragma once

#include "base/AbstractController.h"

#include <QString>
#include <QStringList>
#include <optional>

class ConfigurationController;
class DesktopNotifier;
class LogController;
class MCPIntegrationManager;
class MCPServer;
class ServerConfig;
class StoreContext;

// The controller of the server screen, and the only place from which the engine is
// started and stopped. It edits the single ServerConfig row and the bind flag; Start runs
// a fixed pipeline: clear the log, save pending changes, export the configuration (which
// registers every tool, resource and prompt with the engine) and open the listener.
//
// Main thread only. The engine's stop alone runs on the global thread pool.
class ServerConfigController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(bool hasUnsavedChanges READ hasUnsavedChanges NOTIFY hasUnsavedChangesChanged)
    Q_PROPERTY(bool isServerRunning READ isServerRunning NOTIFY isServerRunningChanged)
    Q_PROPERTY(QString serverStatusMessage READ serverStatusMessage NOTIFY serverStatusMessageChanged)
    Q_PROPERTY(bool isStarting READ isStarting NOTIFY isStartingChanged)
    Q_PROPERTY(bool listenAtAll READ listenAtAll WRITE setListenAtAll NOTIFY listenAtAllChanged)
    Q_PROPERTY(bool canStart READ canStart NOTIFY changed)
    Q_PROPERTY(QString accessToken READ accessToken NOTIFY accessChanged)
    Q_PROPERTY(bool requireToken READ requireToken WRITE setRequireToken NOTIFY accessChanged)
    Q_PROPERTY(bool tokenOnLoopback READ tokenOnLoopback WRITE setTokenOnLoopback NOTIFY accessChanged)
    Q_PROPERTY(bool tokenRequired READ tokenRequired NOTIFY accessChanged)
    Q_PROPERTY(QStringList allowedOrigins READ allowedOrigins NOTIFY accessChanged)
    Q_PROPERTY(bool servesOutdatedConfiguration READ servesOutdatedConfiguration NOTIFY servedConfigurationChanged)
    Q_PROPERTY(QString toolLimitNotice READ toolLimitNotice NOTIFY toolLimitChanged)

public:
    // The user default behind the bind flag; absent reads as false.
    static inline const QString listenAllDefaultsKey = QStringLiteral("mcp.server.listen.all");

    static inline const QString statusStopped = QStringLiteral("MCP Server stopped");
    static inline const QString statusStarting = QStringLiteral("Starting MCP Server...");
    static inline const QString statusExporting = QStringLiteral("Exporting configurations...");
    static inline const QString statusCreating = QStringLiteral("Creating server...");
    static inline const QString statusStartingServer = QStringLiteral("Starting server...");
    static inline const QString statusRunning = QStringLiteral("MCP Server running");
    static inline const QString statusStopping = QStringLiteral("Stopping MCP Server...");
    static inline const QString statusFailedPrefix = QStringLiteral("Failed to start MCP Server: ");

    // While the running server serves something else than the saved configuration.
    static inline const QString outdatedText =
        QStringLiteral("The running server does not serve your saved changes yet.");
    static inline const QString applyAndRestartText = QStringLiteral("Apply and restart");

    static inline const QString saveFailedText = QStringLiteral("Failed to save configuration. Please check your settings.");
    static inline const QString invalidPortText = QStringLiteral("Invalid port number.");

    // Subscribes to the context and its own channels, and queues sync(). The AI Chat's
    // integrations, when given, are applied to every start and may limit the served tools.
    ServerConfigController(StoreContext *context, ConfigurationController *exportService, MCPServer *router,
                           MCPIntegrationManager *integrations = nullptr, QObject *parent = nullptr);
    ~ServerConfigController() override;

    ServerConfig *serverConfig() const { return m_serverConfig; }
    bool hasUnsavedChanges() const { return m_hasUnsavedChanges; }
    bool isServerRunning() const { return m_isServerRunning; }
    QString serverStatusMessage() const { return m_serverStatusMessage; }
    bool isStarting() const { return m_isStarting; }
    bool listenAtAll() const { return m_listenAtAll; }
    // The toggle "Listen all interfaces:": marks the screen unsaved; the default is written
    // only by save().
    void setListenAtAll(bool value);

    StoreContext *context() const { return m_context; }
    ConfigurationController *exportService() const { return m_exportService; }
    LogController *logController() const { return m_logController; }
    MCPServer *router() const { return m_router; }

    // hasUnsavedChanges while the server is not running.
    bool canSave() const override;
    // Not running, not starting, nothing unsaved.
    bool canStart() const;

    // Reloads the row, the running state, the status line and the flag.
    void sync();
    // sync() as a later step on the main thread, as the screen asks for it when it appears.
    void queueSync();
    // Saves the context, then writes the flag's default. A failure raises the alert
    // "Failed to save configuration. Please check your settings." and keeps the changes.
    bool save();
    // Drops pending changes, queues sync(), restores the flag from the default.
    void revert();
    // The start pipeline; nothing while running (or already starting).
    void start();
    // The stop sequence; nothing unless running.
    void stop();
    // "Apply and restart": stops the running server, waits for its listener to close and
    // starts it again from the saved configuration; a start when it is not running.
    void applyAndRestart();
    // Running, and what it serves (tools, resources, prompts, the server row, the bind
    // flag, the plug-ins) differs from what is saved: after a save, an import, a plug-in
    // change or a port change.
    bool servesOutdatedConfiguration() const { return m_outdated; }
    // "Serving 2 of 24 tools: limited by the AI Chat integration 'kelvara'" while the AI
    // Chat's integrations leave the server fewer tools than the store holds; else empty.
    QString toolLimitNotice() const { return m_toolLimitNotice; }
    // Switches every internal tool of the integrations on again, so all are served.
    void serveAllTools();
    // Why Start is disabled, for its tooltip; empty while it is enabled.
    QString startDisabledReason() const;
    // What to do after an import so that clients get what was imported.
    QString importHint() const;
    // Validates and stores the port. Anything but a decimal signed 16-bit integer (with an
    // optional sign) raises the alert "Invalid port number." and keeps the stored port.
    void setPort(const QString &text);
    // hasUnsavedChanges = the context's hasChanges or force.
    void updateUnsaved(bool force);

    // The port the running server listens on (the system's choice for port 0), else the
    // stored one.
    int listeningPort() const;

    // Access: the token clients send when one is required, renewable (the running server
    // keeps the old one until it is started again); the requirement on all interfaces,
    // which may be turned off with a warning; the origins web pages may call from.
    QString accessToken() const;
    void renewAccessToken();
    bool requireToken() const;
    // Turning it off raises the alert with ServerAccessSettings::tokenOffWarning.
    void setRequireToken(bool value);
    // Whether a loopback-only server asks for the token too (on by default); turning it off
    // raises the alert with ServerAccessSettings::loopbackTokenOffWarning.
    bool tokenOnLoopback() const;
    void setTokenOnLoopback(bool value);
    // Whether the next start (or the running server) asks for the token.
    bool tokenRequired() const;
    // What an MCP client is configured with, as the JSON that MCP hosts take for an HTTP
    // server: {"mcpServers": {"kelvara": {"type": "http", "url": …, "headers": …}}}, the
    // header only while the token is asked for; `kelvara mcp-config --http` prints the same.
    QString clientConfiguration() const;
    // Why the last start failed beyond its status line: the records that could not be
    // exported, one line each. Empty after a start that got past the export.
    QStringList startFailureDetails() const { return m_startFailureDetails; }
    QStringList allowedOrigins() const;
    // One origin per line or separated by commas; an entry that is not an origin raises
    // an alert naming it and nothing is stored. True when stored.
    bool setAllowedOriginsText(const QString &text);
    // For one run (kelvara serve): origins allowed besides the stored ones, and a token
    // requirement that replaces the stored one.
    void setRunOptions(const QStringList &extraOrigins, std::optional<bool> tokenRequired,
                       std::optional<bool> keepAlive = std::nullopt);

    // The value setPort() accepts for text, if any.
    static std::optional<qint16> parsePort(const QString &text);
    // Where the start and stop notifications go; nullptr for DesktopNotifier::shared().
    void setNotifier(DesktopNotifier *notifier) { m_notifier = notifier; }

signals:
    // The screen's event channels.
    void saveButtonTapped();
    void revertButtonTapped();
    void startButtonTapped();
    void stopButtonTapped();

    void serverConfigChanged();
    void hasUnsavedChangesChanged();
    void isServerRunningChanged();
    void serverStatusMessageChanged();
    void isStartingChanged();
    void listenAtAllChanged();
    void accessChanged();
    void servedConfigurationChanged();
    void toolLimitChanged();

private:
    void runStartPipeline();
    void failStart(const QString &description);
    void postNotification();
    void setServerConfig(ServerConfig *config);
    void setHasUnsavedChanges(bool value);
    void setServerRunning(bool value);
    void setStatus(const QString &text);
    void setStarting(bool value);
    void applyListenAtAll(bool value);
    static bool storedListenAtAll();
    // What is saved now; the store's part is read again only while nothing is pending.
    void refreshSavedFingerprint();
    QByteArray pluginFingerprint() const;
    void compareServed();
    void refreshToolLimit();

    StoreContext *m_context;
    ConfigurationController *m_exportService;
    MCPServer *m_router;
    MCPIntegrationManager *m_integrations;
    LogController *m_logController;
    DesktopNotifier *m_notifier = nullptr;

    ServerConfig *m_serverConfig = nullptr;
    bool m_hasUnsavedChanges = false;
    bool m_isServerRunning = false;
    QString m_serverStatusMessage;
    bool m_isStarting = false;
    QString m_toolLimitNotice;
    bool m_listenAtAll = false;
    QStringList m_runOrigins;
    std::optional<bool> m_runTokenRequired;
    QStringList m_startFailureDetails;
    std::optional<bool> m_runKeepAlive;
    QByteArray m_savedStore;
    QByteArray m_servedStore;
    QByteArray m_servedPlugins;
    bool m_servedListenAtAll = false;
    bool m_outdated = false;
    bool m_restarting = false;
};
