#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

// What the integrations need of the layers above the chat: the store's tools, the local
// server's name and port, and the running server's tool registry. The app implements it over
// the store and the server bridge. Called on the main thread; the registry calls may come while
// the server runs (the bridge locks).
class MCPIntegrationHost {
public:
    virtual ~MCPIntegrationHost() = default;

    // The JSON configs of the store's tools, ordered by name; nothing when the fetch failed.
    // Rows that can't be built are left out (and logged) by the host.
    virtual std::optional<QList<QJsonObject>> toolConfigs() = 0;
    // The configured server's title, else its name, else the application's name (may be blank).
    virtual QString serverLabel() = 0;
    virtual int serverPort() = 0;
    // The bearer token the local server asks its clients for (empty: none). LM Studio sends
    // it on every call into the server, which refuses calls without it.
    virtual QString serverToken() = 0;
    virtual void resetToolRegistry() = 0;
    // Registers a tool whose calls lead into the tool router; served at once.
    virtual void registerTool(const QJsonObject &config) = 0;
};
