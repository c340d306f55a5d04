#include "EngineTestSupport.h"

#include "engine/JSONParser.h"
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServer.h"
#include "engine/MCPStdioTransport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <regex>
#include <unistd.h>

using namespace MCP;
using namespace EngineTest;

namespace {

// What the watch was told, in order: "+uri type" when watching starts, "-uri type" when it ends.
class WatchRecorder {
public:
    ResourceSubscriptions::Watch watch()
    {
        return [this](const std::string &uri, const std::string &type, bool on) {
            std::lock_guard lock(m_mutex);
            m_told.push_back((on ? "+" : "-") + uri + " " + type);
        };
    }
    std::vector<std::string> told()
    {
        std::lock_guard lock(m_mutex);
        return m_told;
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_told;
};

// The next whole line of the output (empty when none comes in time).
std::string nextLine(int fd, std::string &buffer)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    size_t end;
    while ((end = buffer.find('\n')) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd poll{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&poll, 1, int(left.count())) <= 0)
            return {};
        char chunk[4096];
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n <= 0)
            return {};
        buffer.append(chunk, size_t(n));
    }
    std::string line = buffer.substr(0, end);
    buffer.erase(0, end + 1);
    return line;
}

}  // namespace

TEST(ResourceSubscriptionsTest, ASubscribedSessionHearsOfChangesUntilItUnsubscribes)
{
    int in[2];
    int out[2];
    ASSERT_EQ(::pipe2(in, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(out, O_CLOEXEC), 0);
    MCPServer server(std::make_unique<MCPStdioTransport>(in[0], out[1]));
    WatchRecorder watch;
    server.setResourceWatch(watch.watch());
    server.getResourceService()->registerResource({.uri = "file:///w", .type = "file"});
    server.getResourceService()->registerResource({.uri = "test://item/{id}", .type = "template"});
    ASSERT_TRUE(server.start(0, false));
    std::string buffer;
    auto ask = [&](const std::string &line) {
        const std::string sent = line + "\n";
        EXPECT_EQ(::write(in[1], sent.data(), sent.size()), ssize_t(sent.size()));
        return nextLine(out[0], buffer);
    };
    auto parsed = [](const std::string &line) { return JSONParser::parseDocument(line).value_or(JSONValue()); };

    EXPECT_EQ(parsed(ask(R"({"jsonrpc":"2.0","id":1,"method":"resources/subscribe","params":{"uri":"file:///w"}})")).at("result").toString(0), "{}");
    // Twice by the same session, and a URI a template matches: each URI is watched once.
    ask(R"({"jsonrpc":"2.0","id":2,"method":"resources/subscribe","params":{"uri":"file:///w"}})");
    ask(R"({"jsonrpc":"2.0","id":3,"method":"resources/subscribe","params":{"uri":"test://item/7"}})");
    EXPECT_EQ(watch.told(), (std::vector<std::string>{"+file:///w file", "+test://item/7 template"}));
    const JSONValue unknown = parsed(ask(R"({"jsonrpc":"2.0","id":4,"method":"resources/subscribe","params":{"uri":"file:///nope"}})"));
    EXPECT_EQ(unknown.at("error").at("code").asNumber(), -32002);
    EXPECT_EQ(unknown.at("error").at("data").at("uri").asString(), "file:///nope");
    EXPECT_EQ(parsed(ask(R"({"jsonrpc":"2.0","id":5,"method":"resources/subscribe","params":{}})")).at("error").at("code").asNumber(), -32602);

    // A change of a URI nobody listens to says nothing; the next line is an answer.
    server.resourceChanged("file:///other");
    server.resourceChanged("file:///w");
    EXPECT_EQ(nextLine(out[0], buffer), R"({"jsonrpc":"2.0","method":"notifications/resources/updated","params":{"uri": "file:///w"}})");
    EXPECT_EQ(parsed(ask(R"({"jsonrpc":"2.0","id":6,"method":"ping"})")).at("id").asNumber(), 6);

    // Unsubscribed, the session hears nothing more, and the watch ends; unsubscribing
    // what was never subscribed is answered all the same.
    ask(R"({"jsonrpc":"2.0","id":7,"method":"resources/unsubscribe","params":{"uri":"file:///w"}})");
    EXPECT_EQ(parsed(ask(R"({"jsonrpc":"2.0","id":8,"method":"resources/unsubscribe","params":{"uri":"file:///x"}})")).at("result").toString(0), "{}");
    server.resourceChanged("file:///w");
    EXPECT_EQ(parsed(ask(R"({"jsonrpc":"2.0","id":9,"method":"ping"})")).at("id").asNumber(), 9);
    EXPECT_EQ(watch.told().back(), "-file:///w file");

    // Stopping the server ends every watch.
    server.stop();
    EXPECT_EQ(watch.told().back(), "-test://item/7 template");
    EXPECT_EQ(server.subscriptions().uriCount(), 0u);
    for (int fd : {in[0], in[1], out[0], out[1]})
        ::close(fd);
}

TEST(ResourceSubscriptionsTest, OverHttpTheUpdateReachesTheSessionStreamAndTheSessionsEndEndsTheWatch)
{
    MCPServer server;
    WatchRecorder watch;
    server.setResourceWatch(watch.watch());
    server.getResourceService()->registerResource({.uri = "file:///w", .type = "file"});
    const int port = freePort();
    ASSERT_TRUE(server.start(port, false));
    auto request = [](const std::string &method, const std::string &headers, const std::string &body = {}) {
        std::string raw = method + " /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/json, text/event-stream\r\n" + headers;
        if (method == "POST")
            raw += "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
        return raw + "\r\n" + body;
    };
    auto initialize = [&] {
        const HttpReply reply = parseReply(roundTrip(port, request("POST", "", R"({"jsonrpc":"2.0","id":1,"method":"initialize"})")));
        std::smatch match;
        EXPECT_TRUE(std::regex_search(reply.head, match, std::regex("\r\nMcp-Session-Id: ([^\r]*)\r\n", std::regex::icase)));
        return match[1].str();
    };
    const std::string subscribe = R"({"jsonrpc":"2.0","id":2,"method":"resources/subscribe","params":{"uri":"file:///w"}})";
    // Without a session there is no stream to tell.
    EXPECT_NE(parseReply(roundTrip(port, request("POST", "", subscribe))).body.find("needs a session"), std::string::npos);

    const std::string first = initialize();
    const std::string second = initialize();
    for (const std::string &session : {first, second})
        EXPECT_EQ(parseReply(roundTrip(port, request("POST", "Mcp-Session-Id: " + session + "\r\n", subscribe))).status, 200);
    EXPECT_EQ(watch.told(), std::vector<std::string>{"+file:///w file"});

    const int stream = sendRaw(port, request("GET", "Mcp-Session-Id: " + first + "\r\n"));
    std::string buffer;
    ASSERT_EQ(nextLine(stream, buffer), "HTTP/1.1 200 OK\r");
    server.resourceChanged("file:///w");
    std::string line;
    do
        line = nextLine(stream, buffer);
    while (!line.empty() && line.rfind("data: ", 0) != 0);
    EXPECT_EQ(line, R"(data: {"jsonrpc":"2.0","method":"notifications/resources/updated","params":{"uri": "file:///w"}})");
    ::close(stream);

    // The watch lasts while one session listens.
    EXPECT_EQ(parseReply(roundTrip(port, request("DELETE", "Mcp-Session-Id: " + first + "\r\n"))).status, 200);
    EXPECT_EQ(watch.told().size(), 1u);
    EXPECT_EQ(parseReply(roundTrip(port, request("DELETE", "Mcp-Session-Id: " + second + "\r\n"))).status, 200);
    EXPECT_EQ(watch.told().back(), "-file:///w file");
    EXPECT_EQ(server.subscriptions().uriCount(), 0u);
    server.stop();
}
