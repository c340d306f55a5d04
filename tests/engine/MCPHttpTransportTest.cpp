#include "EngineTestSupport.h"

#include "engine/MCPHttpTransport.h"
#include "engine/MCPServerMessage.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace MCP;
using namespace EngineTest;

namespace {

const std::string kCorsAndClose = "Access-Control-Allow-Origin: *\r\n"
                                  "Access-Control-Allow-Methods: POST, GET, OPTIONS\r\n"
                                  "Access-Control-Allow-Headers: Content-Type\r\n"
                                  "Connection: close\r\n\r\n";
const std::string kGo = "POST / HTTP/1.1\r\nContent-Length: 15\r\n\r\n{\"method\":\"go\"}";

// A transport whose handler answers every request with {"echo": method} at once.
class TransportTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        transport.setLogCallback(log.callback());
        transport.setMessageHandler([this](const std::string &id, std::shared_ptr<MCPMessage> message) {
            ++handled;
            JSONValue result;
            result["echo"] = JSONValue(message->method);
            transport.sendResponse(id, MCPServerMessage::createResponse(*message, result));
        });
        port = freePort();
        ASSERT_TRUE(transport.start(port, false));
    }

    LogRecorder log;
    MCPHttpTransport transport;
    std::atomic<int> handled{0};
    int port = 0;
};

}  // namespace

// The full texts of 200, 202 and 405 are compared below; these phrases are not.
TEST(MCPHttpTransportStatic, ReasonPhrases)
{
    for (const auto &[status, phrase] : std::vector<std::pair<int, std::string>>{
             {400, "Bad Request"}, {404, "Not Found"}, {500, "Internal Server Error"}, {301, "OK"}})
        EXPECT_EQ(MCPHttpTransport::reasonPhrase(status), phrase) << status;
}

TEST_F(TransportTest, PostGetsTheHandlersResponse)
{
    const HttpReply reply = post(port, R"({"jsonrpc":"2.0","id":9,"method":"ping"})");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.head, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: "
                              + std::to_string(reply.body.size()) + "\r\n" + kCorsAndClose);
    EXPECT_EQ(reply.body, "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 9,\n  \"result\": {\n      \"echo\": \"ping\"\n    }\n}");
    EXPECT_TRUE(log.contains(0, "Received request body (40 bytes)"));
    EXPECT_EQ(transport.pendingConnectionCount(), 0u);
}

TEST_F(TransportTest, MethodsOtherThanPostWithABody)
{
    const HttpReply options = parseReply(roundTrip(port, "OPTIONS /any HTTP/1.1\r\n\r\n"));
    // A browser's preflight learns every header MCP clients send.
    EXPECT_EQ(options.head, "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 0\r\n"
                            "Access-Control-Allow-Origin: *\r\nAccess-Control-Allow-Methods: POST, GET, DELETE, OPTIONS\r\n"
                            "Access-Control-Allow-Headers: Content-Type, Accept, Authorization, MCP-Protocol-Version, "
                            "Mcp-Session-Id, Last-Event-ID\r\nAccess-Control-Expose-Headers: Mcp-Session-Id\r\n"
                            "Access-Control-Max-Age: 600\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(options.body, "");

    const std::string notAllowed = "HTTP/1.1 405 Method Not Allowed\r\nContent-Type: application/json\r\n"
                                   "Content-Length: 30\r\n" + kCorsAndClose + R"({"error":"Method not allowed"})";
    EXPECT_EQ(roundTrip(port, "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"), notAllowed);
    EXPECT_EQ(roundTrip(port, "post / HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}"), notAllowed);
    EXPECT_EQ(roundTrip(port, "POST / HTTP/1.1\r\nContent-Length: 0\r\n\r\n"), notAllowed);
    EXPECT_EQ(roundTrip(port, "\r\n"), notAllowed);
    EXPECT_EQ(handled.load(), 0);
}

TEST_F(TransportTest, InvalidJSONGets400AndTheBodyInTheLog)
{
    const HttpReply reply = parseReply(roundTrip(port, "POST /whatever HTTP/1.1\r\nContent-Length: 8\r\n\r\nnot json"));
    EXPECT_EQ(reply.status, 400);
    EXPECT_EQ(reply.body, R"({"error":"Invalid JSON-RPC request"})");
    EXPECT_TRUE(log.contains(1006, "Invalid JSON-RPC request. BODY:\nnot json"));
    EXPECT_EQ(post(port, R"([{"method":"ping"}])").status, 400);
}

TEST_F(TransportTest, ChunkedBodiesAndBodiesArrivingInSlowPieces)
{
    // Chunked wins over a length; the header name in any case.
    const HttpReply chunked = parseReply(roundTrip(port, "POST / HTTP/1.1\r\nTRANSFER-ENCODING: chunked\r\nContent-Length: 5\r\n"
                                                        "\r\na\r\n{\"method\":\r\n14\r\n\"tools/list\",\"id\":1}\r\n0\r\n\r\n"));
    EXPECT_NE(chunked.body.find("\"echo\": \"tools/list\""), std::string::npos);

    const int fd = connectTo(port);
    ASSERT_GE(fd, 0);
    const std::string body = R"({"method":"ping","id":2})";
    const std::string head = "POST / HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    ASSERT_GT(::send(fd, head.data(), head.size(), MSG_NOSIGNAL), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_GT(::send(fd, "\r\n", 2, MSG_NOSIGNAL), 0);
    for (char c : body) {
        ASSERT_EQ(::send(fd, &c, 1, MSG_NOSIGNAL), 1);
    }
    const HttpReply reply = parseReply(readAll(fd));
    ::close(fd);
    EXPECT_EQ(reply.status, 200);
}

TEST_F(TransportTest, FailedReadsAreLoggedAndAnsweredWithNothing)
{
    // Connect and close at once; half a request; a malformed length.
    ::close(connectTo(port));
    const int half = sendRaw(port, "POST / HTTP/1.1\r\nContent-Length: 100\r\n\r\n{\"partial");
    ::shutdown(half, SHUT_WR);
    EXPECT_EQ(readAll(half), "");
    ::close(half);
    EXPECT_EQ(roundTrip(port, "POST / HTTP/1.1\r\nContent-Length: ten\r\n\r\n{}"), "");
    EXPECT_TRUE(waitFor([&] { return log.count(1005) >= 3; }));
    EXPECT_TRUE(log.contains(1005, "Failed to read complete HTTP request"));
    EXPECT_TRUE(transport.isRunning());
    EXPECT_EQ(post(port, R"({"method":"ping"})").status, 200);
}

TEST_F(TransportTest, NoResponseGives202AndNoHandler500)
{
    transport.setMessageHandler([](const std::string &, std::shared_ptr<MCPMessage>) {});
    EXPECT_EQ(post(port, R"({"method":"notifications/cancelled"})").head,
              "HTTP/1.1 202 Accepted\r\nContent-Type: application/json\r\nContent-Length: 0\r\n" + kCorsAndClose);
    EXPECT_EQ(transport.pendingConnectionCount(), 0u);

    transport.setMessageHandler(nullptr);
    const HttpReply reply = post(port, R"({"method":"ping"})");
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.body, R"({"error":"No message handler available."})");
    EXPECT_TRUE(log.contains(1007, "No message handler available"));
}

TEST_F(TransportTest, StartStopAndPortInUse)
{
    EXPECT_FALSE(transport.start(port, false));  // already running, no log line
    EXPECT_FALSE(log.contains(1002, "Failed to bind socket to port " + std::to_string(port)));

    LogRecorder secondLog;  // outlives the transport, which logs when it stops
    MCPHttpTransport second;
    second.setLogCallback(secondLog.callback());
    EXPECT_FALSE(second.start(port, false));
    EXPECT_TRUE(secondLog.contains(1002, "Failed to bind socket to port " + std::to_string(port)));
    const int other = freePort();
    EXPECT_TRUE(second.start(other, false));
    EXPECT_TRUE(secondLog.contains(0, "MCP HTTP Server started on port " + std::to_string(other)));

    transport.stop();
    EXPECT_FALSE(transport.isRunning());
    EXPECT_TRUE(log.contains(0, "MCP HTTP Server stopped"));
    EXPECT_EQ(connectTo(port), -1);
    // A stopped transport starts again on a new socket.
    EXPECT_TRUE(transport.start(port, false));
    EXPECT_EQ(post(port, R"({"method":"ping"})").status, 200);
}

TEST_F(TransportTest, PeerThatVanishesBeforeTheAnswer)
{
    Latch release;
    transport.setMessageHandler([&](const std::string &id, std::shared_ptr<MCPMessage> message) {
        release.wait();
        // A large response to a closed peer: the write fails, the process lives on.
        JSONValue result;
        result["blob"] = JSONValue(std::string(1 << 20, 'x'));
        transport.sendResponse(id, MCPServerMessage::createResponse(*message, result));
        ++handled;
    });
    const int fd = sendRaw(port, kGo);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    ::close(fd);
    release.open();
    EXPECT_TRUE(waitFor([&] { return handled.load() == 1; }));
    EXPECT_EQ(transport.pendingConnectionCount(), 0u);
}

TEST_F(TransportTest, StopDuringAHandlerClosesTheSocketAndTheLateResponseGoesNowhere)
{
    Latch entered;
    Latch release;
    std::atomic<bool> sent{false};
    transport.setMessageHandler([&](const std::string &id, std::shared_ptr<MCPMessage> message) {
        entered.open();
        release.wait();
        transport.sendResponse(id, MCPServerMessage::createResponse(*message, JSONValue(1)));
        sent = true;
    });
    const int fd = sendRaw(port, kGo);
    ASSERT_TRUE(entered.wait());
    EXPECT_EQ(transport.pendingConnectionCount(), 1u);
    transport.stop();
    EXPECT_EQ(transport.pendingConnectionCount(), 0u);
    EXPECT_EQ(readAll(fd), "");  // closed by stop, without an answer
    ::close(fd);
    release.open();
    EXPECT_TRUE(waitFor([&] { return sent.load(); }));
}

TEST(MCPHttpTransportLifetime, DestructorWaitsForWorkersAndWakesIdleReaders)
{
    std::atomic<bool> finished{false};
    const int port = freePort();
    int idle = -1;
    {
        MCPHttpTransport transport;
        transport.setLogCallback([](LogMessageType, int32_t, const std::string &) {});
        transport.setMessageHandler([&](const std::string &id, std::shared_ptr<MCPMessage> message) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            transport.sendResponse(id, MCPServerMessage::createResponse(*message, JSONValue(1)));
            finished = true;
        });
        ASSERT_TRUE(transport.start(port, false));
        idle = connectTo(port);  // never sends a byte
        const int busy = sendRaw(port, kGo);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ::close(busy);
    }
    EXPECT_TRUE(finished.load());
    EXPECT_EQ(readAll(idle), "");
    ::close(idle);
}

// Workers accept for themselves; the one that takes the last waiting place starts another
// first, so connections held in the handler never hold up a new one. After the burst the
// extra workers end, and a stop and start on the same port while one is still busy leaves
// that worker on the old socket.
TEST_F(TransportTest, HeldConnectionsNeverHoldUpANewOneAndIdleWorkersEnd)
{
    const int threadsBefore = threadCount();
    Latch release;
    Latch stayEntered;
    Latch stayRelease;
    transport.setMessageHandler([&](const std::string &id, std::shared_ptr<MCPMessage> message) {
        if (message->method == "go") {
            ++handled;
            release.wait();
        } else if (message->method == "stay") {
            stayEntered.open();
            stayRelease.wait();
        }
        JSONValue result;
        result["echo"] = JSONValue(message->method);
        transport.sendResponse(id, MCPServerMessage::createResponse(*message, result));
    });
    constexpr int kHeld = 20;
    std::vector<int> held;
    for (int i = 0; i < kHeld; ++i)
        held.push_back(sendRaw(port, kGo));
    ASSERT_TRUE(waitFor([&] { return handled.load() == kHeld; }));
    const HttpReply reply = post(port, R"({"method":"ping"})");
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.body.find("\"echo\": \"ping\""), std::string::npos);
    EXPECT_GT(threadCount(), threadsBefore + kHeld);
    release.open();
    for (int fd : held) {
        EXPECT_NE(readAll(fd).find("\"echo\": \"go\""), std::string::npos);
        ::close(fd);
    }

    // A worker still in its handler across a stop and a start on the same port: it ends
    // after the handler, and the new socket goes on serving.
    const int staying = sendRaw(port, "POST / HTTP/1.1\r\nContent-Length: 17\r\n\r\n{\"method\":\"stay\"}");
    ASSERT_TRUE(stayEntered.wait());
    transport.stop();
    ASSERT_TRUE(transport.start(port, false));
    stayRelease.open();
    EXPECT_EQ(readAll(staying), "");  // closed by the stop
    ::close(staying);
    EXPECT_EQ(post(port, R"({"method":"ping"})").status, 200);
    EXPECT_TRUE(waitFor([&] { return threadCount() <= threadsBefore + 2; }, std::chrono::seconds(10)));
    EXPECT_EQ(post(port, R"({"method":"ping"})").status, 200);
}
