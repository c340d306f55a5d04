#include "engine/MCPMessage.h"
#include "engine/MCPServerMessage.h"

#include <gtest/gtest.h>

#include <tuple>

using MCP::JSONValue;
using MCP::MCPMessage;
using MCP::MCPServerMessage;
using MCP::RequestId;

// Responses print through the routes' tests (ping, a null tool result) and the transport's reply body.
TEST(MCPMessageTest, ErrorHasCodeAndEscapedMessageOnly)
{
    auto error = MCPServerMessage::createError(0, "Method not found: a\"b", -32601);
    EXPECT_EQ(error->toString(),
              "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 0,\n  \"error\": {\n    \"code\": -32601,\n"
              "    \"message\": \"Method not found: a\\\"b\"\n  }\n}");
    EXPECT_EQ(error->method, "");

    MCPMessage bare;
    bare.type = MCPMessage::MessageType::Error;
    bare.id = 1;
    EXPECT_EQ(bare.toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 1\n}");
}

TEST(MCPMessageTest, RequestPrintsIdOnlyWhenNonZeroAndParamsOnlyWhenNotEmpty)
{
    MCPMessage request;
    request.method = "tools/list";
    EXPECT_EQ(request.toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"method\": \"tools/list\"\n}");
    request.id = 12;
    request.params["x"] = JSONValue(true);
    EXPECT_EQ(request.toString(),
              "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 12,\n  \"method\": \"tools/list\",\n"
              "  \"params\": {\n      \"x\": true\n    }\n}");
    request.params = JSONValue(true);  // a Bool counts as empty
    EXPECT_EQ(request.toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 12,\n  \"method\": \"tools/list\"\n}");
}

TEST(MCPMessageTest, ParseReadsMethodIdAndParams)
{
    auto message = MCPMessage::parse(R"({"jsonrpc":"2.0","id":42,"method":"tools/call","params":{"name":"x"}})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, MCPMessage::MessageType::Request);
    EXPECT_EQ(message->method, "tools/call");
    EXPECT_EQ(message->id, 42u);
    EXPECT_EQ(message->params.at("name").asString(), "x");

    // No jsonrpc member, no id, no params, no method: still a request.
    auto bare = MCPMessage::parse("{}");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->method, "");
    EXPECT_FALSE(bare->id.present());
    EXPECT_TRUE(bare->params.isNull());

}

TEST(MCPMessageTest, IdsAreKeptAsSentAndWrittenBackTheSame)
{
    // Integers keep every digit (negative and beyond 64 bits too), strings their text; the
    // answer writes them exactly as they came.
    using Kind = RequestId::Kind;
    for (const auto &[id, kind, text] : std::vector<std::tuple<std::string, Kind, std::string>>{
             {"42", Kind::number, "42"},
             {"0", Kind::number, "0"},
             {"18446744073709551615", Kind::number, "18446744073709551615"},
             {"99999999999999999999999", Kind::number, "99999999999999999999999"},
             {"-5", Kind::number, "-5"},
             {"\"abc-1\"", Kind::string, "abc-1"},
             {"\"12\"", Kind::string, "12"},
             {"\"\"", Kind::string, ""},
             {"\"a\\\"b\"", Kind::string, "a\"b"},
             {"7.9", Kind::invalid, ""},
             {"1e3", Kind::invalid, ""},
             {"null", Kind::invalid, ""},
             {"true", Kind::invalid, ""},
             {"{}", Kind::invalid, ""},
             {"[1]", Kind::invalid, ""}}) {
        const auto message = MCPMessage::parse("{\"id\": " + id + ", \"method\": \"ping\"}");
        ASSERT_TRUE(message) << id;
        EXPECT_EQ(message->id.kind(), kind) << id;
        EXPECT_EQ(message->id.text(), text) << id;
        MCPMessage answer;
        answer.type = MCPMessage::MessageType::Response;
        answer.id = message->id;
        answer.result = JSONValue(JSONValue::ObjectType{});
        const std::string written = kind == Kind::invalid ? "null" : id;
        EXPECT_EQ(answer.toString(), "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": " + written + ",\n  \"result\": {}\n}") << id;
    }
    // A number and a string of the same digits are different ids.
    EXPECT_NE(MCPMessage::parse(R"({"id": 12})")->id.key(), MCPMessage::parse(R"({"id": "12"})")->id.key());
    EXPECT_EQ(MCPMessage::parse(R"({"id": 12})")->id, 12u);
}

TEST(MCPMessageTest, NotificationsAndTheClientsResponsesExpectNoAnswer)
{
    for (const char *text : {R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
                             R"({"jsonrpc":"2.0","method":"anything"})",
                             R"({"jsonrpc":"2.0","id":3,"method":"notifications/cancelled"})",
                             R"({"jsonrpc":"2.0","id":"s1","result":{}})",
                             R"({"jsonrpc":"2.0","id":4,"error":{"code":-1,"message":"no"}})"})
        EXPECT_TRUE(MCPMessage::parse(text)->expectsNoAnswer()) << text;
    for (const char *text : {R"({"jsonrpc":"2.0","id":1,"method":"ping"})", R"({"jsonrpc":"2.0","id":"x","method":"ping"})",
                             R"({"params":{}})"})
        EXPECT_FALSE(MCPMessage::parse(text)->expectsNoAnswer()) << text;
}

TEST(MCPMessageTest, ParseGivesEmptyPointerForNonObjectsAndBadMethods)
{
    for (const char *text : {"", "not json", "[]", R"([{"method":"ping"}])", "1", "\"ping\"", "null",
                             R"({"method": 5})", R"({"method": null})", R"({"method": ["a"]})", "{\"a\":1"})
        EXPECT_FALSE(MCPMessage::parse(text)) << text;
}
