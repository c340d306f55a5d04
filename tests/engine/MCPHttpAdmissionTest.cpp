// What a request may cost the transport before and while it is read: who asks is settled on
// the head alone, bodies share one budget, each address has its own cap of connections, and
// refusals do not flood the log.
#include "EngineTestSupport.h"
#include "ServerProcess.h"

#include "engine/MCPHttpPolicy.h"
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServerMessage.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace MCP;
using namespace EngineTest;

namespace {

const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";

std::string postWith(const std::string &headers, const std::string &body)
{
    return "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

// No wait on the socket lasts longer than a few seconds, whatever the server does.
void boundWaits(int fd)
{
    const timeval bound{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound);
}

// Reads until the server closes; `closed` says whether it did, rather than the bound passing.
std::string readUntilClosed(int fd, bool &closed)
{
    std::string out;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) {
            closed = n == 0;
            return out;
        }
        out.append(buffer, static_cast<size_t>(n));
    }
}

// A connection to 127.0.0.1 from the given loopback source address.
int connectFrom(const char *source, int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    ::inet_pton(AF_INET, source, &local.sin_addr);
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    remote.sin_port = htons(static_cast<uint16_t>(port));
    if (::bind(fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0 ||
        ::connect(fd, reinterpret_cast<sockaddr *>(&remote), sizeof remote) != 0) {
        ::close(fd);
        return -1;
    }
    boundWaits(fd);
    return fd;
}

size_t occurrences(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class AdmissionTest : public ::testing::Test {
protected:
    void startWith(MCPHttpPolicy policy)
    {
        transport.setLogCallback(log.callback());
        transport.setPolicy(std::move(policy));
        transport.setMessageHandler([this](const std::string &id, std::shared_ptr<MCPMessage> message) {
            ++handled;
            heldWhileHandled = transport.bufferedByteCount();
            transport.sendResponse(id, MCPServerMessage::createResponse(*message, JSONValue(JSONValue::ObjectType{})));
        });
        ASSERT_TRUE(transport.start(0, false));
        port = transport.port();
        ASSERT_GT(port, 0);
    }

    LogRecorder log;
    MCPHttpTransport transport;
    std::atomic<int> handled{0};
    std::atomic<size_t> heldWhileHandled{0};
    int port = 0;
};

}  // namespace

TEST(MCPHttpPolicyTest, EachAddressMayHoldAQuarterOfTheConnectionsAtLeastEight)
{
    MCPHttpPolicy policy;
    policy.maxConnections = 100;
    EXPECT_EQ(policy.peerConnectionCap(), 25u);
    policy.maxConnections = 10;
    EXPECT_EQ(policy.peerConnectionCap(), 8u);
    policy.maxConnectionsPerPeer = 3;
    EXPECT_EQ(policy.peerConnectionCap(), 3u);
    // Derived from the open-file limit, the share stays below the whole.
    MCPHttpPolicy derived;
    EXPECT_LT(derived.peerConnectionCap(), derived.connectionCap());
}

// A client declares a 32 MiB body and sends only the head: it is answered and sees the end of
// the connection without ever sending the body.
TEST_F(AdmissionTest, WhoAsksIsSettledOnTheHeadBeforeTheBodyIsRead)
{
    MCPHttpPolicy policy;
    policy.bearerToken = "t0ken";
    startWith(policy);
    const std::string declared = "Content-Length: " + std::to_string(32u << 20) + "\r\n";
    const std::pair<std::string, int> cases[] = {
        {"", 401},
        {"Authorization: Bearer wrong\r\n", 401},
        {"Authorization: Bearer t0ken\r\nOrigin: http://evil.example\r\n", 403},
        {"Authorization: Bearer t0ken\r\nOrigin: http://localhost\r\nOrigin: http://localhost\r\n", 400},
    };
    for (const auto &[headers, status] : cases) {
        const int fd = connectTo(port);
        ASSERT_GE(fd, 0);
        boundWaits(fd);
        const std::string head = "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers + declared + "\r\n";
        ASSERT_EQ(::send(fd, head.data(), head.size(), MSG_NOSIGNAL), static_cast<ssize_t>(head.size()));
        bool closed = false;
        const HttpReply reply = parseReply(readUntilClosed(fd, closed));
        ::close(fd);
        EXPECT_EQ(reply.status, status) << headers;
        EXPECT_TRUE(closed) << "the server waited for the body: " << headers;
        if (status == 401) {
            EXPECT_NE(reply.head.find("\r\nWWW-Authenticate: Bearer realm=\"kelvara\"\r\n"), std::string::npos);
        }
    }
    EXPECT_EQ(handled.load(), 0);
    EXPECT_TRUE(waitFor([&] { return transport.bufferedByteCount() == 0; }));
}

// The same refusal while the client pushes the whole body: the server's memory does not grow
// by it. The server runs in a process of its own, so that its peak is its own.
TEST(MCPHttpAdmissionMemory, AnUnauthenticatedBodyDoesNotGrowTheServer)
{
    const ServerProcess server({"--token", "t0ken"});
    ASSERT_GT(server.port(), 0);
    // Warmed up by one served request, so that its threads and buffers exist already.
    const HttpReply served = parseReply(roundTrip(server.port(), postWith("Authorization: Bearer t0ken\r\n", kPing)));
    ASSERT_EQ(served.status, 200);
    const long before = server.peakResidentKiB();
    ASSERT_GT(before, 0);

    const size_t bodySize = 32u << 20;
    const int fd = connectTo(server.port());
    ASSERT_GE(fd, 0);
    boundWaits(fd);
    std::thread sender([fd, bodySize] {
        const std::string head = "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: " + std::to_string(bodySize) + "\r\n\r\n";
        if (::send(fd, head.data(), head.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(head.size()))
            return;
        const std::string piece(1u << 20, '{');
        for (size_t sent = 0; sent < bodySize; sent += piece.size()) {
            if (::send(fd, piece.data(), piece.size(), MSG_NOSIGNAL) < 0)
                return;  // the server has closed the connection
        }
    });
    bool closed = false;
    const HttpReply reply = parseReply(readUntilClosed(fd, closed));
    sender.join();
    ::close(fd);
    EXPECT_EQ(reply.status, 401);
    const long after = server.peakResidentKiB();
    EXPECT_LT(after - before, 8 * 1024) << "peak resident memory went from " << before << " KiB to " << after << " KiB";
}

TEST_F(AdmissionTest, BodiesHeldAcrossConnectionsShareOneBudget)
{
    MCPHttpPolicy policy;
    policy.maxBufferedBytes = 100000;
    startWith(policy);

    // Two bodies held part-sent: about 60 000 bytes of the 100 000.
    const std::string partial = "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 40000\r\n\r\n" + std::string(30000, ' ');
    const int first = sendRaw(port, partial);
    const int second = sendRaw(port, partial);
    ASSERT_TRUE(waitFor([&] { return transport.bufferedByteCount() >= 60000; }));

    // A third whose declared body cannot be held is refused on its head.
    const HttpReply declared = parseReply(roundTrip(port, "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 40000\r\n\r\n"));
    EXPECT_EQ(declared.status, 503);
    EXPECT_NE(declared.head.find("\r\nRetry-After: 1\r\n"), std::string::npos);
    // One without a declared length is stopped once what it sent passes the budget.
    std::string chunked = "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (int i = 0; i < 50; ++i)
        chunked += "3e8\r\n" + std::string(1000, ' ') + "\r\n";
    chunked += "0\r\n\r\n";
    EXPECT_EQ(parseReply(roundTrip(port, chunked)).status, 503);
    EXPECT_EQ(handled.load(), 0);
    EXPECT_GE(log.count(1009), 1);

    // Abandoned and refused requests give back what they held.
    ::close(first);
    ::close(second);
    ASSERT_TRUE(waitFor([&] { return transport.bufferedByteCount() == 0; }));
    // A body alone within the budget is served; it counts while it is handled, not after.
    const std::string padded = R"({"jsonrpc":"2.0","id":1,"method":"ping","pad":")" + std::string(60000, 'p') + "\"}";
    EXPECT_EQ(post(port, padded).status, 200);
    EXPECT_GE(heldWhileHandled.load(), padded.size());
    EXPECT_TRUE(waitFor([&] { return transport.bufferedByteCount() == 0; }));
}

TEST_F(AdmissionTest, EachAddressHasItsOwnCapOfConnections)
{
    MCPHttpPolicy policy;
    policy.maxConnectionsPerPeer = 3;
    startWith(policy);

    std::vector<int> held;
    for (int i = 0; i < 3; ++i)
        held.push_back(sendRaw(port, "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Le"));
    ASSERT_TRUE(waitFor([&] { return transport.openConnectionCount() == 3; }));

    const HttpReply busy = parseReply(roundTrip(port, postWith("", kPing)));
    EXPECT_EQ(busy.status, 503);
    EXPECT_NE(busy.head.find("\r\nRetry-After: 1\r\n"), std::string::npos);
    EXPECT_NE(busy.body.find("too many connections from this address"), std::string::npos);
    EXPECT_TRUE(log.contains(1009, "Refused a connection from 127.0.0.1: 3 connections from that address are open already"));

    // Another address is not held up by this one.
    const int other = connectFrom("127.0.0.2", port);
    ASSERT_GE(other, 0);
    const std::string ping = postWith("", kPing);
    ASSERT_EQ(::send(other, ping.data(), ping.size(), MSG_NOSIGNAL), static_cast<ssize_t>(ping.size()));
    bool closed = false;
    EXPECT_EQ(parseReply(readUntilClosed(other, closed)).status, 200);
    ::close(other);

    // A connection that ends gives its place back.
    ::close(held.back());
    held.pop_back();
    ASSERT_TRUE(waitFor([&] { return transport.openConnectionCount() == 2; }));
    EXPECT_EQ(post(port, kPing).status, 200);
    for (const int fd : held)
        ::close(fd);
    EXPECT_TRUE(waitFor([&] { return transport.openConnectionCount() == 0; }));
    EXPECT_EQ(handled.load(), 2);
}

TEST_F(AdmissionTest, RefusalsAreLoggedOncePerReasonWithTheirCount)
{
    MCPHttpPolicy policy;
    policy.bearerToken = "t0ken";
    policy.refusalLogInterval = std::chrono::hours(1);  // the whole test within one interval
    startWith(policy);

    constexpr int kRefused = 40;
    for (int i = 0; i < kRefused; ++i)
        ASSERT_EQ(parseReply(roundTrip(port, postWith("", kPing))).status, 401);
    const std::string tokenLine = "Refused a request without a valid bearer token. Give the client the token shown on the "
                                  "Server screen (kelvara serve prints it on standard error) as \"Authorization: Bearer "
                                  "<token>\"";
    EXPECT_TRUE(log.contains(1008, tokenLine));
    EXPECT_EQ(log.count(1008), 1);
    // Another reason is not hidden by the flood.
    EXPECT_EQ(parseReply(roundTrip(port, postWith("Authorization: Bearer t0ken\r\nOrigin: http://evil.example\r\n", kPing))).status,
              403);
    EXPECT_EQ(log.count(1008), 2);

    // The count is named at the latest when the server stops.
    transport.stop();
    EXPECT_TRUE(log.contains(1008, "Refused " + std::to_string(kRefused - 1) +
                                       " more requests without a valid bearer token since the last such line"));
    EXPECT_EQ(log.count(1008), 3);
    EXPECT_EQ(handled.load(), 0);
}

TEST_F(AdmissionTest, HeadersThatDecideWhoAsksOrWhereTheBodyEndsComeOnce)
{
    startWith(MCPHttpPolicy{});
    const char *const repeated[][2] = {
        {"Origin: http://localhost\r\nOrigin: http://evil.example\r\n", "Origin"},
        {"Origin: http://evil.example\r\norigin: http://localhost\r\n", "Origin"},
        {"Host: localhost\r\n", "Host"},
        {"Authorization: Bearer a\r\nAuthorization: Bearer b\r\n", "Authorization"},
        {"Content-Length: 40\r\n", "Content-Length"},
        {"Transfer-Encoding: chunked\r\nTransfer-Encoding: gzip\r\n", "Transfer-Encoding"},
    };
    for (const auto &[headers, name] : repeated) {
        const HttpReply reply = parseReply(roundTrip(port, postWith(headers, kPing)));
        EXPECT_EQ(reply.status, 400) << headers;
        EXPECT_EQ(reply.body, R"({"jsonrpc":"2.0","id":null,"error":{"code":-32000,"message":"Bad Request: more than one )" +
                                  std::string(name) + R"( header"}})");
    }
    EXPECT_EQ(handled.load(), 0);
    // Other headers may repeat as they always could.
    EXPECT_EQ(parseReply(roundTrip(port, postWith("Accept: a\r\nAccept: b\r\n", kPing))).status, 200);
}

TEST_F(AdmissionTest, WithoutKeepAliveAPipelinedRequestIsNotTakenForTheBody)
{
    startWith(MCPHttpPolicy{});
    const std::string two = postWith("", kPing) + postWith("", R"({"jsonrpc":"2.0","id":2,"method":"ping"})");
    const int fd = connectTo(port);
    ASSERT_GE(fd, 0);
    boundWaits(fd);
    ASSERT_EQ(::send(fd, two.data(), two.size(), MSG_NOSIGNAL), static_cast<ssize_t>(two.size()));
    bool closed = false;
    const std::string answer = readUntilClosed(fd, closed);
    ::close(fd);
    EXPECT_TRUE(closed);
    EXPECT_EQ(occurrences(answer, "HTTP/1.1 "), 1u) << answer;
    const HttpReply reply = parseReply(answer);
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.head.find("\r\nConnection: close\r\n"), std::string::npos);
    EXPECT_NE(reply.body.find("\"id\": 1"), std::string::npos);
    EXPECT_EQ(handled.load(), 1);
}
