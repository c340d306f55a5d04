// The HTTP transport's policy: who may call it and what a connection may cost.
#include "EngineTestSupport.h"
#include "ServerProcess.h"

#include "engine/MCPHttpPolicy.h"
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServerMessage.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace MCP;
using namespace EngineTest;

namespace {

std::string postWith(const std::string &headers, const std::string &body)
{
    return "POST / HTTP/1.1\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";

class AccessTest : public ::testing::Test {
protected:
    void startWith(MCPHttpPolicy policy, bool listenAtAll = false)
    {
        transport.setLogCallback(log.callback());
        transport.setPolicy(std::move(policy));
        transport.setMessageHandler([this](const std::string &id, std::shared_ptr<MCPMessage> message) {
            ++handled;
            transport.sendResponse(id, MCPServerMessage::createResponse(*message, JSONValue(JSONValue::ObjectType{})));
        });
        ASSERT_TRUE(transport.start(0, listenAtAll));
        port = transport.port();
        ASSERT_GT(port, 0);
    }

    LogRecorder log;
    MCPHttpTransport transport;
    std::atomic<int> handled{0};
    int port = 0;
};

}  // namespace

TEST(MCPHttpPolicyTest, LoopbackOriginsAndHostsAndTheAllowedList)
{
    for (const char *origin : {"http://localhost", "http://localhost:5173", "https://127.0.0.1:8443", "http://[::1]:3000",
                               "HTTP://LocalHost:1/"})
        EXPECT_TRUE(MCPHttpPolicy::isLoopbackOrigin(origin)) << origin;
    for (const char *origin : {"http://evil.example", "http://localhost.evil.example", "null", "file://", "ws://localhost",
                               "http://127.0.0.1.nip.io", "http://localhost:80x", "http://[::1"})
        EXPECT_FALSE(MCPHttpPolicy::isLoopbackOrigin(origin)) << origin;
    for (const char *host : {"localhost", "127.0.0.1:8888", "[::1]:8888", "LOCALHOST:1"})
        EXPECT_TRUE(MCPHttpPolicy::isLoopbackHost(host)) << host;
    for (const char *host : {"evil.example", "evil.example:8888", "127.0.0.2", "", "localhost:"})
        EXPECT_FALSE(MCPHttpPolicy::isLoopbackHost(host)) << host;

    MCPHttpPolicy policy;
    policy.allowedOrigins = {"https://app.example:3000/"};
    EXPECT_TRUE(policy.originAllowed("https://APP.example:3000"));
    EXPECT_FALSE(policy.originAllowed("https://app.example:3001"));
    EXPECT_FALSE(policy.originAllowed("http://app.example:3000"));
    policy.allowedOrigins = {"*"};
    EXPECT_TRUE(policy.originAllowed("http://anything.example"));
}

TEST(MCPHttpPolicyTest, TheTokenMustMatchInFull)
{
    MCPHttpPolicy policy;
    EXPECT_TRUE(policy.authorizationAccepted(""));  // none asked for
    policy.bearerToken = "s3cret-token";
    EXPECT_TRUE(policy.authorizationAccepted("Bearer s3cret-token"));
    EXPECT_TRUE(policy.authorizationAccepted("bearer s3cret-token"));
    for (const char *given : {"", "Bearer", "Bearer ", "Bearer s3cret", "Bearer s3cret-token2", "Basic s3cret-token",
                              "s3cret-token", "Bearer S3CRET-TOKEN"})
        EXPECT_FALSE(policy.authorizationAccepted(given)) << given;
}

TEST_F(AccessTest, AForeignOriginOrHostIsRefusedBeforeAnythingRuns)
{
    MCPHttpPolicy policy;
    policy.allowedOrigins = {"https://app.example"};
    policy.refusalLogInterval = std::chrono::milliseconds(0);  // every refusal its own line
    startWith(policy);

    const HttpReply evil = parseReply(roundTrip(port, postWith("Host: 127.0.0.1\r\nOrigin: http://evil.example\r\n", kPing)));
    EXPECT_EQ(evil.status, 403);
    EXPECT_EQ(evil.body, R"({"jsonrpc":"2.0","id":null,"error":{"code":-32000,"message":"Forbidden: origin http://evil.example is not allowed"}})");
    // DNS rebinding: the page's own origin, the attacker's name for this machine.
    const HttpReply rebound = parseReply(roundTrip(port, postWith("Host: evil.example:8888\r\n", kPing)));
    EXPECT_EQ(rebound.status, 403);
    // A preflight from a foreign page is refused as well.
    EXPECT_EQ(parseReply(roundTrip(port, "OPTIONS / HTTP/1.1\r\nOrigin: http://evil.example\r\n\r\n")).status, 403);
    EXPECT_EQ(handled.load(), 0);
    EXPECT_TRUE(waitFor([&] { return log.count(1008) == 3; }));
    EXPECT_TRUE(log.contains(1008, "Refused a request from origin http://evil.example: a web page may not call this server. "
                                   "To allow it, add the origin to the allowed origins (Server screen, or kelvara serve "
                                   "--allow-origin http://evil.example)"));

    // Allowed and loopback origins, and clients that send no origin, see today's bytes.
    const std::string plain = roundTrip(port, postWith("Host: 127.0.0.1\r\n", kPing));
    for (const char *origin : {"https://app.example", "http://localhost:5173"}) {
        EXPECT_EQ(roundTrip(port, postWith("Host: localhost:1\r\nOrigin: " + std::string(origin) + "\r\n", kPing)), plain) << origin;
    }
    EXPECT_EQ(parseReply(plain).status, 200);
    EXPECT_EQ(handled.load(), 3);
}

TEST_F(AccessTest, OnAllInterfacesAnyHostIsServedButTheTokenIsRequired)
{
    MCPHttpPolicy policy;
    policy.bearerToken = "t0ken";
    startWith(policy, true);

    const HttpReply missing = parseReply(roundTrip(port, postWith("Host: my-desktop.lan:8888\r\n", kPing)));
    EXPECT_EQ(missing.status, 401);
    EXPECT_NE(missing.head.find("\r\nWWW-Authenticate: Bearer realm=\"kelvara\"\r\n"), std::string::npos);
    EXPECT_EQ(parseReply(roundTrip(port, postWith("Authorization: Bearer wrong\r\n", kPing))).status, 401);
    EXPECT_EQ(handled.load(), 0);
    EXPECT_EQ(parseReply(roundTrip(port, postWith("Host: my-desktop.lan:8888\r\nAuthorization: Bearer t0ken\r\n", kPing))).status, 200);
    EXPECT_EQ(handled.load(), 1);
}

TEST_F(AccessTest, OversizedHeadsAndBodiesAreRefusedWithoutRunning)
{
    MCPHttpPolicy policy;
    policy.maxBodyBytes = 1000;
    policy.maxHeadBytes = 512;
    startWith(policy);

    // Refused on the declared length alone: the client need not send the body.
    const HttpReply declared = parseReply(roundTrip(port, "POST / HTTP/1.1\r\nContent-Length: 1001\r\n\r\n"));
    EXPECT_EQ(declared.status, 413);
    EXPECT_NE(declared.body.find("the body may have at most 1000 bytes"), std::string::npos);
    // A chunked body has no declared length: it is stopped once it grows past the bound.
    std::string chunked = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (int i = 0; i < 20; ++i)
        chunked += "64\r\n" + std::string(100, 'x') + "\r\n";
    EXPECT_EQ(parseReply(roundTrip(port, chunked)).status, 413);
    EXPECT_EQ(parseReply(roundTrip(port, "POST / HTTP/1.1\r\nX-Big: " + std::string(600, 'a') + "\r\n\r\n")).status, 431);
    EXPECT_EQ(handled.load(), 0);
    // Right at the bounds a request is served.
    const std::string padded = R"({"jsonrpc":"2.0","id":1,"method":"ping","pad":")" + std::string(1000 - 49, 'p') + "\"}";
    ASSERT_EQ(padded.size(), 1000u);
    EXPECT_EQ(post(port, padded).status, 200);
}

TEST_F(AccessTest, ASlowClientGets408AndConnectionsOverTheCapGet503)
{
    MCPHttpPolicy policy;
    policy.receiveTimeout = std::chrono::milliseconds(300);
    policy.maxConnections = 2;
    startWith(policy);

    const int first = sendRaw(port, "POST / HTTP/1.1\r\nContent-Le");
    const int second = sendRaw(port, "POST / HTTP/1.1\r\nContent-Length: 10\r\n\r\n{");
    ASSERT_TRUE(waitFor([&] { return transport.openConnectionCount() == 2; }));
    const HttpReply busy = parseReply(roundTrip(port, postWith("", kPing)));
    EXPECT_EQ(busy.status, 503);
    EXPECT_NE(busy.head.find("\r\nRetry-After: 1\r\n"), std::string::npos);

    EXPECT_EQ(parseReply(readAll(first)).status, 408);
    EXPECT_EQ(parseReply(readAll(second)).status, 408);
    ::close(first);
    ::close(second);
    ASSERT_TRUE(waitFor([&] { return transport.openConnectionCount() == 0; }));
    EXPECT_EQ(post(port, kPing).status, 200);
    EXPECT_EQ(handled.load(), 1);
}

// Under the open-file limit of a desktop session, hundreds of connections that never finish
// their request neither stop the server nor make it spin; once the receive limit has passed,
// a client is served again. The server is a process of its own with its own limit.
TEST(MCPHttpAccessLimits, HalfOpenConnectionsUnderALowOpenFileLimit)
{
    const ServerProcess server({"--open-files", "256"});
    const int port = server.port();
    ASSERT_GT(port, 0);

    rlimit mine{};
    ::getrlimit(RLIMIT_NOFILE, &mine);
    const int wanted = std::min<int>(400, static_cast<int>(mine.rlim_cur) - 64);
    std::vector<int> halfOpen;
    for (int i = 0; i < wanted; ++i) {
        const int fd = sendRaw(port, "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Le");
        if (fd >= 0)
            halfOpen.push_back(fd);
    }
    EXPECT_EQ(static_cast<int>(halfOpen.size()), wanted);

    // Served again once the stalled ones have been closed by the receive limit.
    bool served = false;
    for (int attempt = 0; attempt < 100 && !served; ++attempt) {
        served = post(port, kPing).status == 200;
        if (!served)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_TRUE(served);
    int answered = 0;
    for (const int fd : halfOpen) {
        const int status = parseReply(readAll(fd)).status;
        answered += status == 408 || status == 503;
        ::close(fd);
    }
    EXPECT_EQ(answered, static_cast<int>(halfOpen.size()));
}

namespace {

// Reads one whole response (head and Content-Length body) off a connection that stays open.
std::string readOneResponse(int fd)
{
    std::string data;
    char byte;
    while (data.find("\r\n\r\n") == std::string::npos && ::recv(fd, &byte, 1, 0) == 1)
        data += byte;
    const size_t at = data.find("Content-Length: ");
    if (at == std::string::npos)
        return data;
    size_t length = std::stoul(data.substr(at + 16));
    std::string body(length, '\0');
    size_t got = 0;
    while (got < length) {
        const ssize_t n = ::recv(fd, body.data() + got, length - got, 0);
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    return data + body.substr(0, got);
}

bool closedByPeer(int fd)
{
    char byte;
    return ::recv(fd, &byte, 1, 0) == 0;
}

}  // namespace

TEST_F(AccessTest, KeptOpenConnectionsServeRequestsInTurnUntilIdleOrDone)
{
    MCPHttpPolicy policy;
    policy.keepAlive = true;
    policy.idleTimeout = std::chrono::milliseconds(300);
    policy.maxRequestsPerConnection = 4;
    startWith(policy);
    const std::string ping = postWith("Host: 127.0.0.1\r\n", kPing);

    // Three in turn, then three sent at once: six answers, in order, on one connection.
    const int fd = connectTo(port);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(::send(fd, ping.data(), ping.size(), 0), static_cast<ssize_t>(ping.size()));
        const HttpReply reply = parseReply(readOneResponse(fd));
        EXPECT_EQ(reply.status, 200) << i;
        EXPECT_NE(reply.head.find("\r\nConnection: keep-alive\r\n"), std::string::npos) << i;
    }
    // The fourth is the last this connection takes: it says so and closes.
    ASSERT_EQ(::send(fd, ping.data(), ping.size(), 0), static_cast<ssize_t>(ping.size()));
    EXPECT_NE(parseReply(readOneResponse(fd)).head.find("\r\nConnection: close\r\n"), std::string::npos);
    EXPECT_TRUE(closedByPeer(fd));
    ::close(fd);

    const int pipelined = connectTo(port);
    const std::string three = ping + ping + postWith("Host: 127.0.0.1\r\n", R"({"jsonrpc":"2.0","id":3,"method":"last"})");
    ASSERT_EQ(::send(pipelined, three.data(), three.size(), 0), static_cast<ssize_t>(three.size()));
    EXPECT_EQ(parseReply(readOneResponse(pipelined)).status, 200);
    EXPECT_EQ(parseReply(readOneResponse(pipelined)).status, 200);
    EXPECT_NE(readOneResponse(pipelined).find("\"id\": 3"), std::string::npos);
    // Nothing more within the idle time: the server closes the connection.
    EXPECT_TRUE(closedByPeer(pipelined));
    ::close(pipelined);

    // A client that says "close", or speaks HTTP/1.0, gets one answer and the close.
    for (const std::string &request : {postWith("Connection: close\r\n", kPing),
                                       "POST / HTTP/1.0\r\nContent-Length: " + std::to_string(kPing.size()) + "\r\n\r\n" + kPing}) {
        const int once = sendRaw(port, request);
        EXPECT_NE(parseReply(readOneResponse(once)).head.find("\r\nConnection: close\r\n"), std::string::npos);
        EXPECT_TRUE(closedByPeer(once));
        ::close(once);
    }
    EXPECT_EQ(handled.load(), 9);
}

TEST_F(AccessTest, StopClosesConnectionsWaitingForTheirNextRequest)
{
    MCPHttpPolicy policy;
    policy.keepAlive = true;
    policy.idleTimeout = std::chrono::seconds(30);
    startWith(policy);
    const std::string ping = postWith("", kPing);
    const int fd = connectTo(port);
    ASSERT_EQ(::send(fd, ping.data(), ping.size(), 0), static_cast<ssize_t>(ping.size()));
    EXPECT_EQ(parseReply(readOneResponse(fd)).status, 200);
    transport.stop();
    EXPECT_TRUE(closedByPeer(fd));  // within a quarter second, not the idle time
    ::close(fd);
    EXPECT_TRUE(waitFor([&] { return transport.openConnectionCount() == 0; }));
}
