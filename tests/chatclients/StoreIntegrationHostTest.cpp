#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/integrations/StoreIntegrationHost.h"
#include "store/ServerAccessSettings.h"
#include "store/ServerConfig.h"
#include "store/ServerQueryService.h"
#include "tests/config/ConfigTestFixture.h"

#include <QSettings>

class StoreIntegrationHostTest : public ConfigTestFixture {};

TEST_F(StoreIntegrationHostTest, TheRunningServerListsTheEnabledStoreToolsAndTheLocalServerHeadsThePayloads)
{
    addTool("alpha");
    addTool("beta");
    ServerConfig *server = ServerQueryService::fetchOrCreateServerConfig(context).valueOr(nullptr);
    ASSERT_NE(server, nullptr);
    server->setServerTitle(QString("  Studio Server "));
    server->setPort(3456);
    ASSERT_TRUE(context->save());
    bridge.registerTool(QVariantMap{{"name", "leftover"}}, [](const QJsonObject &, const ToolInvocation &) { return std::optional<QJsonValue>(); });

    StoreIntegrationHost host(context, router.get());
    QSettings defaults(root + "/Kelvara.conf", QSettings::IniFormat);
    MCPIntegrationManager manager(defaults, host);
    MCPIntegration local;
    local.kind = MCPIntegration::Kind::plugin;
    local.isEnabled = true;
    manager.syncTools(local);
    ASSERT_EQ(local.integratedTools.size(), 2);
    EXPECT_EQ(local.integratedTools[0].name(), "alpha");
    local.setToolEnabled("beta", true);
    manager.add(local);

    EXPECT_EQ(bridge.listTools(), QStringList({"beta"}));
    const QJsonArray payloads = manager.integrationPayloads();
    ASSERT_EQ(payloads.size(), 1);
    // LM Studio gets the token the server asks its clients for.
    EXPECT_EQ(payloads.at(0).toObject(),
              QJsonObject({{"type", "ephemeral_mcp"}, {"server_label", "Studio Server"}, {"server_url", "http://127.0.0.1:3456"},
                           {"headers", QJsonObject{{"Authorization", "Bearer " + ServerAccessSettings::token()}}}}));
}
