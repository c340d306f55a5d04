#include "chat/integrations/StoreIntegrationHost.h"

#include "engine/bridge/MCPServerBridge.h"
#include "store/ConfigurationController.h"
#include "store/ServerAccessSettings.h"
#include "store/ServerConfig.h"
#include "store/ServerQueryService.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"
#include "tools/router/MCPServer.h"
#include "tools/scripting/PluginScripting.h"
#include "tools/security/FileAccessPolicy.h"

#include <QCoreApplication>
#include <QtDebug>

StoreIntegrationHost::StoreIntegrationHost(StoreContext *context, MCPServer *router)
    : m_context(context), m_router(router)
{
}

std::optional<QList<QJsonObject>> StoreIntegrationHost::toolConfigs()
{
    const Result<QList<ToolsConfig *>> tools = ToolsQueryService::fetchTools(m_context);
    if (!tools) {
        qWarning().noquote() << QStringLiteral("[MCP-IM] Failed to fetch ToolsConfig: %1").arg(tools.error().toString());
        return std::nullopt;
    }
    QList<QJsonObject> configs;
    for (const ToolsConfig *tool : *tools) {
        if (tool->name().value_or(QString()).trimmed().isEmpty())
            continue;
        const Result<JSONToolConfig> config = ConfigurationController::toolConfig(tool);
        if (!config) {
            qWarning().noquote() << QStringLiteral("[MCP-IM] Failed to build config for '%1': %2")
                                        .arg(tool->name().value_or(QString()), config.error().description);
            continue;
        }
        configs.append(config->toJson());
    }
    return configs;
}

QString StoreIntegrationHost::serverLabel()
{
    const ServerConfig *server = ServerQueryService::fetchServerConfig(m_context).valueOr(nullptr);
    if (server) {
        if (server->serverTitle() && !server->serverTitle()->trimmed().isEmpty())
            return *server->serverTitle();
        if (server->serverName() && !server->serverName()->trimmed().isEmpty())
            return *server->serverName();
    }
    return QCoreApplication::applicationName();
}

int StoreIntegrationHost::serverPort()
{
    const ServerConfig *server = ServerQueryService::fetchServerConfig(m_context).valueOr(nullptr);
    return server ? server->port() : 0;
}

QString StoreIntegrationHost::serverToken()
{
    // Sent whether or not this run asks for it: a server that asks for none ignores it.
    return ServerAccessSettings::token();
}

void StoreIntegrationHost::resetToolRegistry()
{
    m_router->bridge()->resetToolRegistry();
}

void StoreIntegrationHost::registerTool(const QJsonObject &object)
{
    const Result<JSONToolConfig> config = JSONToolConfig::fromJson(object);
    if (!config) {
        qWarning().noquote() << QStringLiteral("[MCP-IM] Failed to build config for '%1': %2")
                                    .arg(object.value("name").toString(), config.error().description);
        return;
    }
    // What the server runs on request is never rewritten through its own tools.
    if (config->toolType == QLatin1String("ScriptTool"))
        FileAccessPolicy::addScriptSource(PluginScripting::resolvedScriptPath(config->scriptName));
    MCPServer *router = m_router;
    // The handler keeps its own copy of the config for as long as the tool is registered.
    m_router->bridge()->registerTool(config->toVariant(), [router, config = *config](const QJsonObject &arguments,
                                                                                     const ToolInvocation &call) {
        return std::optional<QJsonValue>(router->handleToolCall(arguments, config, call).toJsonObject());
    });
}
