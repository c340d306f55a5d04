#include "EngineTestSupport.h"

#include "engine/MCPServer.h"
#include "engine/bridge/MCPServerBridge.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QThread>
#include <gtest/gtest.h>

#include <mutex>

using MCP::JSONValue;

namespace {

// Captures what goes to the "kelvara.system" category.
class SystemLogCapture {
public:
    SystemLogCapture()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("kelvara.system=true"));
        s_lines.clear();
        m_previous = qInstallMessageHandler(&SystemLogCapture::handler);
    }
    ~SystemLogCapture()
    {
        qInstallMessageHandler(m_previous);
        QLoggingCategory::setFilterRules(QString());
    }
    static QStringList lines()
    {
        std::lock_guard lock(s_mutex);
        return s_lines;
    }

private:
    static void handler(QtMsgType, const QMessageLogContext &context, const QString &message)
    {
        if (context.category && QByteArray(context.category) == "kelvara.system") {
            std::lock_guard lock(s_mutex);
            s_lines.append(message);
        }
    }
    QtMessageHandler m_previous = nullptr;
    static inline std::mutex s_mutex;
    static inline QStringList s_lines;
};

QVariantMap toolConfig(const QString &name)
{
    return {{"name", name},
            {"toolType", "ScriptTool"},
            {"execHandler", " [\"script\"] "},
            {"execMethod", "\trun\n"},
            {"scriptName", "s.js"}};
}

std::string toolCall(const std::string &name, const std::string &arguments)
{
    return R"({"jsonrpc":"2.0","id":5,"method":"tools/call","params":{"name":")" + name + R"(","arguments":)" + arguments + "}}";
}

}  // namespace

TEST(MCPServerBridgeConversions, TokenCleaningAndSchemas)
{
    EXPECT_EQ(MCPServerBridge::cleanToken(QStringLiteral(" [\"a b\"]\t\n")), QStringLiteral("ab"));

    const QVariantMap schema{{"type", "object"},
                             {"properties", QVariantMap{{"list", QVariantMap{{"type", "array"}, {"defaultValue", "a, b"}}},
                                                        {"word", QVariantMap{{"defaultValue", "plain"}, {"name", "w"}}},
                                                        {"rows", QVariantMap{{"type", "array"},
                                                                             {"items", QVariantMap{{"content", "{\"x\":{}}"}}}}}}},
                             {"required", QVariantList{" \"list\" ", "[word]"}}};
    const MCP::ToolSchema converted = MCPServerBridge::convertToolSchema(schema);
    EXPECT_EQ(*converted.properties.at("list").defaultValue, "[\"a\",\"b\"]");
    EXPECT_EQ(converted.properties.at("word").type, "string");
    EXPECT_EQ(*converted.properties.at("word").defaultValue, "plain");
    EXPECT_EQ(*converted.properties.at("word").name, "w");
    ASSERT_TRUE(converted.properties.at("rows").items);
    EXPECT_EQ(converted.properties.at("rows").items->type, "null");
    EXPECT_EQ(*converted.properties.at("rows").items->properties, "{\"x\":{}}");
    EXPECT_EQ(*converted.required, (std::vector<std::string>{"list", "word"}));

    // In the engine the normalised default becomes an Array of the two strings.
    const JSONValue json = converted.toJSON();
    EXPECT_EQ(json.at("properties").at("list").at("default").asArray().at(1).asString(), "b");

    // An empty required list is present but prints nothing.
    const MCP::ToolSchema empty = MCPServerBridge::convertToolSchema({{"required", QVariantList{}}});
    ASSERT_TRUE(empty.required);
    EXPECT_FALSE(empty.toJSON().contains("required"));
    EXPECT_FALSE(MCPServerBridge::convertToolSchema({}).required);
}

TEST(MCPServerBridgeConversions, Annotations)
{
    const MCP::ToolAnnotations defaults = MCPServerBridge::convertAnnotations({});
    EXPECT_EQ(defaults.audience, (std::vector<std::string>{"user", "assistant"}));
    EXPECT_DOUBLE_EQ(defaults.priority, 0.9);
    EXPECT_EQ(defaults.lastModified, "");

    const MCP::ToolAnnotations configured = MCPServerBridge::convertAnnotations(
        {{"priority", "0.25"}, {"lastModified", "2025-01-01"}, {"audience", QStringList{"assistant", "robot"}}});
    EXPECT_DOUBLE_EQ(configured.priority, 0.25);
    EXPECT_EQ(configured.lastModified, "2025-01-01");
    EXPECT_EQ(configured.audience, (std::vector<std::string>{"user", "assistant", "assistant", "robot"}));
}

TEST(MCPServerBridgeConversions, StoredTagAndRelationTextNeverBringsTheProcessDown)
{
    EXPECT_TRUE(MCPServerBridge::convertContextTags(QString()).empty());
    EXPECT_TRUE(MCPServerBridge::convertContextTags(QStringLiteral("a, b")).empty());
    EXPECT_TRUE(MCPServerBridge::convertContextTags(QStringLiteral("[not json")).empty());
    EXPECT_EQ(MCPServerBridge::convertContextTags(QStringLiteral("[\"a\", 1, null, \"b\"]")),
              (std::vector<std::string>{"a", "b"}));

    const auto related = MCPServerBridge::convertRelatedResources(QStringLiteral(
        R"([{"resourceId":"1","resourceType":"doc","uri":"file:///a","url":"https://x"}, 5, {"uri":"file:///b"}])"));
    ASSERT_EQ(related.size(), 2u);
    EXPECT_EQ(related[0].uri, "https://x");
    EXPECT_EQ(related[0].resourceType, "doc");
    EXPECT_EQ(related[1].uri, "file:///b");
    EXPECT_TRUE(MCPServerBridge::convertRelatedResources(QStringLiteral(R"([{"uri": 5}])")).empty());
    EXPECT_TRUE(MCPServerBridge::convertRelatedResources(QStringLiteral("[{]")).empty());
    EXPECT_TRUE(MCPServerBridge::convertRelatedResources(QStringLiteral("{\"a\":1}")).empty());
}

TEST(MCPServerBridgeConversions, LogTypesAndDates)
{
    for (int type = 0; type <= 4; ++type)
        EXPECT_EQ(MCPServerBridge::convertLogType(type), type);
    EXPECT_EQ(MCPServerBridge::convertLogType(7), 3);
    EXPECT_EQ(MCPServerBridge::convertLogType(-1), 3);
    const QRegularExpression iso(QStringLiteral(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$)"));
    EXPECT_TRUE(iso.match(MCPServerBridge::currentTimestamp()).hasMatch()) << MCPServerBridge::currentTimestamp().toStdString();
}

TEST(MCPServerBridgeTest, RegistrationWithoutItsKeyChangesNothing)
{
    SystemLogCapture capture;
    MCPServerBridge bridge;
    bridge.registerTool({{"title", "no name"}}, [](const QVariantMap &) { return QString("{}"); });
    bridge.registerResource({{"name", "no uri"}}, [](const QVariantMap &) { return QString(); });
    bridge.registerPrompt({{"description", "no name"}}, [](const QVariantMap &) { return QString(); });
    EXPECT_TRUE(bridge.listTools().isEmpty());
    EXPECT_TRUE(bridge.listResources().isEmpty());
    EXPECT_TRUE(bridge.listPrompts().isEmpty());
    const QStringList lines = SystemLogCapture::lines();
    EXPECT_TRUE(lines.contains("[MCP-SB] Error: Tool configuration missing 'name' field"));
    EXPECT_TRUE(lines.contains("[MCP-SB] Error: Resource configuration missing 'uri' field"));
    EXPECT_TRUE(lines.contains("[MCP-SB] Error: Prompt configuration missing 'name' field"));
}

TEST(MCPServerBridgeTest, RegistriesListInKeyOrderAndReset)
{
    MCPServerBridge bridge;
    bridge.registerTool(toolConfig("zeta"), nullptr);
    bridge.registerTool(toolConfig("alpha"), nullptr);
    bridge.registerResource({{"uri", "file:///b"}}, nullptr);
    bridge.registerResource({{"uri", "file:///a"}}, nullptr);
    bridge.registerPrompt({{"name", "p"}}, nullptr);
    EXPECT_EQ(bridge.listTools(), (QStringList{"alpha", "zeta"}));
    EXPECT_EQ(bridge.listResources(), (QStringList{"file:///a", "file:///b"}));
    EXPECT_EQ(bridge.listPrompts(), QStringList{"p"});
    bridge.unregisterToolWithName("zeta");
    bridge.unregisterResourceWithURI("file:///a");
    EXPECT_EQ(bridge.listTools(), QStringList{"alpha"});
    EXPECT_EQ(bridge.listResources(), QStringList{"file:///b"});
    bridge.resetRegistry();
    EXPECT_TRUE(bridge.listTools().isEmpty());
    EXPECT_TRUE(bridge.listResources().isEmpty());
    EXPECT_TRUE(bridge.listPrompts().isEmpty());
}

TEST(MCPServerBridgeTest, ConfigurationRoundTrip)
{
    MCPServerBridge bridge;
    MCPServerConfiguration configuration;
    configuration.port = 9001;
    configuration.serverInfo.setName("n");
    configuration.serverInfo.setTitle("T");
    configuration.serverInfo.setVersion("3");
    bridge.configureWithConfiguration(configuration);
    MCPServerConfiguration back = bridge.getConfiguration();
    EXPECT_EQ(back.port, 9001);
    EXPECT_EQ(back.serverInfo.title, "T");
    EXPECT_FALSE(back.instructions.has_value());
    configuration.instructions = QStringLiteral("Use the tools.");
    bridge.configureWithConfiguration(configuration);
    EXPECT_EQ(bridge.getConfiguration().instructions.value_or(QString()), "Use the tools.");
}

TEST(MCPServerBridgeTest, StartFailureFillsTheError)
{
    const int port = TestSupport::freePort();
    MCPServerBridge first;
    AppError error;
    ASSERT_TRUE(first.startOnPort(port, false, &error));
    EXPECT_TRUE(first.isRunning());
    EXPECT_EQ(error.code, 0);

    MCPServerBridge second;
    EXPECT_FALSE(second.startOnPort(port, false, &error));
    EXPECT_EQ(error.domain, "MCPServerBridge");
    EXPECT_EQ(error.code, 1001);
    EXPECT_EQ(error.description, "Failed to start MCP server");
    EXPECT_FALSE(second.startOnPort(port, false, nullptr));
    first.stop();
    EXPECT_FALSE(first.isRunning());
}

TEST(MCPServerBridgeTest, ToolCallsCrossTheSeamBothWays)
{
    MCPServerBridge bridge;
    bridge.setServerName("Bridge Test");
    QVariantMap seen;
    QThread *handlerThread = nullptr;
    QVariantMap config = toolConfig("t");
    config.insert("inputSchema", QVariantMap{{"properties", QVariantMap{{"flag", QVariantMap{{"type", "boolean"}}}}}});
    bridge.registerTool(config, [&](const QVariantMap &arguments) -> std::optional<QString> {
        seen = arguments;
        handlerThread = QThread::currentThread();
        if (arguments.value("none").toBool())
            return std::nullopt;
        return QStringLiteral("{\"content\": [], \"structuredContent\": {\"success\": true}}");
    });
    const int port = TestSupport::freePort();
    ASSERT_TRUE(bridge.startOnPort(port, false, nullptr));

    auto reply = EngineTest::post(port, toolCall("t", R"({"flag": true, "count": 2, "nested": {"x": null}})"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.body.find("\"success\": true"), std::string::npos) << reply.body;
    EXPECT_NE(handlerThread, QThread::currentThread());  // tools run on transport workers
    EXPECT_EQ(seen.value("flag").typeId(), QMetaType::Bool);
    EXPECT_EQ(seen.value("count").typeId(), QMetaType::Double);
    EXPECT_TRUE(seen.value("nested").toMap().value("x").isNull());
    EXPECT_EQ(seen.value("execHandler").toString(), "script");
    EXPECT_EQ(seen.value("execMethod").toString(), "run");
    EXPECT_EQ(seen.value("scriptName").toString(), "s.js");
    EXPECT_EQ(seen.value("toolType").toString(), "ScriptTool");
    EXPECT_FALSE(seen.value("sessionId").toString().isEmpty());

    reply = EngineTest::post(port, toolCall("t", R"({"none": true})"));
    EXPECT_NE(reply.body.find("Tool does not response any JSON object"), std::string::npos);

    // The name the bridge holds is the name clients see.
    reply = EngineTest::post(port, R"({"id":1,"method":"initialize"})");
    EXPECT_NE(reply.body.find("\"name\": \"Bridge Test\""), std::string::npos);
    EXPECT_NE(reply.body.find("\"version\": \"1.0.0\""), std::string::npos);
    bridge.stop();
}

TEST(MCPServerBridgeTest, ResourcesAndPromptsThroughTheirAdapters)
{
    MCPServerBridge bridge;
    QVariantMap resourceSeen;
    bridge.registerResource({{"uri", "file:///notes.md"},
                             {"name", "notes"},
                             {"mimeType", "text/markdown"},
                             {"type", "text"},
                             {"contextTags", "[\"a\"]"},
                             {"relatedResources", "[broken"}},
                            [&](const QVariantMap &resource) {
                                resourceSeen = resource;
                                return QString::fromUtf8("# Notes \xc3\xa9");
                            });
    bridge.registerResource({{"uri", "file:///empty"}, {"name", "empty"}}, [](const QVariantMap &) { return QString(); });
    bridge.registerResource({{"uri", "file:///orphan"}, {"name", "orphan"}}, nullptr);
    QVariantMap promptSeen;
    bridge.registerPrompt({{"name", "greet"},
                           {"description", "d"},
                           {"template", "Hi {{who}}"},
                           {"arguments", QVariantList{QVariantMap{{"name", "who"}, {"required", true}}}}},
                          [&](const QVariantMap &params) {
                              promptSeen = params;
                              return QStringLiteral("Hi ") + params.value("arguments").toMap().value("who").toString();
                          });
    bridge.registerPrompt({{"name", "silent"}}, nullptr);

    MCP::IMCPResourceService *resources = bridge.server().getResourceService();
    const MCP::ResourceDefinition notes = resources->readResource(*resources->findResource("file:///notes.md"));
    EXPECT_EQ(notes.data.content, "# Notes \xc3\xa9");
    EXPECT_EQ(notes.data.size, "10");  // bytes, not characters
    EXPECT_EQ(notes.data.format, "text/markdown");
    EXPECT_EQ(notes.metadata.author, "Kelvara Server");
    EXPECT_EQ(notes.contextTags, std::vector<std::string>{"a"});
    EXPECT_TRUE(notes.relatedResources.empty());
    EXPECT_EQ(resourceSeen.value("uri").toString(), "file:///notes.md");
    EXPECT_EQ(resourceSeen.value("context").toMap().value("metadata").toMap().value("version").toString(), "1.0");

    EXPECT_EQ(resources->readResource(*resources->findResource("file:///empty")).data.size, "0");
    const MCP::ResourceDefinition orphan = resources->readResource(*resources->findResource("file:///orphan"));
    EXPECT_EQ(orphan.data.content, "Failed to hande resource 'orphan' file:///orphan");
    EXPECT_EQ(orphan.data.format, "text/plain");

    MCP::IMCPPromptService *prompts = bridge.server().getPromptService();
    JSONValue params;
    params["name"] = JSONValue("greet");
    params["arguments"]["who"] = JSONValue("Ada");
    EXPECT_EQ(prompts->renderPrompt("greet", params), "Hi Ada");
    EXPECT_EQ(promptSeen.value("name").toString(), "greet");
    EXPECT_EQ(prompts->renderPrompt("silent", params), "");
    const auto listed = prompts->listPrompts();
    EXPECT_TRUE(listed.at(0).arguments.at(0).required);
    EXPECT_EQ(listed.at(0).template_, "Hi {{who}}");
}

TEST(MCPServerBridgeTest, LogLinesArriveOnTheMainThreadInOrder)
{
    MCPServerBridge bridge;
    struct Entry {
        int type;
        int code;
        QString message;
        bool onMain;
    };
    std::vector<Entry> entries;
    bridge.setLogHandler([&](int type, int code, const QString &message) {
        entries.push_back({type, code, message, QThread::currentThread() == QCoreApplication::instance()->thread()});
    });
    bridge.registerTool(toolConfig("t"), [](const QVariantMap &) { return QString("{}"); });
    const int port = TestSupport::freePort();
    ASSERT_TRUE(bridge.startOnPort(port, false, nullptr));
    EXPECT_TRUE(entries.empty());  // queued, not called in place
    EngineTest::post(port, toolCall("t", "{}"));
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        return std::any_of(entries.begin(), entries.end(), [](const Entry &e) { return e.message == "Executing tool: t"; });
    }));
    bridge.stop();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !entries.empty() && entries.back().message == "MCP Server stopped"; }));

    QStringList order;
    for (const Entry &entry : entries) {
        EXPECT_TRUE(entry.onMain) << entry.message.toStdString();
        order.append(entry.message.section(u'\n', 0, 0));
    }
    const qsizetype started = order.indexOf("MCP HTTP Server started on port " + QString::number(port));
    const qsizetype serverStarted = order.indexOf("MCP Server 'Kelvara Server' v1.0.0 started on port " + QString::number(port));
    const qsizetype received = order.indexOf("HTTP-RCV [tools/call]");
    const qsizetype executing = order.indexOf("Executing tool: t");
    const qsizetype responded = order.indexOf("HTTP-RSP [tools/call]");
    EXPECT_GE(started, 0);
    EXPECT_LT(started, serverStarted);
    EXPECT_LT(serverStarted, received);
    EXPECT_LT(received, executing);
    EXPECT_LT(executing, responded);
    const auto debug = std::find_if(entries.begin(), entries.end(), [](const Entry &e) { return e.message.startsWith("HTTP-RCV"); });
    EXPECT_EQ(debug->type, 4);
    EXPECT_EQ(debug->code, 0);
}

TEST(MCPServerBridgeTest, SharedInstanceIsOne)
{
    EXPECT_EQ(&MCPServerBridge::sharedInstance(), &MCPServerBridge::sharedInstance());
    EXPECT_EQ(MCPServerBridge::sharedInstance().serverName(), "Kelvara Server");
    EXPECT_EQ(MCPServerBridge::sharedInstance().serverVersion(), "1.0.0");
}
