#pragma once

#include "chat/integrations/MCPIntegrationHost.h"

class MCPServer;
class StoreContext;

// The integrations' host over the configuration store and the application's MCP server: the
// store's tools as JSON configs, the configured server's label and port, and the running
// server's tool registry, whose handlers lead into the tool router. Main thread.
class StoreIntegrationHost : public MCPIntegrationHost {
public:
    StoreIntegrationHost(StoreContext *context, MCPServer *router);

    std::optional<QList<QJsonObject>> toolConfigs() override;
    QString serverLabel() override;
    int serverPort() override;
    QString serverToken() override;
    void resetToolRegistry() override;
    void registerTool(const QJsonObject &config) override;

private:
    StoreContext *m_context;
    MCPServer *m_router;
};
