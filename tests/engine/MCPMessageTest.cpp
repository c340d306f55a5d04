#include "engine/MCPMessage.h"
#include "engine/MCPServerMessage.h"

#include <gtest/gtest.h>

using MCP::JSONValue;
using MCP::MCPMessage;
using MCP::MCPServerMessage;

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
    EXPECT_EQ(bare->id, 0u);
    EXPECT_TRUE(bare->params.isNull());

}

TEST(MCPMessageTest, LargeIdsKeepAllSixtyFourBits)
{
    auto message = MCPMessage::parse(R"({"id": 18446744073709551615, "method": "ping"})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->id, 18446744073709551615ull);
    // The last ones lie outside the id model.
    for (const auto &[id, expected] : std::vector<std::pair<std::string, uint64_t>>{
             {"9007199254740993", 9007199254740993ull}, {"99999999999999999999999", 18446744073709551615ull},
             {"-5", 0}, {"7.9", 7}, {"1e3", 1000}, {"\"12\"", 0}, {"null", 0}})
        EXPECT_EQ(MCPMessage::parse("{\"id\": " + id + "}")->id, expected) << id;
}

TEST(MCPMessageTest, ParseGivesEmptyPointerForNonObjectsAndBadMethods)
{
    for (const char *text : {"", "not json", "[]", R"([{"method":"ping"}])", "1", "\"ping\"", "null",
                             R"({"method": 5})", R"({"method": null})", R"({"method": ["a"]})", "{\"a\":1"})
        EXPECT_FALSE(MCPMessage::parse(text)) << text;
}
