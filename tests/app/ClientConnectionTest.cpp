// What connects an MCP client to Kelvara: the configuration printed for it, the record of a
// running server, and the stdio relay to that server (against a stand-in HTTP server).
#include "app/config/ClientConfiguration.h"
#include "app/McpConfigCommand.h"
#include "app/config/RunningServer.h"
#include "app/StdioRelay.h"
#include "base/UserDefaults.h"
#include "store/ServerAccessSettings.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

TEST(ClientConfigurationTest, EntriesAndTheDocumentHaveTheShapeClientsRead)
{
    EXPECT_EQ(ClientConfiguration::document(ClientConfiguration::stdioEntry(u"/usr/bin/kelvara"_s)),
              QJsonDocument::fromJson(R"({"mcpServers": {"kelvara": {"command": "/usr/bin/kelvara",
                                          "args": ["serve", "--stdio"]}}})")
                  .object());
    EXPECT_EQ(ClientConfiguration::httpEntry(u"192.0.2.7"_s, 9000, u"tok"_s, u"streamable-http"_s),
              QJsonDocument::fromJson(R"({"type": "streamable-http", "url": "http://192.0.2.7:9000/mcp",
                                          "headers": {"Authorization": "Bearer tok"}})")
                  .object());
    // No token asked for: no headers at all, not an empty Authorization.
    EXPECT_FALSE(ClientConfiguration::httpEntry(u"127.0.0.1"_s, 8888, std::nullopt).contains(u"headers"_s));
    EXPECT_EQ(ClientConfiguration::clientHost(false), u"127.0.0.1"_s);
    EXPECT_NE(ClientConfiguration::clientHost(true), u"0.0.0.0"_s);
    EXPECT_EQ(ClientConfiguration::clientHost(true), ClientConfiguration::reachableHost());
}

TEST(McpConfigCommandTest, ParsesTheFormsAndRefusesWhatDoesNotFit)
{
    QString error;
    const auto plain = McpConfigCommand::parse({}, &error);
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->http);
    EXPECT_FALSE(plain->entryOnly);

    const auto http = McpConfigCommand::parse({u"--http"_s, u"--type=streamable-http"_s, u"--port"_s, u"9000"_s, u"--entry"_s}, &error);
    ASSERT_TRUE(http) << error.toStdString();
    EXPECT_EQ(http->type, u"streamable-http"_s);
    EXPECT_EQ(http->port, 9000);
    EXPECT_TRUE(http->entryOnly);

    const QList<QStringList> bad{{u"--http"_s, u"--type"_s, u"sse"_s},
                                 {u"--http"_s, u"--type"_s},
                                 {u"--http"_s, u"--port"_s, u"65536"_s},
                                 {u"--http"_s, u"--port"_s, u"x"_s},
                                 {u"--port"_s, u"9000"_s},  // a port without the HTTP form
                                 {u"--type=http"_s},
                                 {u"--stdio"_s, u"--http"_s},
                                 {u"serve"_s}};
    for (const QStringList &arguments : bad) {
        error.clear();
        EXPECT_FALSE(McpConfigCommand::parse(arguments, &error)) << arguments.join(u' ').toStdString();
        EXPECT_FALSE(error.isEmpty()) << arguments.join(u' ').toStdString();
    }
}

TEST(RunningServerTest, APublishedRecordIsReadAndOnlyItsOwnerWithdrawsIt)
{
    RunningServer::withdraw();
    UserDefaults::standard()->remove(RunningServer::pidKey);
    EXPECT_FALSE(RunningServer::read());
    RunningServer::publish(4321);
    const auto record = RunningServer::read();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->pid, QCoreApplication::applicationPid());
    EXPECT_EQ(record->port, 4321);
    RunningServer::withdraw();
    EXPECT_FALSE(RunningServer::read());

    // Another process's record stays when this one stops serving.
    UserDefaults::standard()->setValue(RunningServer::pidKey, QCoreApplication::applicationPid() + 1);
    UserDefaults::standard()->setValue(RunningServer::portKey, 5000);
    RunningServer::withdraw();
    ASSERT_TRUE(RunningServer::read());
    EXPECT_EQ(RunningServer::read()->port, 5000);
    // A port that no server can have is no record.
    UserDefaults::standard()->setValue(RunningServer::portKey, 70000);
    EXPECT_FALSE(RunningServer::read());
    UserDefaults::standard()->remove(RunningServer::pidKey);
    UserDefaults::standard()->remove(RunningServer::portKey);
}

TEST(StdioRelayTest, AnswersAreSplitIntoOneCompactMessageEach)
{
    // A JSON body comes out on one line, whatever its layout.
    EXPECT_EQ(StdioRelay::messagesOf("application/json", "{\n  \"jsonrpc\": \"2.0\", \"id\": 1, \"result\": {}\n}"),
              QList<QByteArray>{R"({"id":1,"jsonrpc":"2.0","result":{}})"});
    // An event stream: events end at blank lines, CRLF or LF; data lines of one event join;
    // comments, other fields and events that are not JSON are left out.
    const QByteArray stream = ": keep-alive\r\n"
                              "event: message\r\nid: 7\r\ndata: {\"jsonrpc\":\"2.0\",\"method\":\"notifications/progress\"}\r\n\r\n"
                              "data: {\"jsonrpc\":\"2.0\",\n"
                              "data: \"id\":2,\"result\":{\"ok\":true}}\n\n"
                              "data: not json\n\n"
                              "data:{\"jsonrpc\":\"2.0\",\"id\":3,\"result\":{}}";  // the last event without its blank line
    EXPECT_EQ(StdioRelay::messagesOf("text/event-stream; charset=utf-8", stream),
              (QList<QByteArray>{R"({"jsonrpc":"2.0","method":"notifications/progress"})",
                                 R"({"id":2,"jsonrpc":"2.0","result":{"ok":true}})",
                                 R"({"id":3,"jsonrpc":"2.0","result":{}})"}));
    EXPECT_TRUE(StdioRelay::messagesOf("application/json", " \n").isEmpty());
    EXPECT_TRUE(StdioRelay::messagesOf("text/html", "<html>").isEmpty());
}

TEST(StdioRelayTest, OnlyRequestsHaveIdsToAnswer)
{
    EXPECT_EQ(StdioRelay::requestIds(R"({"jsonrpc":"2.0","id":"a","method":"ping"})"), QList<QJsonValue>{u"a"_s});
    EXPECT_TRUE(StdioRelay::requestIds(R"({"jsonrpc":"2.0","method":"notifications/initialized"})").isEmpty());
    // The client's answer to a request of the server is not a request.
    EXPECT_TRUE(StdioRelay::requestIds(R"({"jsonrpc":"2.0","id":5,"result":{}})").isEmpty());
    EXPECT_TRUE(StdioRelay::requestIds("not json").isEmpty());
    EXPECT_EQ(StdioRelay::requestIds(R"([{"jsonrpc":"2.0","id":0,"method":"a"},{"jsonrpc":"2.0","method":"b"},
                                        {"jsonrpc":"2.0","id":null,"method":"c"}])"),
              (QList<QJsonValue>{0, QJsonValue::Null}));
    EXPECT_EQ(StdioRelay::errorFor(7, -32000, u"why"_s), R"({"error":{"code":-32000,"message":"why"},"id":7,"jsonrpc":"2.0"})");
}

namespace {

// A stand-in for a running Kelvara's server. Each connection is served on a thread of its
// own with the first unused answer whose needle its request holds; an answer with a `after`
// needle is held back until a request holding that has come in (or ten seconds have passed,
// so that a relay that never sends it cannot hang the test).
class CannedServer {
public:
    struct Answer {
        std::string needle;
        std::string response;
        std::string after;
    };

    explicit CannedServer(std::vector<Answer> answers) : m_answers(std::move(answers)), m_used(m_answers.size(), false)
    {
        m_socket = ::socket(AF_INET, SOCK_STREAM, 0);
        int yes = 1;
        ::setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address);
        socklen_t length = sizeof address;
        ::getsockname(m_socket, reinterpret_cast<sockaddr *>(&address), &length);
        m_port = ntohs(address.sin_port);
        ::listen(m_socket, 8);
        m_thread = std::thread([this] { acceptAll(); });
    }
    ~CannedServer()
    {
        ::shutdown(m_socket, SHUT_RDWR);
        ::close(m_socket);
        m_thread.join();
    }
    int port() const { return m_port; }
    // The requests, head and body, in the order they came in.
    std::vector<std::string> requests() const
    {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

private:
    void acceptAll()
    {
        std::vector<std::thread> connections;
        for (size_t served = 0; served < m_answers.size(); ++served) {
            const int client = ::accept(m_socket, nullptr, nullptr);
            if (client < 0)
                break;
            connections.emplace_back([this, client] { serve(client); });
        }
        for (std::thread &connection : connections)
            connection.join();
    }

    void serve(int client)
    {
        std::string request;
        char buffer[4096];
        for (;;) {
            const size_t end = request.find("\r\n\r\n");
            if (end != std::string::npos) {
                const size_t at = request.find("Content-Length: ");
                const size_t body = at == std::string::npos ? 0 : std::stoul(request.substr(at + 16));
                if (request.size() >= end + 4 + body)
                    break;
            }
            const ssize_t got = ::read(client, buffer, sizeof buffer);
            if (got <= 0)
                break;
            request.append(buffer, size_t(got));
        }
        std::string response = "HTTP/1.1 500 No Answer\r\nContent-Length: 0\r\n\r\n";
        std::unique_lock lock(m_mutex);
        m_requests.push_back(request);
        m_arrived.notify_all();
        for (size_t i = 0; i < m_answers.size(); ++i) {
            if (!m_used[i] && request.find(m_answers[i].needle) != std::string::npos) {
                m_used[i] = true;
                const std::string &after = m_answers[i].after;
                if (!after.empty())
                    m_arrived.wait_for(lock, std::chrono::seconds(10), [&] {
                        return std::any_of(m_requests.begin(), m_requests.end(),
                                           [&](const std::string &seen) { return seen.find(after) != std::string::npos; });
                    });
                response = m_answers[i].response;
                break;
            }
        }
        lock.unlock();
        [[maybe_unused]] const ssize_t sent = ::write(client, response.data(), response.size());
        ::close(client);
    }

    const std::vector<Answer> m_answers;
    std::vector<bool> m_used;
    mutable std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<std::string> m_requests;
    int m_socket = -1;
    int m_port = 0;
    std::thread m_thread;
};

std::string http(const std::string &status, const std::string &headers, const std::string &body)
{
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
}

struct Relayed {
    std::string out;
    std::string log;
};

Relayed relay(qint64 holder, const std::string &input)
{
    FILE *in = fmemopen(const_cast<char *>(input.data()), input.size(), "r");
    char *outText = nullptr;
    size_t outSize = 0;
    char *logText = nullptr;
    size_t logSize = 0;
    FILE *out = open_memstream(&outText, &outSize);
    FILE *log = open_memstream(&logText, &logSize);
    EXPECT_EQ(StdioRelay::run(holder, in, out, log), 0);
    std::fclose(in);
    std::fclose(out);
    std::fclose(log);
    Relayed relayed{std::string(outText, outSize), std::string(logText, logSize)};
    std::free(outText);
    std::free(logText);
    return relayed;
}

}  // namespace

TEST(StdioRelayTest, RelaysWithTheTokenAndTheSessionAndEndsTheSession)
{
    const std::string events = "event: message\r\ndata: {\"jsonrpc\":\"2.0\",\"method\":\"notifications/message\"}\r\n\r\n"
                               "event: message\r\ndata: {\"jsonrpc\":\"2.0\",\"id\":2,\"result\":{\"tools\":[]}}\r\n\r\n";
    CannedServer server({
        {"\"initialize\"", http("200 OK", "Content-Type: application/json\r\nMcp-Session-Id: s-42\r\n",
                                R"({"jsonrpc":"2.0","id":1,"result":{"protocolVersion":"2025-06-18","serverInfo":{"name":"K"},"capabilities":{}}})")},
        {"notifications/initialized", http("202 Accepted", "", "")},
        {"tools/list", http("200 OK", "Content-Type: text/event-stream\r\n", events)},
        {"ping", http("401 Unauthorized", "Content-Type: text/plain\r\n", "Unauthorized")},
        {"DELETE /mcp ", http("200 OK", "", "")},
    });
    RunningServer::publish(server.port());
    const Relayed relayed = relay(QCoreApplication::applicationPid(),
                                  "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\",\"params\":{}}\n"
                                  "\n"
                                  "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n"
                                  "{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"tools/list\"}\n"
                                  "{\"jsonrpc\":\"2.0\",\"id\":3,\"method\":\"ping\"}");
    RunningServer::withdraw();

    // The handshake first; the two requests after it may answer in either order, each
    // answer's messages together.
    const std::string init =
        R"({"id":1,"jsonrpc":"2.0","result":{"capabilities":{},"protocolVersion":"2025-06-18","serverInfo":{"name":"K"}}})" "\n";
    const std::string listed = R"({"jsonrpc":"2.0","method":"notifications/message"})" "\n"
                               R"({"id":2,"jsonrpc":"2.0","result":{"tools":[]}})" "\n";
    const std::string refused =
        R"({"error":{"code":-32000,"message":"Kelvara's MCP server answered HTTP 401: Unauthorized"},"id":3,"jsonrpc":"2.0"})" "\n";
    EXPECT_TRUE(relayed.out == init + listed + refused || relayed.out == init + refused + listed) << relayed.out;
    EXPECT_NE(relayed.log.find("relaying to its MCP server at http://127.0.0.1:" + std::to_string(server.port()) + "/mcp"),
              std::string::npos)
        << relayed.log;

    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 5u);
    const std::string token = "Authorization: Bearer " + ServerAccessSettings::token().toStdString();
    for (const std::string &request : requests)
        EXPECT_NE(request.find(token), std::string::npos) << request;
    EXPECT_EQ(requests[0].rfind("POST /mcp ", 0), 0u);
    EXPECT_EQ(requests[0].find("Mcp-Session-Id"), std::string::npos);
    EXPECT_NE(requests[1].find("\"notifications/initialized\""), std::string::npos);
    // Once initialize gave a session, every later request names it and the agreed version.
    for (size_t i = 1; i < requests.size(); ++i) {
        EXPECT_NE(requests[i].find("Mcp-Session-Id: s-42\r\n"), std::string::npos) << requests[i];
        EXPECT_NE(requests[i].find("MCP-Protocol-Version: 2025-06-18\r\n"), std::string::npos) << requests[i];
    }
    EXPECT_EQ(requests[4].rfind("DELETE /mcp ", 0), 0u) << requests[4];
}

TEST(StdioRelayTest, ALongCallDoesNotHoldBackTheRequestsAfterIt)
{
    // The call's answer waits until the server has seen the ping: a relay that sent the ping
    // only after the call's answer would show the call answered first.
    CannedServer server({
        {"\"initialize\"", http("200 OK", "Content-Type: application/json\r\n",
                                R"({"jsonrpc":"2.0","id":1,"result":{"protocolVersion":"2025-06-18","serverInfo":{"name":"K"}}})")},
        {"tools/call", http("200 OK", "Content-Type: application/json\r\n", R"({"jsonrpc":"2.0","id":2,"result":{"slow":true}})"),
         "\"ping\""},
        {"\"ping\"", http("200 OK", "Content-Type: application/json\r\n", R"({"jsonrpc":"2.0","id":3,"result":{}})")},
    });
    RunningServer::publish(server.port());
    const Relayed relayed = relay(QCoreApplication::applicationPid(),
                                  "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\"}\n"
                                  "{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"tools/call\"}\n"
                                  "{\"jsonrpc\":\"2.0\",\"id\":3,\"method\":\"ping\"}\n");
    RunningServer::withdraw();
    const std::string expected = R"({"id":1,"jsonrpc":"2.0","result":{"protocolVersion":"2025-06-18","serverInfo":{"name":"K"}}})" "\n"
                                 R"({"id":3,"jsonrpc":"2.0","result":{}})" "\n"
                                 R"({"id":2,"jsonrpc":"2.0","result":{"slow":true}})" "\n";
    EXPECT_EQ(relayed.out, expected);
}

TEST(StdioRelayTest, WithoutAServerEachRequestGetsTheStoppedError)
{
    const QString stopped = StdioRelay::stoppedText;
    // A record of another process than the holder (a window that died) counts for nothing.
    UserDefaults::standard()->setValue(RunningServer::pidKey, QCoreApplication::applicationPid() + 1);
    UserDefaults::standard()->setValue(RunningServer::portKey, 1);
    const Relayed relayed = relay(QCoreApplication::applicationPid(),
                                  "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\"}\n"
                                  "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n"
                                  "[{\"jsonrpc\":\"2.0\",\"id\":\"b\",\"method\":\"ping\"},{\"jsonrpc\":\"2.0\",\"id\":4,\"method\":\"ping\"}]\n");
    UserDefaults::standard()->remove(RunningServer::pidKey);
    UserDefaults::standard()->remove(RunningServer::portKey);
    const std::string error = R"("error":{"code":-32000,"message":")" + stopped.toStdString() + R"("})";
    EXPECT_EQ(relayed.out, "{" + error + R"(,"id":1,"jsonrpc":"2.0"})" "\n" "{" + error + R"(,"id":"b","jsonrpc":"2.0"})" "\n" "{" +
                               error + R"(,"id":4,"jsonrpc":"2.0"})" "\n");
    EXPECT_NE(relayed.log.find(stopped.toStdString()), std::string::npos);

    // A published server whose port no longer listens is treated the same.
    int port = 0;
    {
        CannedServer gone({});
        port = gone.port();
    }
    RunningServer::publish(port);
    const Relayed refused = relay(QCoreApplication::applicationPid(), "{\"jsonrpc\":\"2.0\",\"id\":9,\"method\":\"ping\"}\n");
    RunningServer::withdraw();
    EXPECT_EQ(refused.out, "{" + error + R"(,"id":9,"jsonrpc":"2.0"})" "\n");
}
