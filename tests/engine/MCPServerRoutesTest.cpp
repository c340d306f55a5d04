#include "EngineTestSupport.h"

#include "engine/JSONParser.h"
#include "engine/MCPServer.h"
#include "engine/MCPServerMessage.h"
#include "engine/PromptTemplate.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

using namespace MCP;
using namespace EngineTest;

namespace {

class RoutesTest : public ::testing::Test {
protected:
    void SetUp() override { server.setLogCallback(log.callback()); }

    std::shared_ptr<MCPMessage> call(const std::string &body, const std::string &sid = "sid-1")
    {
        auto message = MCPMessage::parse(body);
        EXPECT_TRUE(message) << body;
        return message ? server.process(sid, message) : nullptr;
    }

    // Expects an Error with the code and text, and the log line when a log code is given.
    void expectError(const std::string &body, int32_t code, const std::string &text, int32_t logCode = -1)
    {
        auto response = call(body);
        ASSERT_TRUE(response) << body;
        EXPECT_EQ(response->type, MCPMessage::MessageType::Error) << body;
        EXPECT_EQ(response->errorCode, code) << body;
        EXPECT_EQ(response->errorMessage.value_or("<none>"), text) << body;
        if (logCode >= 0) {
            EXPECT_TRUE(log.contains(logCode, text)) << text;
        }
    }

    // The result as a client reads it, whether the response holds it as a value or as text.
    static JSONValue resultOf(const std::shared_ptr<MCPMessage> &response)
    {
        std::string error;
        auto document = JSONParser::parseDocument(response->toString(), &error);
        EXPECT_TRUE(document) << error;
        return document ? document->at("result") : JSONValue();
    }

    LogRecorder log;
    MCPServer server;
};

}  // namespace

TEST_F(RoutesTest, InitializeReflectsRegistrationsAndConfiguration)
{
    // A revision the server does not speak gets the newest it does.
    auto response = call(R"({"id":1,"method":"initialize","params":{"protocolVersion":"1999-01-01"}})");
    ASSERT_TRUE(response);
    EXPECT_EQ(response->result.toString(0),
              "{\n  \"capabilities\": {\n    \"logging\": {}\n  },\n  \"instructions\": \"Kelvara Server\",\n  \"protocolVersion\": \"2025-11-25\",\n"
              "  \"serverInfo\": {\n    \"name\": \"kelvara\",\n    \"title\": \"Kelvara Server\",\n    \"version\": \"1.0.1\"\n  }\n}");
    EXPECT_TRUE(log.contains(0, "Initialize request received (protocol: 2025-11-25)"));
    for (const auto &[asked, answered] : std::vector<std::pair<std::string, std::string>>{
             {R"("2025-11-25")", "2025-11-25"}, {R"("2025-06-18")", "2025-06-18"}, {R"("2025-03-26")", "2025-03-26"},
             {R"("2024-11-05")", "2025-11-25"}, {"5", "2025-11-25"}}) {
        auto negotiated = call(R"({"id":1,"method":"initialize","params":{"protocolVersion":)" + asked + "}}");
        EXPECT_EQ(negotiated->result.at("protocolVersion").asString(), answered) << asked;
    }

    server.setConfiguration({.port = 1234, .name = "n", .title = "", .version = "2", .instructions = std::nullopt});
    EXPECT_TRUE(log.contains(0, "MCP Server configured: n v2 on port 1234"));
    server.getToolService()->registerTool(makeTool("t", nullptr));
    server.getResourceService()->registerResource({.uri = "u"});
    server.getPromptService()->registerPrompt({.name = "p"});

    auto second = call(R"({"id":2,"method":"initialize"})");
    const JSONValue &again = second->result;
    EXPECT_EQ(again.at("serverInfo").at("title").asString(), "n");
    EXPECT_FALSE(again.contains("instructions"));
    EXPECT_EQ(again.at("capabilities").toString(0),
              "{\n  \"completions\": {},\n  \"logging\": {},\n  \"prompts\": {\n    \"listChanged\": true\n  },\n"
              "  \"resources\": {\n    \"listChanged\": true,\n    \"subscribe\": true\n  },\n"
              "  \"tools\": {\n    \"listChanged\": true\n  }\n}");
}

TEST_F(RoutesTest, SessionRoutesAndUnknownMethods)
{
    // Notifications run their route and are never answered, known or not.
    EXPECT_EQ(call(R"({"jsonrpc":"2.0","method":"notifications/initialized"})"), nullptr);
    EXPECT_TRUE(log.contains(0, "Received notifications/initialized"));
    EXPECT_EQ(call(R"({"method":"nope"})"), nullptr);
    EXPECT_EQ(call(R"({"jsonrpc":"2.0","id":7,"result":{}})"), nullptr);
    const auto pong = call(R"({"id":5,"method":"ping"})");
    EXPECT_EQ(pong->toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 5,\n  \"result\": {}\n}");
    EXPECT_EQ(pong->method, "ping");  // a response carries its request's method
    EXPECT_TRUE(log.contains(0, "Ping received"));

    expectError(R"({"id":8,"method":"tools/subscribe"})", -32601, "Method not found: tools/subscribe");
    expectError(R"({"id":9,"params":{}})", -32601, "Method not found: ");

    // Ids come back as they were sent; one that is neither a string nor an integer is refused.
    EXPECT_EQ(call(R"({"id":"abc-1","method":"ping"})")->toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": \"abc-1\",\n  \"result\": {}\n}");
    EXPECT_EQ(call(R"({"id":-3,"method":"ping"})")->toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": -3,\n  \"result\": {}\n}");
    EXPECT_EQ(call(R"({"id":"x","method":"nope"})")->toString(),
              "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": \"x\",\n  \"error\": {\n    \"code\": -32601,\n    \"message\": \"Method not found: nope\"\n  }\n}");
    for (const char *id : {"{}", "[1]", "1.5", "null"}) {
        const auto refused = call(std::string(R"({"jsonrpc":"2.0","method":"ping","id":)") + id + "}");
        ASSERT_TRUE(refused) << id;
        EXPECT_EQ(refused->toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": null,\n  \"error\": {\n    \"code\": -32600,\n"
                                       "    \"message\": \"Invalid Request: the id must be a string or an integer\"\n  }\n}") << id;
    }
    expectError(R"({"params":{}})", -32600, "Invalid Request: the id must be a string or an integer");
}

TEST_F(RoutesTest, TrafficLogLines)
{
    call(R"({"id":3,"method":"ping"})", "abc");
    EXPECT_TRUE(log.contains(0, "HTTP-RCV [ping]\n{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 3,\n  \"method\": \"ping\"\n}"));
    EXPECT_TRUE(log.contains(0, "Dispatch: \"ping\" sid: \"abc\" id: 3"));
    EXPECT_TRUE(log.contains(0, "HTTP-RSP [ping]\n{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 3,\n  \"result\": {}\n}"));

    // With a higher threshold the per-request lines are not even built.
    log.clear();
    server.setLogLevel(LogMessageType::Info);
    call(R"({"id":4,"method":"ping"})");
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.contains(0, "Ping received"));
}

TEST_F(RoutesTest, MiddlewareRefusal)
{
    server.addMiddleware([](const std::string &method, const JSONValue &) { return method.compare("ping") != 0; });
    expectError(R"({"id":8,"method":"ping"})", -32000, "Middleware rejected request");
    EXPECT_EQ(call(R"({"id":8,"method":"tools/list"})")->type, MCPMessage::MessageType::Response);
}

TEST_F(RoutesTest, ToolCallValidation)
{
    server.getToolService()->registerTool(makeTextTool("ok", [](const JSONValue &) { return std::string("{}"); }));
    server.getToolService()->registerTool({.name = "bare"});
    ToolDefinition noHandler = makeTool("noHandler", nullptr);
    noHandler.execHandler = "";
    server.getToolService()->registerTool(noHandler);
    ToolDefinition noMethod = makeTool("noMethod", nullptr);
    noMethod.execMethod = "";
    server.getToolService()->registerTool(noMethod);

    const std::string head = R"({"id":1,"method":"tools/call","params":)";
    expectError(head + "[1]}", -32604, "Tool call has invalid context parameter", 3004);
    expectError(R"({"id":1,"method":"tools/call"})", -32604, "Tool call has invalid context parameter", 3004);
    expectError(head + R"({"arguments":{}}})", -32614, "Tool call missing 'name' parameter", 3004);
    expectError(head + R"({"name":5,"arguments":{}}})", -32603, "Internal error: JSON value is a Number, not a String");
    expectError(head + R"({"name":"","arguments":{}}})", -32625, "Tool name cannot be empty", 3004);
    expectError(head + R"({"name":"zz","arguments":{}}})", -32626, "Could not find tool: zz", 3004);
    expectError(head + R"({"name":"bare","arguments":{}}})", -32627, "Tool object missing 'toolType' parameter", 3004);
    expectError(head + R"({"name":"noHandler","arguments":{}}})", -32628, "Tool object missing 'execHandler' parameter", 3004);
    expectError(head + R"({"name":"noMethod","arguments":{}}})", -32629, "Tool object missing 'execMethod' parameter", 3004);

    auto fine = call(head + R"({"name":"ok","arguments":{}}})");
    EXPECT_EQ(fine->type, MCPMessage::MessageType::Response);
    EXPECT_TRUE(log.contains(0, "Executing tool: ok"));
    // A tool without parameters may be called without arguments.
    auto bare = call(head + R"({"name":"ok"}})");
    EXPECT_EQ(bare->type, MCPMessage::MessageType::Response);
    EXPECT_EQ(log.count(3004), 8);  // the error lines above, none more
}

TEST_F(RoutesTest, ArgumentsAreCheckedAgainstAWrittenSchemaBeforeTheToolRuns)
{
    int runs = 0;
    ToolDefinition tool = makeTextTool("weather", [&](const JSONValue &) {
        ++runs;
        return std::string(R"({"content":[]})");
    });
    tool.inputSchema.document = JSONParser::parseDocument(R"({"type": "object",
        "$defs": {"place": {"type": "object", "properties": {"zip": {"type": "string", "pattern": "^[0-9]{5}$"}}}},
        "properties": {"unit": {"enum": ["C", "F"]}, "where": {"$ref": "#/$defs/place"}}, "required": ["unit"]})");
    server.getToolService()->registerTool(tool);
    // The property list of a tool without a written schema is not held to the letter.
    ToolDefinition plain = makeTextTool("plain", [](const JSONValue &) { return std::string("{}"); });
    plain.inputSchema.properties["n"].type = "bool";
    plain.inputSchema.required = std::vector<std::string>{"n"};
    server.getToolService()->registerTool(plain);

    const std::string head = R"({"id":1,"method":"tools/call","params":{"name":"weather","arguments":)";
    expectError(head + "{}}}", -32602, "Invalid arguments for tool 'weather' at the top level: the member 'unit' is required", 3004);
    expectError(head + R"({"unit":"K"}}})", -32602, R"(Invalid arguments for tool 'weather' at /unit: must be one of ["C","F"])", 3004);
    expectError(head + R"({"unit":"C","where":{"zip":"1"}}}})", -32602,
                R"(Invalid arguments for tool 'weather' at /where/zip: must match the pattern "^[0-9]{5}$")", 3004);
    // Arguments left out count as an empty Object, which the schema refuses too.
    expectError(R"({"id":1,"method":"tools/call","params":{"name":"weather"}})", -32602,
                "Invalid arguments for tool 'weather' at the top level: the member 'unit' is required");
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(call(head + R"({"unit":"F","where":{"zip":"12345"}}}})")->type, MCPMessage::MessageType::Response);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(call(R"({"id":2,"method":"tools/call","params":{"name":"plain","arguments":{"n":"x"}}})")->type,
              MCPMessage::MessageType::Response);
    // tools/list shows the written schema as it stands.
    const JSONValue listed = resultOf(call(R"({"id":3,"method":"tools/list"})"));
    for (const JSONValue &entry : listed.at("tools").asArray()) {
        if (entry.at("name").asString() == "weather") {
            EXPECT_EQ(entry.at("inputSchema"), *tool.inputSchema.document);
        }
    }
}

TEST_F(RoutesTest, ToolCallHandsTheArgumentsOverAsTheyCame)
{
    JSONValue seen;
    ToolCallContext seenCall;
    ToolDefinition tool = makeTool("t", [&](const JSONValue &arguments, const ToolCallContext &context) {
        seen = arguments;
        seenCall = context;
        return std::optional<JSONValue>(JSONValue(JSONValue::ObjectType{}));
    });
    tool.title = "Title";
    tool.pluginName = "plug";
    tool.scriptName = "s.js";
    server.getToolService()->registerTool(tool);

    // Parameters named like the tool's own fields keep the client's values; nothing is added.
    call(R"({"id":"r-1","method":"tools/call","params":{"name":"t","arguments":{"sessionId":"x","name":"y","title":"z","k":1}}})", "S");
    EXPECT_EQ(seen.toString(0), "{\n  \"k\": 1,\n  \"name\": \"y\",\n  \"sessionId\": \"x\",\n  \"title\": \"z\"\n}");
    EXPECT_EQ(seenCall.sessionId, "S");
    EXPECT_EQ(seenCall.requestId, "r-1");
    ASSERT_NE(seenCall.token, nullptr);

    // Arguments that are no Object, or none at all, arrive as an empty Object.
    call(R"({"id":2,"method":"tools/call","params":{"name":"t","arguments":"text"}})");
    EXPECT_EQ(seen, JSONValue(JSONValue::ObjectType{}));
    EXPECT_EQ(seenCall.requestId, "2");
    seen = JSONValue(1);
    call(R"({"id":3,"method":"tools/call","params":{"name":"t"}})");
    EXPECT_EQ(seen, JSONValue(JSONValue::ObjectType{}));
    // Outside a request there is no token.
    server.getToolService()->callTool("t", JSONValue());
    EXPECT_EQ(seenCall.token, nullptr);
}

TEST_F(RoutesTest, ToolResultsOfAnyShape)
{
    std::string answer;
    bool none = false;
    bool raise = false;
    server.getToolService()->registerTool(makeTextTool("t", [&](const JSONValue &) -> std::optional<std::string> {
        if (raise)
            throw std::runtime_error("boom");
        if (none)
            return std::nullopt;
        return answer;
    }));
    const std::string request = R"({"id":6,"method":"tools/call","params":{"name":"t","arguments":{}}})";

    answer = "42";
    EXPECT_EQ(call(request)->toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 6,\n  \"result\": 42\n}");
    answer = "null";
    EXPECT_EQ(call(request)->toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 6\n}");
    // A failure is marked so that clients see one; the executor's error becomes the content.
    answer = R"({"content":[{"type":"text","text":"no"}],"structuredContent":{"success":false}})";
    EXPECT_TRUE(call(request)->result.at("isError").asBool());
    answer = R"({"content":[],"structuredContent":{"success":true}})";
    EXPECT_FALSE(call(request)->result.contains("isError"));
    answer = R"({"content":[],"structuredContent":{"success":"false"}})";
    EXPECT_FALSE(call(request)->result.contains("isError"));
    none = true;
    const JSONValue failed = call(request)->result;
    EXPECT_EQ(failed.at("error").asString(), "Tool does not response any JSON object");
    EXPECT_TRUE(failed.at("isError").asBool());
    EXPECT_EQ(failed.at("content").asArray().at(0).at("text").asString(), "Tool does not response any JSON object");
    raise = true;
    EXPECT_EQ(call(request)->result.at("error").asString(), "Tool execution failed: boom");
    EXPECT_EQ(server.getToolService()->callTool("missing", JSONValue()).at("error").asString(), "Tool not found: missing");
}

TEST_F(RoutesTest, ToolsListShapesEveryTool)
{
    ToolDefinition tool = makeTool("b", nullptr);
    tool.inputSchema.properties["list"] = {.type = "array", .defaultValue = R"(["a", "b"])"};
    server.getToolService()->registerTool(tool);
    server.getToolService()->registerTool(makeTool("a", nullptr));
    auto response = call(R"({"id":1,"method":"tools/list"})");
    const JSONValue result = resultOf(response);
    const auto &tools = result.at("tools").asArray();
    ASSERT_EQ(tools.size(), 2u);
    EXPECT_EQ(tools[0].at("name").asString(), "a");
    EXPECT_EQ(tools[1].at("inputSchema").at("properties").at("list").at("default").asArray().size(), 2u);
    EXPECT_EQ(tools[1].at("execHandler").asString(), "handler");
    EXPECT_TRUE(log.contains(0, "Tools list requested - count: 2"));
}

TEST_F(RoutesTest, ResourceRoutes)
{
    ResourceDefinition plain{.uri = "file:///a.txt", .name = "a", .mimeType = "text/plain", .type = "text",
                             .provider = [](const ResourceDefinition &definition) {
                                 ResourceDefinition filled = definition;
                                 filled.data.content = "hello";
                                 return filled;
                             }};
    ResourceDefinition templated = plain;
    templated.uri = "file:///templates/{name}";
    templated.type = "template";
    ResourceDefinition failing = plain;
    failing.uri = "file:///bad";
    failing.provider = [](const ResourceDefinition &) -> ResourceDefinition { throw std::runtime_error("disk gone"); };
    ResourceDefinition binary = plain;
    binary.uri = "HTTPS://Example.COM:443";
    binary.mimeType = "image/png";
    binary.provider = [](const ResourceDefinition &definition) {
        ResourceDefinition filled = definition;
        filled.data.blob = "iVBORw0=";
        return filled;
    };
    for (const auto &resource : {plain, templated, failing, binary})
        server.getResourceService()->registerResource(resource);

    const std::string head = R"({"id":1,"method":"resources/read","params":)";
    expectError(head + "3}", -32730, "Invalid ressource parameters", 3010);
    expectError(head + "{}}", -32731, "Resource read missing 'uri' parameter", 3010);
    expectError(head + R"({"uri":""}})", -32732, "Resource URL must not be empty", 3010);
    expectError(head + R"({"uri":7}})", -32732, "Resource URL must not be empty", 3010);
    expectError(head + R"({"uri":"file:///zz"}})", -32002, "Resource object for 'file:///zz' not found", 3010);
    // The URI that named nothing is in the error's data, where clients look for it.
    EXPECT_EQ(call(head + R"({"uri":"file:///zz"}})")->toString(),
              "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 1,\n  \"error\": {\n    \"code\": -32002,\n"
              "    \"message\": \"Resource object for 'file:///zz' not found\",\n    \"data\": {\n"
              "      \"uri\": \"file:///zz\"\n    }\n  }\n}");

    auto read = call(head + R"({"uri":"file:///a.txt"}})", "S1");
    const JSONValue &content = read->result.at("contents").asArray().at(0);
    EXPECT_EQ(read->result.at("status").asString(), "success");
    EXPECT_EQ(content.toString(0),  // the resource's own text where clients look for it
              "{\n  \"content\": \"hello\",\n  \"description\": \"\",\n  \"id\": \"S1\",\n"
              "  \"mimeType\": \"text/plain\",\n  \"name\": \"a\",\n  \"text\": \"hello\",\n  \"type\": \"text\",\n"
              "  \"uri\": \"file:///a.txt\"\n}");
    EXPECT_TRUE(log.contains(0, "Reading resource: file:///a.txt"));

    // The template's own text names the template, not a resource read through it.
    auto templ = call(head + R"({"uri":"file:///templates/{name}"}})");
    EXPECT_FALSE(templ->result.contains("contents"));
    EXPECT_FALSE(templ->result.at("resourceTemplates").asArray().at(0).contains("text"));

    expectError(head + R"({"uri":"file:///bad"}})", -32603, "Failed to read resource 'file:///bad': Error reading resource: disk gone", 3010);

    // Binary content as base64, found under any spelling of its URL.
    for (const char *uri : {"HTTPS://Example.COM:443", "https://example.com", "https://example.com/", "https://EXAMPLE.com:443/"}) {
        auto bytes = call(head + R"({"uri":")" + uri + R"("}})");
        ASSERT_EQ(bytes->type, MCPMessage::MessageType::Response) << uri;
        const JSONValue &item = bytes->result.at("contents").asArray().at(0);
        EXPECT_EQ(item.at("blob").asString(), "iVBORw0=") << uri;
        EXPECT_FALSE(item.contains("text"));
    }
    expectError(head + R"({"uri":"https://example.com/x"}})", -32002, "Resource object for 'https://example.com/x' not found", 3010);

    auto list = call(R"({"id":2,"method":"resources/list"})");
    // The template is listed by resources/templates/list instead.
    EXPECT_EQ(resultOf(list).at("resources").asArray().size(), 3u);
    EXPECT_TRUE(log.contains(0, "Resources list requested - count: 3"));
}

TEST_F(RoutesTest, TemplatesAreListedApartAndReadWithTheirVariables)
{
    std::vector<ResourceDefinition> seen;
    ResourceDefinition item{.uri = "test://template/{id}/data", .name = "item", .description = "One item",
                            .mimeType = "application/json", .type = "template"};
    item.completions["id"] = {"123", "124", "200", "Abc"};
    item.provider = [&](const ResourceDefinition &definition) {
        seen.push_back(definition);
        ResourceDefinition filled = definition;
        filled.data.content = "item " + definition.variables.begin()->second;
        return filled;
    };
    ResourceDefinition path{.uri = "file:///srv/{+path}", .name = "path", .type = "template"};
    path.provider = item.provider;
    ResourceDefinition plain{.uri = "test://plain", .name = "plain", .type = "file"};
    for (const auto &resource : {item, path, plain})
        server.getResourceService()->registerResource(resource);

    const JSONValue listed = resultOf(call(R"({"id":1,"method":"resources/list"})"));
    ASSERT_EQ(listed.at("resources").asArray().size(), 1u);
    EXPECT_EQ(listed.at("resources").asArray()[0].at("uri").asString(), "test://plain");
    const JSONValue templates = resultOf(call(R"({"id":2,"method":"resources/templates/list"})"));
    ASSERT_EQ(templates.at("resourceTemplates").asArray().size(), 2u);
    EXPECT_EQ(templates.at("resourceTemplates").asArray()[1],
              *JSONParser::parseDocument(R"({"uriTemplate": "test://template/{id}/data", "name": "item",
                  "description": "One item", "mimeType": "application/json", "annotations": {"audience": [], "priority": 0}})"));

    // The provider runs with the URI read and the variables, percent-decoded for {var}.
    auto read = call(R"({"id":3,"method":"resources/read","params":{"uri":"test://template/a%20b/data"}})");
    ASSERT_EQ(read->type, MCPMessage::MessageType::Response);
    const JSONValue &content = read->result.at("contents").asArray().at(0);
    EXPECT_EQ(content.at("uri").asString(), "test://template/a%20b/data");
    EXPECT_EQ(content.at("text").asString(), "item a b");
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].uriTemplate, "test://template/{id}/data");
    // {+var} takes slashes; {var} never does.
    EXPECT_EQ(call(R"({"id":4,"method":"resources/read","params":{"uri":"file:///srv/a/b.txt"}})")->type,
              MCPMessage::MessageType::Response);
    EXPECT_EQ(seen.back().variables.at("path"), "a/b.txt");
    for (const char *uri : {"test://template/1/2/data", "test://template//data", "test://template/1/datax"})
        expectError(std::string(R"({"id":5,"method":"resources/read","params":{"uri":")") + uri + R"("}})", -32002,
                    std::string("Resource object for '") + uri + "' not found");

    // Completion offers the record's values that start with what was typed, in any case.
    const std::string complete = R"({"id":6,"method":"completion/complete","params":{"ref":{"type":"ref/resource","uri":"test://template/{id}/data"},"argument":{"name":)";
    EXPECT_EQ(resultOf(call(complete + R"("id","value":"12"}}})")),
              *JSONParser::parseDocument(R"({"completion": {"values": ["123", "124"], "total": 2, "hasMore": false}})"));
    EXPECT_EQ(resultOf(call(complete + R"("id","value":"a"}}})")).at("completion").at("values"), *JSONParser::parseDocument(R"(["Abc"])"));
    EXPECT_EQ(resultOf(call(complete + R"("other","value":""}}})")).at("completion").at("total").asNumber(), 0);
    expectError(R"({"id":7,"method":"completion/complete","params":{"ref":{"type":"ref/resource","uri":"test://plain"},"argument":{"name":"id"}}})",
                -32602, "Resource template not found: test://plain");
    expectError(R"({"id":8,"method":"completion/complete","params":{"ref":{"type":"ref/prompt","name":"nope"},"argument":{"name":"a"}}})",
                -32602, "Prompt not found: nope");
    expectError(R"({"id":9,"method":"completion/complete","params":{"ref":{"type":"ref/tool"},"argument":{"name":"a"}}})",
                -32602, "Unknown completion reference type: ref/tool");
    expectError(R"({"id":10,"method":"completion/complete","params":{"ref":{}}})", -32602, "Completion needs 'ref' and 'argument'");

    PromptDefinition prompt{.name = "city", .arguments = {{"name", "", false, {}}}};
    for (int i = 0; i < 150; ++i)
        prompt.arguments[0].values.push_back("p" + std::to_string(i));
    server.getPromptService()->registerPrompt(prompt);
    const JSONValue many = resultOf(call(
        R"({"id":11,"method":"completion/complete","params":{"ref":{"type":"ref/prompt","name":"city"},"argument":{"name":"name","value":"P"}}})"));
    EXPECT_EQ(many.at("completion").at("values").asArray().size(), 100u);
    EXPECT_EQ(many.at("completion").at("total").asNumber(), 150);
    EXPECT_TRUE(many.at("completion").at("hasMore").asBool());
}

TEST_F(RoutesTest, PromptRoutes)
{
    server.getPromptService()->registerPrompt(
        {.name = "greet", .description = "d", .arguments = {{"who", "whom", true}}, .template_ = "Hi {{who}}",
         .renderer = [](const JSONValue &params) { return "Hi " + params.at("arguments").at("who").asString(); }});
    server.getPromptService()->registerPrompt(
        {.name = "broken", .renderer = [](const JSONValue &) -> std::string { throw std::runtime_error("bad template"); }});

    const std::string head = R"({"id":1,"method":"prompts/get","params":)";
    for (const auto &[params, code] : std::vector<std::pair<std::string, int32_t>>{
             {"[]", -32602}, {"\"x\"", -32615}, {"{}", -32613}, {R"({"name":""})", -32614}, {R"({"name":1})", -32614}})
        expectError(head + params + "}", code, "Prompt name must not be empty", 3011);
    expectError(R"({"id":1,"method":"prompts/get"})", -32615, "Prompt name must not be empty", 3011);

    auto rendered = call(head + R"({"name":"greet","arguments":{"who":"Ada"}}})");
    EXPECT_EQ(rendered->result.toString(0),
              "{\n  \"description\": \"Rendered prompt\",\n  \"messages\": [\n    {\n      \"content\": {\n"
              "        \"text\": \"Hi Ada\",\n        \"type\": \"text\"\n      },\n      \"role\": \"user\"\n    }\n  ]\n}");
    EXPECT_TRUE(log.contains(0, "Rendering prompt: greet"));
    auto message = [&](const std::string &body) {
        return call(body)->result.at("messages").asArray().at(0).at("content").at("text").asString();
    };
    expectError(head + R"({"name":"nope"}})", -32602, "Prompt not found: nope", 3011);
    // A required argument without a value is the client's error, named.
    for (const char *arguments : {"", R"(,"arguments":{})", R"(,"arguments":{"who":""})", R"(,"arguments":{"who":null})"})
        expectError(head + R"({"name":"greet")" + arguments + "}}", -32602, "Missing required argument 'who' for prompt 'greet'", 3011);
    EXPECT_EQ(message(head + R"({"name":"broken"}})"), "Error rendering prompt: bad template");

    auto list = call(R"({"id":2,"method":"prompts/list"})");
    const JSONValue prompts = resultOf(list);
    const JSONValue &first = prompts.at("prompts").asArray().at(1);
    EXPECT_EQ(first.at("template").asString(), "Hi {{who}}");
    EXPECT_TRUE(first.at("arguments").asArray().at(0).at("required").asBool());
    EXPECT_TRUE(log.contains(0, "Prompts list requested - count: 2"));
}

TEST_F(RoutesTest, PromptMessagesFollowTheTemplateWithTheirTextsAndUrisFilledIn)
{
    auto parsed = [](const std::string &text) { return *JSONParser::parseDocument(text); };
    const JSONValue messages = parsed(R"([
        {"role":"assistant","content":{"type":"image","data":"iVBORw0KGgo=","mimeType":"image/png"}},
        {"role":"user","content":{"type":"resource","resource":{"uri":"test://{{uri}}","text":"about {{uri}}","mimeType":"text/plain"}}},
        {"role":"user","content":{"type":"text","text":"{{uri}} and {{other}}","annotations":{"priority":1}}},
        "not a message", {"role":"user"}])");
    server.getPromptService()->registerPrompt({.name = "rich", .arguments = {{"uri", "", true}}, .messages = messages});
    server.getPromptService()->registerPrompt(
        {.name = "both", .arguments = {{"uri", "", false}}, .template_ = "First {{uri}}", .messages = messages});
    const std::string head = R"({"id":1,"method":"prompts/get","params":)";
    expectError(head + R"({"name":"rich"}})", -32602, "Missing required argument 'uri' for prompt 'rich'", 3011);

    // No template: the messages alone; what is no message is left out, the rest kept as written.
    const JSONValue rich = resultOf(call(head + R"({"name":"rich","arguments":{"uri":"x/1"}}})"));
    EXPECT_EQ(rich.at("messages").toString(0), parsed(R"([
        {"role":"assistant","content":{"type":"image","data":"iVBORw0KGgo=","mimeType":"image/png"}},
        {"role":"user","content":{"type":"resource","resource":{"uri":"test://x/1","text":"about x/1","mimeType":"text/plain"}}},
        {"role":"user","content":{"type":"text","text":"x/1 and {{other}}","annotations":{"priority":1}}}])").toString(0));

    // A template comes first, as a user message; the registered messages stay unfilled.
    const JSONValue both = resultOf(call(head + R"({"name":"both","arguments":{"uri":"y"}}})"));
    ASSERT_EQ(both.at("messages").asArray().size(), 4u);
    EXPECT_EQ(both.at("messages").asArray().at(0).toString(0),
              parsed(R"({"role":"user","content":{"type":"text","text":"First y"}})").toString(0));
    EXPECT_EQ(both.at("messages").asArray().at(2).at("content").at("resource").at("uri").asString(), "test://y");
    EXPECT_EQ(server.getPromptService()->findPrompt("both")->messages.toString(0), messages.toString(0));
}

TEST_F(RoutesTest, ListRepliesAreKeptUntilARegistryChanges)
{
    server.getToolService()->registerTool(makeTool("a", nullptr));
    auto uncached = [&](uint64_t id) {
        JSONValue::ArrayType tools;
        for (const ToolDefinition &tool : server.getToolService()->listTools())
            tools.push_back(tool.toJSON());
        JSONValue result;
        result["tools"] = JSONValue(std::move(tools));
        MCPMessage request;
        request.id = id;
        return MCPServerMessage::createResponse(request, std::move(result))->toString();
    };
    auto first = call(R"({"id":1,"method":"tools/list"})");
    auto second = call(R"({"id":2,"method":"tools/list"})");
    EXPECT_EQ(first->resultText, second->resultText);  // one text, shared
    EXPECT_EQ(second->toString(), uncached(2));         // and the bytes a fresh build gives

    server.getToolService()->registerTool(makeTool("b", nullptr));
    EXPECT_EQ(call(R"({"id":3,"method":"tools/list"})")->toString(), uncached(3));
    server.getToolService()->unregisterTool("a");
    EXPECT_EQ(resultOf(call(R"({"id":4,"method":"tools/list"})")).at("tools").asArray().size(), 1u);
    server.getToolService()->clearTools();
    EXPECT_EQ(call(R"({"id":5,"method":"tools/list"})")->toString(), uncached(5));

    server.getResourceService()->registerResource({.uri = "r:1"});
    EXPECT_EQ(resultOf(call(R"({"id":6,"method":"resources/list"})")).at("resources").asArray().size(), 1u);
    server.getResourceService()->registerResource({.uri = "r:2"});
    EXPECT_EQ(resultOf(call(R"({"id":7,"method":"resources/list"})")).at("resources").asArray().size(), 2u);
    server.getPromptService()->registerPrompt({.name = "p"});
    EXPECT_EQ(resultOf(call(R"({"id":8,"method":"prompts/list"})")).at("prompts").asArray().size(), 1u);
    server.getPromptService()->unregisterPrompt("p");
    EXPECT_EQ(resultOf(call(R"({"id":9,"method":"prompts/list"})")).at("prompts").asArray().size(), 0u);
    EXPECT_TRUE(log.contains(0, "Prompts list requested - count: 0"));
}

TEST(ResourceUriTest, NormalisedAsTheURLStandardDoes)
{
    for (const auto &[given, normal] : std::vector<std::pair<std::string, std::string>>{
             {"https://modelcontextprotocol.io", "https://modelcontextprotocol.io/"},
             {"HTTP://User:Pw@Host.Example:80?q=A#F", "http://User:Pw@host.example/?q=A#F"},
             {"http://host:8080/Path/", "http://host:8080/Path/"},
             {"file:///tmp/A.txt", "file:///tmp/A.txt"},
             {"Custom://Thing", "custom://thing"},
             {"urn:ISBN:0451450523", "urn:ISBN:0451450523"},
             {"no scheme here", "no scheme here"},
             {"mailto:A@B.c", "mailto:A@B.c"}})
        EXPECT_EQ(IMCPResourceService::normalisedUri(given), normal) << given;
}

TEST(PromptTemplateTest, BothPlaceholderFormsOfDeclaredArgumentsAreFilled)
{
    const std::vector<PromptArgument> arguments{{"who", "", true}, {"mood", "", false}, {" ", "", true}};
    JSONValue values;
    values["who"] = JSONValue("Ada");
    values["count"] = JSONValue(3);
    EXPECT_EQ(PromptTemplate::render("Hello {{who}}, {who}! {{mood}}|{mood}|{{ who }}|{count}|{{who}", arguments, values),
              "Hello Ada, Ada! ||{{ who }}|{count}|{Ada");
    values["mood"] = JSONValue(true);
    EXPECT_EQ(PromptTemplate::render("{mood} {{who}}{{who}}", arguments, values), "true AdaAda");
    // A value that holds a placeholder is not filled again.
    values["who"] = JSONValue("{mood}");
    EXPECT_EQ(PromptTemplate::render("{who}", {{"who", "", false}}, values), "{mood}");
    EXPECT_EQ(PromptTemplate::render("{who}", arguments, JSONValue("not an object")), "");

    EXPECT_EQ(PromptTemplate::missingRequired(arguments, values), std::nullopt);  // the blank name counts for nothing
    EXPECT_EQ(PromptTemplate::missingRequired(arguments, JSONValue()), "who");
}

TEST_F(RoutesTest, CancelNotificationsNeverAnswer)
{
    EXPECT_FALSE(call(R"({"method":"notifications/cancelled","params":[1]})"));
    EXPECT_TRUE(log.contains(3003, "Cancel notification has invalid params"));
    EXPECT_FALSE(call(R"({"method":"notifications/cancelled","params":{"requestId":""}})"));
    EXPECT_FALSE(call(R"({"method":"notifications/cancelled","params":{"requestId":true}})"));
    EXPECT_TRUE(log.contains(0, "Cancel notification missing or invalid requestId"));
    EXPECT_FALSE(call(R"({"method":"notifications/cancelled","params":{"requestId":12,"reason":"user"}})"));
    EXPECT_TRUE(log.contains(0, "Cancel received for requestId=12 reason=user"));
    EXPECT_TRUE(log.contains(0, "Cancel arrived after completion for requestId=12"));
    EXPECT_FALSE(call(R"({"method":"notifications/cancelled","params":{"requestId":"abc","reason":5}})"));
    EXPECT_TRUE(log.contains(0, "Cancel received for requestId=abc reason=<none>"));
}

TEST_F(RoutesTest, StartTwiceAndTransportFailure)
{
    const int port = freePort();
    ASSERT_TRUE(server.start(port, false));
    EXPECT_TRUE(log.contains(0, "MCP Server 'kelvara' v1.0.1 started on port " + std::to_string(port)));
    EXPECT_TRUE(log.contains(0, "Server instructions: Kelvara Server"));
    EXPECT_FALSE(server.start(port, false));
    EXPECT_TRUE(log.contains(3001, "Server already running"));
    EXPECT_TRUE(server.isRunning());

    LogRecorder otherLog;
    MCPServer other;
    other.setLogCallback(otherLog.callback());
    EXPECT_FALSE(other.start(port, false));
    EXPECT_TRUE(otherLog.contains(3002, "Failed to start transport layer"));
    EXPECT_TRUE(otherLog.contains(1002, "Failed to bind socket to port " + std::to_string(port)));

    server.stop();
    EXPECT_TRUE(log.contains(0, "MCP Server stopped"));
    EXPECT_FALSE(server.isRunning());
}

TEST_F(RoutesTest, ListChangedRunsOnTheMainQueue)
{
    std::vector<std::function<void()>> queue;
    int calls = 0;
    server.getToolService()->setListChangedCallback([&] { ++calls; });
    server.getToolService()->registerTool(makeTool("x", nullptr));
    EXPECT_EQ(calls, 1);  // no main queue: at once
    server.setMainQueuePoster([&](std::function<void()> fn) { queue.push_back(std::move(fn)); });
    server.getToolService()->unregisterTool("x");
    server.getToolService()->clearTools();
    EXPECT_EQ(calls, 1);
    ASSERT_EQ(queue.size(), 2u);
    for (auto &fn : queue)
        fn();
    EXPECT_EQ(calls, 3);
}
