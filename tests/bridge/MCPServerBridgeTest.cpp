#include "EngineTestSupport.h"

#include "engine/JSONParser.h"
#include "engine/MCPServer.h"
#include "engine/bridge/MCPServerBridge.h"
#include "engine/bridge/VariantJSON.h"
#include "tests/support/SystemLogCapture.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QtNumeric>
#include <QRegularExpression>
#include <QThread>
#include <gtest/gtest.h>
#include <unistd.h>

using MCP::JSONValue;

namespace {

QVariantMap toolConfig(const QString &name)
{
    return {{"name", name}, {"toolType", "ScriptTool"}, {"execHandler", " [\"script\"] "}, {"execMethod", "\trun\n"},
            {"scriptName", "s.js"}};
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
    ASSERT_TRUE(converted.properties.at("rows").items);
    EXPECT_EQ(*converted.properties.at("rows").items->properties, "{\"x\":{}}");
    EXPECT_EQ(converted.toJSON(), *MCP::JSONParser::parseDocument(R"({"type": "object", "required": ["list", "word"],
        "properties": {"list": {"type": "array", "default": ["a", "b"]}, "rows": {"type": "array", "items": {"type": "null"}},
                       "word": {"type": "string", "default": "plain", "name": "w"}}})"))
        << converted.toJSON().toString(0);

    // An empty required list is present but prints nothing.
    const MCP::ToolSchema empty = MCPServerBridge::convertToolSchema({{"required", QVariantList{}}});
    ASSERT_TRUE(empty.required);
    EXPECT_FALSE(empty.toJSON().contains("required"));
    EXPECT_FALSE(MCPServerBridge::convertToolSchema({}).required);
}

TEST(MCPServerBridgeConversions, Annotations)
{
    EXPECT_EQ(MCPServerBridge::convertAnnotations({}).toJSON(),
              *MCP::JSONParser::parseDocument(R"({"audience": ["user", "assistant"], "priority": 0.9})"));
    // Configured audience entries come after the default ones, as they stand.
    const MCP::ToolAnnotations configured = MCPServerBridge::convertAnnotations(
        {{"priority", "0.25"}, {"lastModified", "2025-01-01"}, {"audience", QStringList{"assistant", "robot"}}});
    EXPECT_EQ(configured.toJSON(), *MCP::JSONParser::parseDocument(R"({"audience": ["user", "assistant", "assistant", "robot"],
                                                                       "priority": 0.25, "lastModified": "2025-01-01"})"));
}

TEST(MCPServerBridgeConversions, StoredTagAndRelationTextNeverBringsTheProcessDown)
{
    for (const QString &text : {QString(), QStringLiteral("a, b"), QStringLiteral("[not json")})
        EXPECT_TRUE(MCPServerBridge::convertContextTags(text).empty()) << text.toStdString();
    EXPECT_EQ(MCPServerBridge::convertContextTags(QStringLiteral("[\"a\", 1, null, \"b\"]")),
              (std::vector<std::string>{"a", "b"}));

    const auto related = MCPServerBridge::convertRelatedResources(QStringLiteral(
        R"([{"resourceId":"1","resourceType":"doc","uri":"file:///a","url":"https://x"}, 5, {"uri":"file:///b"}])"));
    ASSERT_EQ(related.size(), 2u);
    EXPECT_EQ(related[0].uri, "https://x");
    EXPECT_EQ(related[0].resourceType, "doc");
    EXPECT_EQ(related[1].uri, "file:///b");
    for (const QString &text : {QStringLiteral(R"([{"uri": 5}])"), QStringLiteral("[{]"), QStringLiteral("{\"a\":1}")})
        EXPECT_TRUE(MCPServerBridge::convertRelatedResources(text).empty()) << text.toStdString();
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

TEST(MCPServerBridgeTest, RegistriesListInKeyOrderRefuseKeylessEntriesAndReset)
{
    SystemLogCapture capture;
    MCPServerBridge bridge;
    bridge.registerTool({{"title", "no name"}}, [](const QJsonObject &, const ToolInvocation &) { return QJsonValue(QJsonObject()); });
    bridge.registerResource({{"name", "no uri"}}, [](const QVariantMap &) { return QString(); });
    bridge.registerPrompt({{"description", "no name"}}, [](const QVariantMap &) { return QString(); });
    EXPECT_EQ(capture.captured(), (QStringList{"[MCP-SB] Error: Tool configuration missing 'name' field",
                                               "[MCP-SB] Error: Resource configuration missing 'uri' field",
                                               "[MCP-SB] Error: Prompt configuration missing 'name' field"}));
    bridge.registerTool(toolConfig("zeta"), nullptr);
    bridge.registerTool(toolConfig("alpha"), nullptr);
    bridge.registerResource({{"uri", "file:///b"}}, nullptr);
    bridge.registerResource({{"uri", "file:///a"}}, nullptr);
    bridge.registerPrompt({{"name", "p"}}, nullptr);
    const auto listed = [&] { return bridge.listTools() + bridge.listResources() + bridge.listPrompts(); };
    EXPECT_EQ(listed(), (QStringList{"alpha", "zeta", "file:///a", "file:///b", "p"}));
    bridge.unregisterToolWithName("zeta");
    bridge.unregisterResourceWithURI("file:///a");
    EXPECT_EQ(listed(), (QStringList{"alpha", "file:///b", "p"}));
    bridge.resetRegistry();
    EXPECT_EQ(listed(), QStringList());
}

TEST(MCPServerBridgeTest, StartFailureFillsTheError)
{
    const int port = TestSupport::freePort();
    MCPServerBridge first;
    BridgeError error;
    ASSERT_TRUE(first.startOnPort(port, false, &error));
    EXPECT_TRUE(first.isRunning());
    EXPECT_EQ(error.code, 0);

    MCPServerBridge second;
    EXPECT_FALSE(second.startOnPort(port, false, &error));
    EXPECT_EQ(error.domain, "MCPServerBridge");
    EXPECT_EQ(error.code, 1001);
    // The reason travels with the error, for the status line and standard error.
    EXPECT_EQ(error.description.toStdString(),
              "Failed to start MCP server: Failed to bind socket to port " + std::to_string(port) + ": Address already in use");
    EXPECT_FALSE(second.startOnPort(port, false, nullptr));
    EXPECT_EQ(first.listeningPort(), port);
    EXPECT_EQ(second.listeningPort(), -1);
    first.stop();
    EXPECT_FALSE(first.isRunning());

    // Port 0: the system's choice is the port reported.
    MCPServerBridge any;
    ASSERT_TRUE(any.startOnPort(0, false, nullptr));
    EXPECT_GT(any.listeningPort(), 0);
    EXPECT_EQ(any.getConfiguration().port, any.listeningPort());
    any.stop();
}

// The stored limits reach the listener: one connection per address, 4096 bytes in all.
TEST(MCPServerBridgeTest, AccessPolicyLimitsReachTheListener)
{
    MCPServerBridge bridge;
    bridge.setAccessPolicy({{"maxConnectionsPerPeer", 1}, {"maxBufferedBytes", 4096}, {"sessionIdleTimeout", 0.25}});
    EXPECT_EQ(bridge.accessPolicy().value("maxConnectionsPerPeer").toLongLong(), 1);
    EXPECT_EQ(bridge.accessPolicy().value("maxBufferedBytes").toLongLong(), 4096);
    EXPECT_EQ(bridge.accessPolicy().value("sessionIdleTimeout").toDouble(), 0.25);
    ASSERT_TRUE(bridge.startOnPort(0, false, nullptr));
    const int port = bridge.listeningPort();

    const int held = EngineTest::sendRaw(port, "POST / HTTP/1.1\r\nContent-Le");
    const EngineTest::HttpReply second = EngineTest::post(port, R"({"jsonrpc":"2.0","id":1,"method":"ping"})");
    EXPECT_EQ(second.status, 503);
    EXPECT_NE(second.body.find("too many connections from this address"), std::string::npos);
    ::close(held);

    const std::string large = R"({"jsonrpc":"2.0","id":1,"method":"ping","pad":")" + std::string(5000, 'p') + "\"}";
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return EngineTest::post(port, large).body.find("too much request data") != std::string::npos; }));
    // Served once the refused connection has given its place back.
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return EngineTest::post(port, R"({"jsonrpc":"2.0","id":1,"method":"ping"})").status == 200; }));
    bridge.stop();
}

TEST(MCPServerBridgeTest, ToolCallsCrossTheSeamBothWays)
{
    MCPServerBridge bridge;
    bridge.setServerName("Bridge Test");
    QJsonObject seen;
    ToolInvocation seenCall;
    QThread *handlerThread = nullptr;
    QVariantMap config = toolConfig("t");
    config.insert("inputSchema", QVariantMap{{"properties", QVariantMap{{"flag", QVariantMap{{"type", "boolean"}}}}}});
    bridge.registerTool(config, [&](const QJsonObject &arguments, const ToolInvocation &call) -> std::optional<QJsonValue> {
        seen = arguments;
        seenCall = call;
        handlerThread = QThread::currentThread();
        if (arguments.value("none").toBool())
            return std::nullopt;
        if (arguments.contains("bare"))
            return arguments.value("bare");
        return QJsonObject{{"content", QJsonArray{QJsonObject{{"type", "text"}, {"text", QStringLiteral("Grüße \x01")}}}},
                           {"structuredContent", QJsonObject{{"success", true}, {"ratio", 0.25}, {"big", 1e20},
                                                             {"count", qint64(3)}, {"gone", qInf()}}}};
    });
    const int port = TestSupport::freePort();
    ASSERT_TRUE(bridge.startOnPort(port, false, nullptr));

    auto reply = EngineTest::post(port, EngineTest::toolCall(5, "t", R"({"flag": true, "count": 2, "nested": {"x": null}})"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.body.find("\"success\": true"), std::string::npos) << reply.body;
    EXPECT_NE(handlerThread, QThread::currentThread());  // tools run on transport workers
    // The client's arguments arrive as they were sent; the call's context comes beside them.
    EXPECT_EQ(seen, QJsonDocument::fromJson(R"({"flag": true, "count": 2, "nested": {"x": null}})").object());
    EXPECT_FALSE(seenCall.sessionId.isEmpty());
    EXPECT_EQ(seenCall.requestId, "5");
    EXPECT_NE(seenCall.token, nullptr);
    // The result object is written as a value, with the engine's number and string forms.
    EXPECT_NE(reply.body.find("\"result\": {\n      \"content\": [\n        {\n          \"text\": \"Grüße \\u0001\",\n"
                              "          \"type\": \"text\"\n        }\n      ],\n      \"structuredContent\": {\n"
                              "        \"big\": 1e+20,\n        \"count\": 3,\n        \"gone\": null,\n"
                              "        \"ratio\": 0.25,\n        \"success\": true\n      }\n    }\n}"),
              std::string::npos)
        << reply.body;

    // Any kind of value may be the result.
    reply = EngineTest::post(port, EngineTest::toolCall(6, "t", R"({"bare": [1, "two"]})"));
    EXPECT_NE(reply.body.find("\"result\": [\n      1,\n      \"two\"\n    ]\n}"), std::string::npos) << reply.body;

    reply = EngineTest::post(port, EngineTest::toolCall(5, "t", R"({"none": true})"));
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
    bridge.registerResource({{"uri", "file:///notes.md"}, {"name", "notes"}, {"mimeType", "text/markdown"}, {"type", "text"},
                             {"contextTags", "[\"a\"]"}, {"relatedResources", "[broken"}},
                            [&](const QVariantMap &resource) {
                                resourceSeen = resource;
                                return QString::fromUtf8("# Notes \xc3\xa9");
                            });
    bridge.registerResource({{"uri", "file:///empty"}, {"name", "empty"}}, [](const QVariantMap &) { return QString(); });
    bridge.registerResource({{"uri", "file:///orphan"}, {"name", "orphan"}}, nullptr);
    QVariantMap promptSeen;
    bridge.registerPrompt({{"name", "greet"}, {"description", "d"}, {"template", "Hi {{who}}"},
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
    const JSONValue params = *MCP::JSONParser::parseDocument(R"({"name": "greet", "arguments": {"who": "Ada"}})");
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
    QStringList order;  // first lines only
    bool allOnMain = true;
    std::pair<int, int> received{-1, -1};
    bridge.setLogHandler([&](int type, int code, const QString &message) {
        allOnMain = allOnMain && QThread::currentThread() == QCoreApplication::instance()->thread();
        order.append(message.section(u'\n', 0, 0));
        if (message.startsWith("HTTP-RCV"))
            received = {type, code};
    });
    bridge.registerTool(toolConfig("t"), [](const QJsonObject &, const ToolInvocation &) { return QJsonValue(QJsonObject()); });
    const int port = TestSupport::freePort();
    ASSERT_TRUE(bridge.startOnPort(port, false, nullptr));
    EXPECT_TRUE(order.empty());  // queued, not called in place
    EngineTest::post(port, EngineTest::toolCall(5, "t"));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return order.contains("Executing tool: t"); }));
    bridge.stop();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !order.empty() && order.last() == "MCP Server stopped"; }));

    EXPECT_TRUE(allOnMain);
    const QStringList wanted{"MCP HTTP Server started on port " + QString::number(port),
                             "MCP Server 'Kelvara Server' v1.0.0 started on port " + QString::number(port),
                             "HTTP-RCV [tools/call]", "Executing tool: t", "HTTP-RSP [tools/call]"};
    QStringList seenInOrder;
    for (const QString &line : order)
        if (wanted.contains(line) && !seenInOrder.contains(line))
            seenInOrder.append(line);
    EXPECT_EQ(seenInOrder, wanted);
    EXPECT_EQ(received, std::make_pair(4, 0));  // a debug line
}
