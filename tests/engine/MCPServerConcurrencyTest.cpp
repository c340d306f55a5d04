#include "EngineTestSupport.h"

#include "engine/MCPHttpTransport.h"
#include "engine/MCPServer.h"

#include <gtest/gtest.h>

#include <regex>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace MCP;
using namespace EngineTest;

namespace {

class ServerOverHttp : public ::testing::Test {
protected:
    void SetUp() override
    {
        server.setLogCallback(log.callback());
        port = freePort();
    }

    void addTool(const std::string &name, TextHandler handler)
    {
        server.getToolService()->registerTool(makeTextTool(name, std::move(handler)));
    }

    LogRecorder log;
    MCPServer server;
    int port = 0;
};

}  // namespace

TEST_F(ServerOverHttp, CancelArrivingWhileTheToolRunsGivesRequestCancelled)
{
    Latch entered;
    Latch release;
    std::atomic<bool> ranToEnd{false};
    std::atomic<bool> sawItsToken{false};
    std::atomic<bool> toolSawCancel{false};
    addTool("slow", [&](const JSONValue &) {
        // The call's token is reachable from deep inside the tool, to stop early.
        const CancellationToken *token = CancellationToken::current();
        sawItsToken = token && !token->isCancelled();
        entered.open();
        release.wait();
        toolSawCancel = token && token->isCancelled();
        ranToEnd = true;
        return std::string(R"({"done": true})");
    });
    ASSERT_TRUE(server.start(port, false));

    HttpReply callReply;
    std::thread caller([&] { callReply = post(port, toolCall(77, "slow")); });
    ASSERT_TRUE(entered.wait());
    const HttpReply cancel = post(port, R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":77,"reason":"user"}})");
    EXPECT_EQ(cancel.status, 202);
    EXPECT_EQ(cancel.body, "");
    release.open();
    caller.join();

    EXPECT_TRUE(ranToEnd.load());
    EXPECT_TRUE(sawItsToken.load());
    EXPECT_TRUE(toolSawCancel.load());
    EXPECT_EQ(callReply.status, 200);
    EXPECT_EQ(callReply.body,
              "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 77,\n  \"error\": {\n    \"code\": -32800,\n"
              "    \"message\": \"Request cancelled\"\n  }\n}");
    EXPECT_TRUE(log.contains(0, "Cancel received for requestId=77 reason=user"));
    EXPECT_TRUE(log.contains(0, "Tool call cancelled during execution: slow"));
    EXPECT_FALSE(log.contains(0, "Cancel arrived after completion for requestId=77"));

    // The token went with the call: a second cancel finds nothing, the next call runs.
    EXPECT_EQ(post(port, R"({"method":"notifications/cancelled","params":{"requestId":"77"}})").status, 202);
    EXPECT_TRUE(log.contains(0, "Cancel arrived after completion for requestId=77"));
    const HttpReply again = post(port, toolCall(77, "slow"));
    EXPECT_NE(again.body.find("\"done\": true"), std::string::npos);
}

TEST_F(ServerOverHttp, SlowToolsRunSideBySide)
{
    // Each tool waits until both are inside: serial execution would never get there.
    std::atomic<int> inside{0};
    addTool("slow", [&](const JSONValue &) {
        ++inside;
        const bool both = waitFor([&] { return inside.load() >= 2; }, std::chrono::seconds(5));
        return std::string(both ? R"({"together": true})" : R"({"together": false})");
    });
    ASSERT_TRUE(server.start(port, false));
    HttpReply first;
    HttpReply second;
    std::thread a([&] { first = post(port, toolCall(1, "slow")); });
    std::thread b([&] { second = post(port, toolCall(2, "slow")); });
    a.join();
    b.join();
    EXPECT_NE(first.body.find("\"together\": true"), std::string::npos) << first.body;
    EXPECT_NE(second.body.find("\"together\": true"), std::string::npos) << second.body;
}

TEST_F(ServerOverHttp, EveryRequestGetsAFreshConnectionId)
{
    std::mutex mutex;
    std::vector<std::string> ids;
    server.getToolService()->registerTool(makeTool("who", [&](const JSONValue &, const ToolCallContext &call) {
        std::lock_guard lock(mutex);
        ids.push_back(call.sessionId);
        return std::optional<JSONValue>(JSONValue(JSONValue::ObjectType{}));
    }));
    ASSERT_TRUE(server.start(port, false));
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(post(port, toolCall(1, "who")).status, 200);
    ASSERT_EQ(ids.size(), 3u);
    const std::regex uuid("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$");
    for (const auto &id : ids)
        EXPECT_TRUE(std::regex_match(id, uuid)) << id;
    EXPECT_NE(ids[0], ids[1]);
    EXPECT_NE(ids[1], ids[2]);
}

TEST_F(ServerOverHttp, AThousandBadConnectionsLeaveNoTrace)
{
    addTool("echo", [](const JSONValue &) { return std::string("{}"); });
    server.setLogLevel(LogMessageType::Info);
    ASSERT_TRUE(server.start(port, false));
    ASSERT_EQ(post(port, toolCall(1, "echo")).status, 200);  // warm up: the first threads exist
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const int descriptorsBefore = openDescriptorCount();
    const int threadsBefore = threadCount();

    // Four client threads, 1000 connections: closed at once, garbage, half a request.
    std::vector<std::thread> clients;
    for (int t = 0; t < 4; ++t) {
        clients.emplace_back([this, t] {
            for (int i = 0; i < 250; ++i) {
                const int fd = connectTo(port);
                if (fd < 0)
                    continue;
                switch ((i + t) % 4) {
                case 0:
                    break;  // close without a byte
                case 1: {
                    const char garbage[] = "\x16\x03\x01\x00\xff garbage \r\n\r\n\x00\x01";
                    ::send(fd, garbage, sizeof garbage, MSG_NOSIGNAL);
                    readAll(fd);
                    break;
                }
                case 2: {
                    const std::string half = "POST / HTTP/1.1\r\nContent-Length: 500\r\n\r\n{\"method\"";
                    ::send(fd, half.data(), half.size(), MSG_NOSIGNAL);
                    break;
                }
                default: {
                    const std::string head = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nff\r\nab";
                    ::send(fd, head.data(), head.size(), MSG_NOSIGNAL);
                    break;
                }
                }
                ::close(fd);
            }
        });
    }
    for (auto &client : clients)
        client.join();

    // Still answering.
    const HttpReply reply = post(port, toolCall(2, "echo"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_TRUE(waitFor([&] { return threadCount() <= threadsBefore && openDescriptorCount() <= descriptorsBefore; },
                        std::chrono::seconds(10)))
        << "threads " << threadCount() << " (before " << threadsBefore << "), descriptors " << openDescriptorCount()
        << " (before " << descriptorsBefore << ")";
    EXPECT_GE(log.count(1005), 700);  // every connection that did not reach a reply
    EXPECT_EQ(dynamic_cast<MCPHttpTransport &>(server.transport()).pendingConnectionCount(), 0u);
}

// What today's clients send over HTTP: notifications get 202 and no body, a string id is
// answered and cancelled by that string, and a protocol revision the server does not speak
// is refused before anything runs.
TEST_F(ServerOverHttp, NotificationsStringIdsAndTheProtocolVersionHeader)
{
    Latch entered;
    Latch release;
    addTool("slow", [&](const JSONValue &) {
        entered.open();
        release.wait();
        return std::string(R"({"done": true})");
    });
    ASSERT_TRUE(server.start(port, false));

    for (const char *notification : {R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
                                     R"({"jsonrpc":"2.0","method":"notifications/roots/list_changed"})",
                                     R"({"jsonrpc":"2.0","id":"r1","result":{}})"}) {
        const HttpReply reply = post(port, notification);
        EXPECT_EQ(reply.status, 202) << notification;
        EXPECT_EQ(reply.body, "") << notification;
    }
    const HttpReply ping = post(port, R"({"jsonrpc":"2.0","id":"abc-1","method":"ping"})");
    EXPECT_EQ(ping.status, 200);
    EXPECT_EQ(ping.body, "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": \"abc-1\",\n  \"result\": {}\n}");

    // The string id names the call to cancel; a number with the same digits would not.
    HttpReply callReply;
    std::thread caller([&] {
        callReply = post(port, R"({"jsonrpc":"2.0","id":"77","method":"tools/call","params":{"name":"slow","arguments":{}}})");
    });
    ASSERT_TRUE(entered.wait());
    EXPECT_EQ(post(port, R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":77}})").status, 202);
    EXPECT_EQ(post(port, R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":"77"}})").status, 202);
    release.open();
    caller.join();
    EXPECT_NE(callReply.body.find("\"id\": \"77\""), std::string::npos) << callReply.body;
    EXPECT_NE(callReply.body.find("Request cancelled"), std::string::npos) << callReply.body;
    EXPECT_TRUE(log.contains(0, "Cancel arrived after completion for requestId=77"));

    const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})";
    auto withVersion = [&](const std::string &version) {
        return parseReply(roundTrip(port, "POST /mcp HTTP/1.1\r\nHost: localhost\r\nMCP-Protocol-Version: " + version +
                                              "\r\nContent-Type: application/json\r\nContent-Length: " +
                                              std::to_string(body.size()) + "\r\n\r\n" + body));
    };
    for (const char *version : {"2025-11-25", "2025-06-18", "2025-03-26"})
        EXPECT_EQ(withVersion(version).status, 200) << version;
    const HttpReply refused = withVersion("1999-01-01");
    EXPECT_EQ(refused.status, 400);
    EXPECT_NE(refused.body.find("\"jsonrpc\":\"2.0\""), std::string::npos) << refused.body;
    EXPECT_NE(refused.body.find("unsupported MCP-Protocol-Version 1999-01-01"), std::string::npos) << refused.body;
}
