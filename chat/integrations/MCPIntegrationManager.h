#pragma once

#include "chat/integrations/MCPIntegration.h"
#include "chat/integrations/MCPIntegrationHost.h"

#include <QJsonArray>
#include <QObject>
#include <QSettings>
#include <optional>

// The chat's list of MCP integrations: stored under "mcp.servers" in the user defaults, turned
// into the `integrations` array of an LM Studio chat, and applied to the running local server
// so that it lists exactly the enabled tools. The application has one, which every chat
// window and the server screen share. Main thread; the host outlives the manager.
class MCPIntegrationManager : public QObject {
    Q_OBJECT

public:
    // Loads the stored list (an unreadable one counts as none) and syncs each integration's tools.
    MCPIntegrationManager(QSettings &defaults, MCPIntegrationHost &host, QObject *parent = nullptr);

    const QList<MCPIntegration> &servers() const { return m_servers; }

    void add(const MCPIntegration &server);
    // Replaces the entry with the same id; an unknown id changes nothing.
    void update(const MCPIntegration &server);
    void remove(const QUuid &id);
    void toggleEnabled(const QUuid &id);
    // Stores the list, then applies it to the running server.
    void save();

    // New store tools first (off), then the known ones still in the store in their old order.
    void syncTools(MCPIntegration &server);
    // The local server first (when its tools are chosen), then the remote ones in list order,
    // leaving out any remote URL that is the local server itself.
    QJsonArray integrationPayloads() const;
    // Resets the running server's tools and registers the enabled ones of enabled integrations.
    // Each step goes to the application's log.
    void applyToLiveServer();
    // When the integrations leave the running server fewer tools than the store has, says so:
    // "Serving 2 of 24 tools: limited by the AI Chat integration 'kelvara'". Empty otherwise.
    QString limitNotice() const;
    // Switches on every tool of the Internal Tools integrations (and the integrations), stores
    // and applies it, so the server serves all of them again.
    void serveAllTools();

    QString localServerLabel() const;
    std::optional<QString> localServerURL() const;
    // Whether a URL points at the local server's port on a loopback name.
    static bool pointsAt(const QString &url, const QString &localURL);

    static constexpr const char *persistKey = "mcp.servers";

signals:
    // The list was stored and applied: what the server serves, and limitNotice(), may differ.
    void changed();

private:
    void load();

    QSettings &m_defaults;
    MCPIntegrationHost &m_host;
    QList<MCPIntegration> m_servers;
};
