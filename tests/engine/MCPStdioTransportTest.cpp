#include "EngineTestSupport.h"

#include "engine/JSONParser.h"
#include "engine/MCPServer.h"
#include "engine/MCPServerMessage.h"
#include "engine/MCPStdioTransport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

using namespace MCP;
using EngineTest::Latch;
using EngineTest::makeTool;
using EngineTest::makeTextTool;

namespace {

// A server on a stdio transport whose two ends are pipes the test holds.
class StdioSession {
public:
    explicit StdioSession(size_t maxMessageBytes = MCPStdioTransport::kDefaultMaxMessageBytes)
    {
        int in[2];
        int out[2];
        EXPECT_EQ(::pipe2(in, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
        m_toServer = in[1];
        m_fromServer = out[0];
        auto transport = std::make_unique<MCPStdioTransport>(in[0], out[1]);
        transport->setMaxMessageBytes(maxMessageBytes);
        transport->setClosedHandler([this] { m_closed = true; });
        m_serverIn = in[0];
        m_serverOut = out[1];
        server = std::make_unique<MCPServer>(std::move(transport));
        server->setLogCallback(m_log.callback());
        server->getToolService()->registerTool(makeTextTool("echo", [](const JSONValue &arguments) {
            JSONValue result;
            result["text"] = arguments.contains("text") ? arguments.at("text") : JSONValue("");
            return std::optional<std::string>(result.toString(0));
        }));
    }

    ~StdioSession()
    {
        closeInput();
        server.reset();
        for (int fd : {m_fromServer, m_serverIn, m_serverOut})
            ::close(fd);
    }

    void send(const std::string &text)
    {
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t count = ::write(m_toServer, text.data() + done, text.size() - done);
            ASSERT_GT(count, 0);
            done += size_t(count);
        }
    }

    void closeInput()
    {
        if (m_toServer >= 0)
            ::close(m_toServer);
        m_toServer = -1;
    }

    // The next whole line the server wrote, parsed; Null when none came in time.
    JSONValue readMessage(std::chrono::milliseconds timeout = std::chrono::seconds(10))
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            const auto end = m_buffer.find('\n');
            if (end != std::string::npos) {
                std::string line = m_buffer.substr(0, end);
                m_buffer.erase(0, end + 1);
                lines.push_back(line);
                return JSONParser::parseDocument(line).value_or(JSONValue("unparsable: " + line));
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd fd{m_fromServer, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&fd, 1, int(left.count())) <= 0)
                return JSONValue();
            char chunk[65536];
            const ssize_t count = ::read(m_fromServer, chunk, sizeof chunk);
            if (count <= 0)
                return JSONValue();
            m_buffer.append(chunk, size_t(count));
        }
    }

    bool closed() const { return m_closed; }
    const EngineTest::LogRecorder &log() const { return m_log; }

    std::unique_ptr<MCPServer> server;
    std::vector<std::string> lines;

private:
    int m_toServer = -1;
    int m_fromServer = -1;
    int m_serverIn = -1;
    int m_serverOut = -1;
    std::string m_buffer;
    std::atomic<bool> m_closed{false};
    EngineTest::LogRecorder m_log;
};

double idOf(const JSONValue &message)
{
    return message.contains("id") && message.at("id").isNumber() ? message.at("id").asNumber() : -1;
}

}  // namespace

TEST(MCPStdioTransportTest, ASessionOfRequestsAndNotificationsAnswersEachRequestOnOneLine)
{
    StdioSession session;
    ASSERT_TRUE(session.server->start(0, false));
    session.send(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-06-18"}})" "\n");
    const JSONValue initialized = session.readMessage();
    EXPECT_EQ(idOf(initialized), 0);
    EXPECT_EQ(initialized.at("result").at("protocolVersion").asString(), "2025-06-18");

    // A notification gets no line at all; the ping after it is the next answer.
    session.send("{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n\n  \r\n");
    session.send(EngineTest::toolCall(1, "echo", R"({"text":"two\nlines \"quoted\""})") + "\n");
    const JSONValue echoed = session.readMessage();
    EXPECT_EQ(idOf(echoed), 1);
    EXPECT_EQ(echoed.at("result").at("text").asString(), "two\nlines \"quoted\"");
    session.send("{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"ping\"}\n");
    EXPECT_EQ(idOf(session.readMessage()), 2);
    session.send("{\"jsonrpc\":\"2.0\",\"id\":3,\"method\":\"nope\"}\n");
    const JSONValue unknown = session.readMessage();
    EXPECT_EQ(unknown.at("error").at("code").asNumber(), -32601);

    for (const auto &line : session.lines)
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    EXPECT_FALSE(session.closed());
}

TEST(MCPStdioTransportTest, AMalformedLineIsAParseErrorAndTheSessionGoesOn)
{
    StdioSession session;
    ASSERT_TRUE(session.server->start(0, false));
    session.send("{\"jsonrpc\":\"2.0\",\"id\":1,\n");  // a message broken over two lines is two bad lines
    session.send("[1, 2]\n");
    for (int i = 0; i < 2; ++i) {
        const JSONValue error = session.readMessage();
        ASSERT_TRUE(error.isObject()) << i;
        EXPECT_TRUE(error.at("id").isNull());
        EXPECT_EQ(error.at("error").at("code").asNumber(), -32700);
        EXPECT_EQ(error.at("error").at("message").asString(), "Parse error");
    }
    EXPECT_EQ(session.log().count(1006), 2);
    session.send("{\"jsonrpc\":\"2.0\",\"id\":7,\"method\":\"ping\"}\n");
    EXPECT_EQ(idOf(session.readMessage()), 7);
}

TEST(MCPStdioTransportTest, MessagesLargerThanAPipeBufferTravelBothWays)
{
    StdioSession session;
    ASSERT_TRUE(session.server->start(0, false));
    const std::string text(3 * 1024 * 1024 + 17, 'x');
    // Written from another thread: the answer is as large, and the server writes it while
    // this thread reads.
    std::thread writer([&] { session.send(EngineTest::toolCall(9, "echo", "{\"text\":\"" + text + "\"}") + "\n"); });
    const JSONValue echoed = session.readMessage(std::chrono::seconds(30));
    writer.join();
    ASSERT_TRUE(echoed.isObject());
    EXPECT_EQ(echoed.at("result").at("text").asString().size(), text.size());
}

TEST(MCPStdioTransportTest, ALineOverTheLimitIsRefusedAndTheNextOneServed)
{
    StdioSession session(1000);
    ASSERT_TRUE(session.server->start(0, false));
    session.send(std::string(2500, ' ') + "\n" + "{\"jsonrpc\":\"2.0\",\"id\":4,\"method\":\"ping\"}\n");
    EXPECT_EQ(session.readMessage().at("error").at("code").asNumber(), -32700);
    EXPECT_EQ(idOf(session.readMessage()), 4);
    EXPECT_EQ(session.log().count(1005), 1);
}

TEST(MCPStdioTransportTest, EndOfInputWaitsForAnswersUnderWayThenCloses)
{
    StdioSession session;
    Latch release;
    session.server->getToolService()->registerTool(makeTextTool("slow", [&](const JSONValue &) {
        release.wait();
        return std::optional<std::string>("{\"done\": true}");
    }));
    ASSERT_TRUE(session.server->start(0, false));
    // The last line has no line feed: a host may close right after writing it.
    session.send(EngineTest::toolCall(1, "slow") + "\n{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"ping\"}");
    session.closeInput();
    EXPECT_EQ(idOf(session.readMessage()), 2);
    EXPECT_FALSE(session.closed());
    release.open();
    EXPECT_EQ(idOf(session.readMessage()), 1);
    EXPECT_TRUE(EngineTest::waitFor([&] { return session.closed(); }));
    EXPECT_FALSE(session.server->transport().isRunning());
}

TEST(MCPStdioTransportTest, StopEndsTheSessionWithoutClosing)
{
    StdioSession session;
    ASSERT_TRUE(session.server->start(0, false));
    session.server->stop();
    EXPECT_FALSE(session.closed());
    // A stopped transport starts again and serves the same input.
    ASSERT_TRUE(session.server->start(0, false));
    session.send("{\"jsonrpc\":\"2.0\",\"id\":5,\"method\":\"ping\"}\n");
    EXPECT_EQ(idOf(session.readMessage()), 5);
}

TEST(MCPStdioTransportTest, TheOneLineFormIsTheSameJSON)
{
    JSONValue result;
    result["empty"] = JSONValue(JSONValue::ObjectType{});
    result["list"] = JSONValue(JSONValue::ArrayType{JSONValue(1), JSONValue("a\n  b"), JSONValue(JSONValue::ArrayType{})});
    result["nested"]["deep"]["text"] = JSONValue("tab\there");
    MCPMessage request;
    request.id = 12;
    const auto response = MCPServerMessage::createResponse(request, result);
    const std::string line = MCPStdioTransport::lineOf(*response);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(line, R"({"jsonrpc": "2.0", "id": 12, "result": {"empty": {}, "list": [1, "a\n  b", []], )"
                    R"("nested": {"deep": {"text": "tab\there"}}}})");
    EXPECT_EQ(JSONParser::parseDocument(line), JSONParser::parseDocument(response->toString()));
}
