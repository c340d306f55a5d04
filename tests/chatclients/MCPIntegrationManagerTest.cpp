#include "chat/integrations/MCPIntegrationManager.h"
#include "diagnostics/LogController.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

namespace {

QJsonObject tool(const QString &name)
{
    return QJsonObject{{"name", name}, {"description", name + " does things"}};
}

struct FakeHost : MCPIntegrationHost {
    std::optional<QList<QJsonObject>> configs = QList<QJsonObject>{tool("alpha"), tool("beta")};
    QString label = "My Server";
    int port = 3000;
    QString token;
    QStringList registry; // what the running server lists
    int resets = 0;

    std::optional<QList<QJsonObject>> toolConfigs() override { return configs; }
    QString serverLabel() override { return label; }
    int serverPort() override { return port; }
    QString serverToken() override { return token; }
    void resetToolRegistry() override
    {
        ++resets;
        registry.clear();
    }
    void registerTool(const QJsonObject &config) override { registry << config.value("name").toString(); }
};

QStringList names(const MCPIntegration &server)
{
    QStringList list;
    for (const ToolIntegration &tool : server.integratedTools)
        list << tool.name() + (tool.isEnabled ? "+" : "-");
    return list;
}

MCPIntegration remote(const QString &label, const QString &url)
{
    MCPIntegration server;
    server.label = label;
    server.url = url;
    server.isEnabled = true;
    return server;
}

class MCPIntegrationManagerTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QSettings defaults{dir.filePath("Kelvara.conf"), QSettings::IniFormat};
    FakeHost host;
};

} // namespace

TEST_F(MCPIntegrationManagerTest, SyncPutsNewToolsFirstOffAndDropsDeletedOnes)
{
    MCPIntegrationManager manager(defaults, host);
    MCPIntegration local;
    local.kind = MCPIntegration::Kind::plugin;
    manager.syncTools(local);
    EXPECT_EQ(names(local), QStringList({"alpha-", "beta-"}));
    local.setToolEnabled("beta", true);

    QJsonObject edited = tool("beta");
    edited.insert("description", "beta does more");
    host.configs = QList<QJsonObject>{tool("alpha"), edited, tool("gamma"), tool("  ")};
    manager.syncTools(local);
    EXPECT_EQ(names(local), QStringList({"gamma-", "alpha-", "beta+"}));
    // A known tool is served as the store now holds it, not as it was when it was ticked.
    EXPECT_EQ(local.integratedTools.at(2).config, edited);

    host.configs = QList<QJsonObject>{tool("gamma")};
    manager.syncTools(local);
    EXPECT_EQ(names(local), QStringList({"gamma-"}));

    // No tools at all, or a failed fetch: the choice stays as it is.
    local.setToolsEnabled({"gamma", "nope"}, true);
    host.configs = QList<QJsonObject>{};
    manager.syncTools(local);
    host.configs.reset();
    manager.syncTools(local);
    EXPECT_EQ(names(local), QStringList({"gamma+"}));
}

TEST_F(MCPIntegrationManagerTest, RemoteDictionaryRules)
{
    MCPIntegration server = remote("  docs ", " https://mcp.example.org/sse ");
    server.headers = {{"Authorization", "Basic abc"}, {"X-Team", "kelvara"}};
    server.remoteToken = "   ";
    EXPECT_EQ(server.toDictionary()->value("headers").toObject().value("Authorization"), "Basic abc");
    server.remoteToken = " tok ";
    const QJsonObject object = *server.toDictionary();
    EXPECT_EQ(object.value("type"), "ephemeral_mcp");
    EXPECT_EQ(object.value("server_label"), "docs");
    EXPECT_EQ(object.value("server_url"), "https://mcp.example.org/sse");
    EXPECT_EQ(object.value("headers").toObject(), QJsonObject({{"Authorization", "Bearer tok"}, {"X-Team", "kelvara"}}));
    EXPECT_FALSE(object.contains("allowed_tools"));

    server.headers.clear();
    server.remoteToken.clear();
    EXPECT_FALSE(server.toDictionary()->contains("headers"));
    server.isEnabled = false;
    EXPECT_FALSE(server.toDictionary());
    server.isEnabled = true;
    server.label = " \n";
    EXPECT_FALSE(server.toDictionary());
    server.label = "docs";
    server.kind = MCPIntegration::Kind::plugin;
    EXPECT_FALSE(server.toDictionary());
}

TEST_F(MCPIntegrationManagerTest, PayloadsPutTheLocalServerFirstAndDropRemotesThatAreIt)
{
    MCPIntegrationManager manager(defaults, host);
    MCPIntegration local;
    local.kind = MCPIntegration::Kind::plugin;
    local.isEnabled = false; // the payload doesn't look at it
    manager.add(remote("one", "https://one.example/sse"));
    manager.add(local);
    manager.add(remote("two", "https://two.example/sse"));
    for (const char *self : {"http://localhost:3000/sse", "http://127.0.0.1:3000", "http://[::1]:3000/mcp"})
        manager.add(remote("self", self));
    manager.add(remote("other port", "http://localhost:3001"));

    // No tool chosen yet: only remote servers.
    QJsonArray payloads = manager.integrationPayloads();
    ASSERT_EQ(payloads.size(), 3);
    EXPECT_EQ(payloads.at(0)["server_label"], "one");

    MCPIntegration chosen = manager.servers().at(1);
    manager.syncTools(chosen); // as the editor does when it opens
    chosen.setToolEnabled("alpha", true);
    manager.update(chosen);
    payloads = manager.integrationPayloads();
    ASSERT_EQ(payloads.size(), 4);
    EXPECT_EQ(payloads[0].toObject(), QJsonObject({{"type", "ephemeral_mcp"}, {"server_label", "My Server"},
                                                   {"server_url", "http://127.0.0.1:3000"}}));
    // A server that asks for a token gets it from LM Studio on every call.
    host.token = QStringLiteral("s3cret");
    EXPECT_EQ(manager.integrationPayloads()[0].toObject(),
              QJsonObject({{"type", "ephemeral_mcp"}, {"server_label", "My Server"}, {"server_url", "http://127.0.0.1:3000"},
                           {"headers", QJsonObject{{"Authorization", "Bearer s3cret"}}}}));
    host.token.clear();
    EXPECT_EQ(payloads.at(1)["server_label"], "one");
    EXPECT_EQ(payloads.at(2)["server_label"], "two");
    EXPECT_EQ(payloads.at(3)["server_label"], "other port");

    // Port 0: no local payload, remote ones alone (and none is "the local server").
    host.port = 0;
    EXPECT_EQ(manager.integrationPayloads().size(), 6);

    EXPECT_TRUE(MCPIntegrationManager::pointsAt("http://LOCALHOST", "http://127.0.0.1:80"));
    EXPECT_FALSE(MCPIntegrationManager::pointsAt("http://localhost", "http://127.0.0.1:3000"));
    EXPECT_FALSE(MCPIntegrationManager::pointsAt("http://example.org:3000", "http://127.0.0.1:3000"));
}

TEST_F(MCPIntegrationManagerTest, TheLiveServerListsExactlyTheEnabledTools)
{
    host.registry = {"stale"};
    {
        MCPIntegrationManager empty(defaults, host);
        empty.applyToLiveServer();
        EXPECT_EQ(host.registry, QStringList({"stale"})); // no integrations: left alone
    }
    MCPIntegrationManager manager(defaults, host);
    MCPIntegration local;
    local.kind = MCPIntegration::Kind::plugin;
    manager.add(local);
    EXPECT_TRUE(host.registry.isEmpty());

    local = manager.servers().first();
    manager.syncTools(local);
    local.setToolsEnabled({"beta"}, true);
    manager.update(local);
    EXPECT_TRUE(host.registry.isEmpty()); // the integration itself is off
    manager.toggleEnabled(local.id);
    EXPECT_EQ(host.registry, QStringList({"beta"}));

    // A tool added to the store shows up off; one removed leaves the server.
    host.configs = QList<QJsonObject>{tool("beta"), tool("delta")};
    manager.applyToLiveServer();
    EXPECT_EQ(host.registry, QStringList({"beta"}));
    host.configs = QList<QJsonObject>{tool("delta")};
    manager.applyToLiveServer();
    EXPECT_TRUE(host.registry.isEmpty());
}

// The shrinking of what the server serves is said where the user looks: in a line for the
// screens and in the application's log; serving all again undoes it.
TEST_F(MCPIntegrationManagerTest, ALimitedServerIsToldAndCanServeAllAgain)
{
    MCPIntegrationManager manager(defaults, host);
    EXPECT_EQ(manager.limitNotice(), ""); // nothing applied yet
    MCPIntegration local;
    local.kind = MCPIntegration::Kind::plugin;
    local.isEnabled = true;
    manager.add(local);
    // A blank label is named by its kind; new tools are off, so nothing is served.
    EXPECT_EQ(manager.limitNotice(), "Serving 0 of 2 tools: limited by the AI Chat integration 'Internal Tools'");

    local = manager.servers().first();
    local.label = "kelvara";
    manager.syncTools(local);
    local.setToolsEnabled({"beta"}, true);
    manager.update(local);
    EXPECT_EQ(manager.limitNotice(), "Serving 1 of 2 tools: limited by the AI Chat integration 'kelvara'");
    // A switched-off integration serves none of its ticks.
    manager.toggleEnabled(local.id);
    EXPECT_EQ(manager.limitNotice(), "Serving 0 of 2 tools: limited by the AI Chat integration 'kelvara'");

    LogController::shared()->clear();
    QCoreApplication::processEvents();
    manager.serveAllTools();
    EXPECT_EQ(host.registry, QStringList({"alpha", "beta"}));
    EXPECT_TRUE(manager.servers().first().isEnabled);
    EXPECT_EQ(manager.limitNotice(), "");
    // Stored too: a new manager over the same defaults sees all on.
    MCPIntegrationManager reread(defaults, host);
    EXPECT_EQ(reread.servers().first().enabledTools().size(), 2);
    QCoreApplication::processEvents();
    QStringList logged;
    for (const LogEntry &entry : LogController::shared()->logEntries())
        logged.append(entry.message);
    EXPECT_TRUE(logged.contains("[MCP-IM] Remove tools from life server")) << logged.join('\n').toStdString();
    EXPECT_TRUE(logged.contains("[MCP-IM] Register enabled tool: beta"));

    // A tool the store no longer has doesn't count as served.
    host.configs = QList<QJsonObject>{tool("alpha"), tool("gamma")};
    EXPECT_EQ(manager.limitNotice(), "Serving 1 of 2 tools: limited by the AI Chat integration 'kelvara'");
}

TEST_F(MCPIntegrationManagerTest, TheListIsStoredAndReadBack)
{
    QUuid localId;
    {
        MCPIntegrationManager manager(defaults, host);
        MCPIntegration server = remote("docs", "https://docs.example/sse");
        server.headers = {{"X-Team", "kelvara"}};
        server.remoteToken = "tok";
        manager.add(server);
        MCPIntegration local;
        local.kind = MCPIntegration::Kind::plugin;
        manager.syncTools(local);
        local.setToolEnabled("alpha", true);
        localId = local.id;
        manager.add(local);
        manager.remove(QUuid::createUuid()); // unknown: nothing changes
    }
    const QJsonArray stored = QJsonDocument::fromJson(defaults.value("mcp.servers").toByteArray()).array();
    ASSERT_EQ(stored.size(), 2);
    EXPECT_EQ(stored[1]["kind"], "plugin");
    EXPECT_EQ(stored[1]["integratedTools"][0]["config"]["name"], "alpha");

    MCPIntegrationManager reread(defaults, host);
    ASSERT_EQ(reread.servers().size(), 2);
    EXPECT_EQ(reread.servers()[0].headers.value("X-Team"), "kelvara");
    EXPECT_EQ(reread.servers()[1].id, localId);
    EXPECT_EQ(names(reread.servers()[1]), QStringList({"alpha+", "beta-"}));
    reread.remove(localId);
    EXPECT_EQ(MCPIntegrationManager(defaults, host).servers().size(), 1);

    // Missing keys take their defaults; a list that doesn't decode counts as none.
    defaults.setValue("mcp.servers", QByteArray(R"([{"label":"bare","url":"https://x"}])"));
    const MCPIntegration bare = MCPIntegrationManager(defaults, host).servers().value(0);
    EXPECT_EQ(bare.kind, MCPIntegration::Kind::ephemeral);
    EXPECT_FALSE(bare.isEnabled);
    EXPECT_FALSE(bare.id.isNull());
    defaults.setValue("mcp.servers", QByteArray("{broken"));
    EXPECT_TRUE(MCPIntegrationManager(defaults, host).servers().isEmpty());
}
