#include "EngineTestSupport.h"

#include "engine/JSONParser.h"
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServer.h"
#include "engine/MCPStdioTransport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <regex>
#include <unistd.h>

using namespace MCP;
using namespace EngineTest;

namespace {

std::string request(const std::string &method, const std::string &headers, const std::string &body = {})
{
    std::string raw = method + " /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers;
    if (!body.empty() || method == "POST")
        raw += "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    return raw + "\r\n" + body;
}

std::string headerValue(const std::string &head, const std::string &name)
{
    const std::regex pattern("\r\n" + name + ": ([^\r]*)\r\n", std::regex::icase);
    std::smatch match;
    return std::regex_search(head, match, pattern) ? match[1].str() : std::string();
}

// The data of each server-sent event in a stream's text, parsed, with the event's id.
std::vector<std::pair<std::string, JSONValue>> eventsOf(const std::string &stream)
{
    std::vector<std::pair<std::string, JSONValue>> events;
    size_t start = 0;
    for (size_t end; (end = stream.find("\n\n", start)) != std::string::npos; start = end + 2) {
        std::string id;
        std::string data;
        size_t line = start;
        while (line < end) {
            size_t stop = stream.find('\n', line);
            if (stop == std::string::npos || stop > end)
                stop = end;
            const std::string text = stream.substr(line, stop - line);
            if (text.rfind("id: ", 0) == 0)
                id = text.substr(4);
            else if (text.rfind("data: ", 0) == 0)
                data += (data.empty() ? "" : "\n") + text.substr(6);
            line = stop + 1;
        }
        if (!data.empty())
            events.emplace_back(id, JSONParser::parseDocument(data).value_or(JSONValue("unparsable: " + data)));
    }
    return events;
}

// Reads from an open stream until its text holds `needle` (or the time is up).
bool readUntil(int fd, std::string &text, const std::string &needle, std::chrono::milliseconds limit = std::chrono::seconds(10))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (text.find(needle) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd poll{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&poll, 1, int(left.count())) <= 0)
            return false;
        char chunk[4096];
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n <= 0)
            return false;
        text.append(chunk, size_t(n));
    }
    return true;
}

std::string methodOf(const JSONValue &message)
{
    return message.isObject() && message.contains("method") ? message.at("method").asString() : std::string();
}

class SessionsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        server.setLogCallback(log.callback());
        port = freePort();
    }

    MCPHttpTransport &http() { return dynamic_cast<MCPHttpTransport &>(server.transport()); }

    // An initialize over HTTP; gives the session id it was answered with.
    std::string initialize(const std::string &version = "2025-06-18")
    {
        const HttpReply reply = parseReply(roundTrip(
            port, request("POST", "", R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":")" + version + R"("}})")));
        EXPECT_EQ(reply.status, 200);
        return headerValue(reply.head, "Mcp-Session-Id");
    }

    HttpReply inSession(const std::string &session, const std::string &body, const std::string &extra = {})
    {
        return parseReply(roundTrip(port, request("POST", "Mcp-Session-Id: " + session + "\r\n" + extra, body)));
    }

    LogRecorder log;
    MCPServer server;
    int port = 0;
};

constexpr const char *kAcceptBoth = "Accept: application/json, text/event-stream\r\n";

}  // namespace

TEST_F(SessionsTest, InitializeIssuesASessionThatLaterRequestsCarryUntilItEnds)
{
    ASSERT_TRUE(server.start(port, false));
    const std::string first = initialize();
    const std::string second = initialize();
    EXPECT_TRUE(std::regex_match(first, std::regex("[0-9a-f]{32}"))) << first;
    EXPECT_NE(first, second);
    EXPECT_EQ(http().sessionCount(), 2u);

    // Carried: answered as without it, and the session remembers what was settled.
    const HttpReply ping = inSession(first, R"({"jsonrpc":"2.0","id":2,"method":"ping"})");
    EXPECT_EQ(ping.status, 200);
    EXPECT_EQ(ping.body, "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 2,\n  \"result\": {}\n}");

    // Without the header: stateless, and no session is made or named.
    const HttpReply plain = post(port, R"({"jsonrpc":"2.0","id":3,"method":"ping"})");
    EXPECT_EQ(plain.status, 200);
    EXPECT_EQ(headerValue(plain.head, "Mcp-Session-Id"), "");
    EXPECT_EQ(http().sessionCount(), 2u);

    // An id never issued, or one ended by DELETE, is 404 with a JSON-RPC body.
    for (const std::string &unknown : {std::string("0123456789abcdef0123456789abcdef"), std::string("x")}) {
        const HttpReply reply = inSession(unknown, R"({"jsonrpc":"2.0","id":4,"method":"ping"})");
        EXPECT_EQ(reply.status, 404) << unknown;
        const auto body = JSONParser::parseDocument(reply.body);
        ASSERT_TRUE(body) << reply.body;
        EXPECT_TRUE(body->at("id").isNull());
        EXPECT_NE(body->at("error").at("message").asString().find("initialize again"), std::string::npos);
    }
    const HttpReply deleted = parseReply(roundTrip(port, request("DELETE", "Mcp-Session-Id: " + first + "\r\n")));
    EXPECT_EQ(deleted.status, 200);
    EXPECT_EQ(inSession(first, R"({"jsonrpc":"2.0","id":5,"method":"ping"})").status, 404);
    EXPECT_EQ(parseReply(roundTrip(port, request("DELETE", "Mcp-Session-Id: " + first + "\r\n"))).status, 404);
    EXPECT_EQ(parseReply(roundTrip(port, request("DELETE", ""))).status, 400);
    EXPECT_EQ(inSession(second, R"({"jsonrpc":"2.0","id":6,"method":"ping"})").status, 200);
    EXPECT_EQ(http().sessionCount(), 1u);

    // A GET stream needs a session and the event-stream type.
    EXPECT_EQ(parseReply(roundTrip(port, request("GET", kAcceptBoth))).status, 405);
    EXPECT_EQ(parseReply(roundTrip(port, request("GET", std::string(kAcceptBoth) + "Mcp-Session-Id: " + first + "\r\n"))).status,
              404);

    // Stopping ends every session: a client starts again with initialize.
    server.stop();
    ASSERT_TRUE(server.start(port, false));
    EXPECT_EQ(inSession(second, R"({"jsonrpc":"2.0","id":7,"method":"ping"})").status, 404);
}

TEST_F(SessionsTest, AnIdleSessionEndsAfterTheSettingsTime)
{
    MCPHttpPolicy policy;
    policy.sessionIdleTimeout = std::chrono::milliseconds(1);
    http().setPolicy(policy);
    ASSERT_TRUE(server.start(port, false));
    const std::string session = initialize();
    ASSERT_FALSE(session.empty());
    EXPECT_TRUE(waitFor([&] { return inSession(session, R"({"jsonrpc":"2.0","id":2,"method":"ping"})").status == 404; }));
    EXPECT_EQ(http().sessionCount(), 0u);

    // Zero: a session lasts until deleted.
    policy.sessionIdleTimeout = std::chrono::milliseconds(0);
    http().setPolicy(policy);
    const std::string lasting = initialize();
    EXPECT_EQ(inSession(lasting, R"({"jsonrpc":"2.0","id":3,"method":"ping"})").status, 200);
}

TEST_F(SessionsTest, ACallThatReportsIsAnsweredAsAnEventStreamWhenTheClientTakesOne)
{
    std::shared_ptr<CallReporter> kept;
    server.getToolService()->registerTool(makeTool("steps", [&](const JSONValue &, const ToolCallContext &call) {
        kept = call.reporter;
        if (call.reporter) {
            call.reporter->progress(1, 2, "half way");
            call.reporter->progress(2, std::nullopt, "");
            call.reporter->log("error", JSONValue("went wrong"), "steps");
        }
        return std::optional<JSONValue>(JSONParser::parseDocument(R"({"content":[{"type":"text","text":"done"}]})").value());
    }));
    server.getToolService()->registerTool(makeTextTool("quiet", [](const JSONValue &) {
        return std::optional<std::string>(R"({"content":[]})");
    }));
    ASSERT_TRUE(server.start(port, false));

    const std::string call =
        R"({"jsonrpc":"2.0","id":"c-1","method":"tools/call","params":{"name":"steps","_meta":{"progressToken":"tok-1"}}})";
    const HttpReply streamed = parseReply(roundTrip(port, request("POST", kAcceptBoth, call)));
    EXPECT_EQ(streamed.status, 200);
    EXPECT_EQ(headerValue(streamed.head, "Content-Type"), "text/event-stream");
    EXPECT_EQ(headerValue(streamed.head, "Content-Length"), "");
    const auto events = eventsOf(streamed.body);
    ASSERT_EQ(events.size(), 4u) << streamed.body;
    EXPECT_EQ(events[0].first, "1");
    EXPECT_EQ(events[3].first, "4");
    EXPECT_EQ(methodOf(events[0].second), "notifications/progress");
    const JSONValue &firstStep = events[0].second.at("params");
    EXPECT_EQ(firstStep.at("progressToken").asString(), "tok-1");
    EXPECT_EQ(firstStep.at("progress").asNumber(), 1);
    EXPECT_EQ(firstStep.at("total").asNumber(), 2);
    EXPECT_EQ(firstStep.at("message").asString(), "half way");
    const JSONValue &secondStep = events[1].second.at("params");
    EXPECT_EQ(secondStep.at("progress").asNumber(), 2);
    EXPECT_FALSE(secondStep.contains("total"));
    EXPECT_FALSE(secondStep.contains("message"));
    EXPECT_EQ(methodOf(events[2].second), "notifications/message");
    EXPECT_EQ(events[2].second.at("params").toString(0),
              "{\n  \"data\": \"went wrong\",\n  \"level\": \"error\",\n  \"logger\": \"steps\"\n}");
    EXPECT_EQ(events[3].second.at("id").asString(), "c-1");
    EXPECT_EQ(events[3].second.at("result").at("content").asArray()[0].at("text").asString(), "done");

    // After the answer the call's reporter says nothing, from whatever thread.
    ASSERT_TRUE(kept);
    kept->progress(3, 3, "late");
    kept->log("error", JSONValue("late"), "");

    // A numeric token comes back as a number; without one, no progress (the log still goes).
    const HttpReply numbered = parseReply(roundTrip(
        port, request("POST", kAcceptBoth, R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"steps","_meta":{"progressToken":7}}})")));
    const auto numberedEvents = eventsOf(numbered.body);
    ASSERT_EQ(numberedEvents.size(), 4u);
    EXPECT_EQ(numberedEvents[0].second.at("params").at("progressToken").toString(0), "7");
    const HttpReply tokenless = parseReply(roundTrip(port, request("POST", kAcceptBoth, toolCall(3, "steps"))));
    const auto tokenlessEvents = eventsOf(tokenless.body);
    ASSERT_EQ(tokenlessEvents.size(), 2u) << tokenless.body;
    EXPECT_EQ(methodOf(tokenlessEvents[0].second), "notifications/message");

    // A client that takes only JSON gets the one body, as does any call that reports nothing.
    const HttpReply plain = post(port, call);
    EXPECT_EQ(headerValue(plain.head, "Content-Type"), "application/json");
    const auto plainBody = JSONParser::parseDocument(plain.body);
    ASSERT_TRUE(plainBody) << plain.body;
    EXPECT_EQ(plainBody->at("id").asString(), "c-1");
    EXPECT_EQ(plainBody->at("result").at("content").asArray()[0].at("text").asString(), "done");
    const std::string quietRaw = roundTrip(port, request("POST", kAcceptBoth, toolCall(4, "quiet")));
    EXPECT_EQ(quietRaw, roundTrip(port, request("POST", "", toolCall(4, "quiet"))));
    EXPECT_EQ(headerValue(parseReply(quietRaw).head, "Content-Type"), "application/json");
}

TEST_F(SessionsTest, SetLevelFiltersWhatASessionHears)
{
    server.getToolService()->registerTool(makeTool("chatty", [](const JSONValue &, const ToolCallContext &call) {
        for (const char *level : {"debug", "info", "warning", "critical", "shouting"})
            call.reporter->log(level, JSONValue(level), "");
        return std::optional<JSONValue>(JSONValue(JSONValue::ObjectType{}));
    }));
    ASSERT_TRUE(server.start(port, false));
    const std::string session = initialize();

    auto levelsHeard = [&](uint64_t id) {
        const HttpReply reply = inSession(session, toolCall(id, "chatty"), kAcceptBoth);
        std::vector<std::string> heard;
        for (const auto &[eventId, message] : eventsOf(reply.body)) {
            if (methodOf(message) == "notifications/message")
                heard.push_back(message.at("params").at("level").asString() + ":" + message.at("params").at("data").toString(0));
        }
        return heard;
    };
    // Until the client chooses: its tools' messages from info up (an unknown name counts as
    // info), none of the server's own lines.
    EXPECT_EQ(levelsHeard(1), (std::vector<std::string>{"info:\"info\"", "warning:\"warning\"", "critical:\"critical\"",
                                                         "info:\"shouting\""}));

    const HttpReply set = inSession(session, R"({"jsonrpc":"2.0","id":2,"method":"logging/setLevel","params":{"level":"warning"}})");
    EXPECT_EQ(set.body, "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 2,\n  \"result\": {}\n}");
    EXPECT_EQ(levelsHeard(3), (std::vector<std::string>{"warning:\"warning\"", "critical:\"critical\""}));

    // At debug the server's own line about the call comes first.
    inSession(session, R"({"jsonrpc":"2.0","id":4,"method":"logging/setLevel","params":{"level":"debug"}})");
    const auto all = levelsHeard(5);
    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(all[0], "info:\"Executing tool: chatty\"");

    for (const char *params : {R"({"level":"loud"})", R"({"level":3})", R"({})", R"([])"}) {
        const HttpReply bad =
            inSession(session, R"({"jsonrpc":"2.0","id":6,"method":"logging/setLevel","params":)" + std::string(params) + "}");
        const auto body = JSONParser::parseDocument(bad.body);
        ASSERT_TRUE(body) << bad.body;
        EXPECT_EQ(body->at("error").at("code").asNumber(), -32602) << params;
    }

    // Without a session the choice is answered and forgotten.
    EXPECT_EQ(post(port, R"({"jsonrpc":"2.0","id":7,"method":"logging/setLevel","params":{"level":"error"}})").status, 200);
    const auto initialized = JSONParser::parseDocument(
        post(port, R"({"jsonrpc":"2.0","id":8,"method":"initialize","params":{}})").body);
    ASSERT_TRUE(initialized);
    EXPECT_TRUE(initialized->at("result").at("capabilities").at("logging").isObject());
}

TEST_F(SessionsTest, TheSessionStreamCarriesListChangesAndResumesAfterTheLastEventId)
{
    std::atomic<bool> reported{false};
    server.getToolService()->registerTool(makeTool("aside", [&](const JSONValue &, const ToolCallContext &call) {
        call.reporter->log("warning", JSONValue("for the stream"), "");
        reported = true;
        return std::optional<JSONValue>(JSONValue(JSONValue::ObjectType{}));
    }));
    ASSERT_TRUE(server.start(port, false));
    const std::string session = initialize();
    const std::string open = request("GET", std::string(kAcceptBoth) + "Mcp-Session-Id: " + session + "\r\n");

    int fd = sendRaw(port, open);
    ASSERT_GE(fd, 0);
    std::string text;
    ASSERT_TRUE(readUntil(fd, text, "\r\n\r\n"));
    EXPECT_EQ(headerValue(text.substr(0, text.find("\r\n\r\n") + 2), "Content-Type"), "text/event-stream");

    // A re-export replaces many tools at once: the stream hears of it once.
    for (int i = 0; i < 50; ++i)
        server.getToolService()->registerTool(makeTool("t" + std::to_string(i), nullptr));
    ASSERT_TRUE(readUntil(fd, text, "tools/list_changed"));
    server.getResourceService()->registerResource({.uri = "file:///r"});
    ASSERT_TRUE(readUntil(fd, text, "resources/list_changed"));
    // What a call says while its client takes only JSON comes here too.
    EXPECT_EQ(inSession(session, toolCall(9, "aside")).status, 200);
    ASSERT_TRUE(readUntil(fd, text, "for the stream"));
    const auto events = eventsOf(text.substr(text.find("\r\n\r\n") + 4));
    // One notice for the burst; a busy machine may pause inside the loop for longer than the
    // quiet time, which gives a second one, never one per tool.
    size_t told = 0;
    while (told < events.size() && methodOf(events[told].second) == "notifications/tools/list_changed")
        ++told;
    ASSERT_GE(told, 1u) << text;
    ASSERT_LE(told, 3u) << text;
    ASSERT_EQ(events.size(), told + 2) << text;
    for (size_t i = 0; i < events.size(); ++i)
        EXPECT_EQ(events[i].first, std::to_string(i + 1));
    EXPECT_EQ(methodOf(events[told].second), "notifications/resources/list_changed");
    EXPECT_EQ(methodOf(events[told + 1].second), "notifications/message");
    ::close(fd);

    // While no stream is open the messages wait; the next stream begins with them.
    server.getPromptService()->registerPrompt({.name = "p"});
    fd = sendRaw(port, open);
    std::string next;
    ASSERT_TRUE(readUntil(fd, next, "prompts/list_changed"));
    const auto waited = eventsOf(next.substr(next.find("\r\n\r\n") + 4));
    ASSERT_EQ(waited.size(), 1u) << next;
    EXPECT_EQ(waited[0].first, std::to_string(told + 3));
    ::close(fd);

    // Last-Event-ID replays what came after it.
    fd = sendRaw(port, request("GET", std::string(kAcceptBoth) + "Mcp-Session-Id: " + session + "\r\nLast-Event-ID: " +
                                          std::to_string(told) + "\r\n"));
    std::string replay;
    ASSERT_TRUE(readUntil(fd, replay, "prompts/list_changed"));
    const auto replayed = eventsOf(replay.substr(replay.find("\r\n\r\n") + 4));
    ASSERT_EQ(replayed.size(), 3u) << replay;
    EXPECT_EQ(replayed[0].first, std::to_string(told + 1));
    EXPECT_EQ(methodOf(replayed[0].second), "notifications/resources/list_changed");

    // A second stream replaces the first, which ends.
    const int second = sendRaw(port, open);
    std::string secondText;
    ASSERT_TRUE(readUntil(second, secondText, "\r\n\r\n"));
    EXPECT_EQ(readAll(fd).find("event:"), std::string::npos);
    ::close(fd);

    // Stop ends the open stream at once, and the transport comes to rest.
    server.stop();
    EXPECT_EQ(readAll(second).find("event:"), std::string::npos);
    ::close(second);
    EXPECT_TRUE(server.transport().waitUntilIdle(std::chrono::seconds(5)));
}

TEST_F(SessionsTest, ACallStreamTheServerEndsIsResumedByItsLastEventIdUpToTheAnswer)
{
    std::atomic<int> closed{0};
    std::atomic<bool> release{false};
    server.getToolService()->registerTool(makeTool("poll", [&](const JSONValue &arguments, const ToolCallContext &call) {
        call.reporter->progress(1, 3, "before");
        closed += call.reporter->closeStream(std::chrono::milliseconds(250)) ? 1 : 0;
        call.reporter->closeStream(std::chrono::milliseconds(250));  // once ended, it stays so
        call.reporter->progress(2, 3, "after");
        if (arguments.contains("wait"))
            waitFor([&] { return release.load(); }, std::chrono::seconds(30));
        return std::optional<JSONValue>(JSONParser::parseDocument(R"({"content":[{"type":"text","text":"polled"}]})").value());
    }));
    ASSERT_TRUE(server.start(port, false));
    const std::string session = initialize("2025-11-25");
    const std::string inIt = std::string(kAcceptBoth) + "Mcp-Session-Id: " + session + "\r\n";
    auto resume = [&](const std::string &lastEventId) {
        return sendRaw(port, request("GET", inIt + "Last-Event-ID: " + lastEventId + "\r\n"));
    };
    const std::string waitingCall =
        R"({"jsonrpc":"2.0","id":7,"method":"tools/call","params":{"name":"poll","arguments":{"wait":true},"_meta":{"progressToken":"p"}}})";

    // The POST's stream: the priming event first, a message, the retry hint, then its end.
    int post = sendRaw(port, request("POST", inIt, waitingCall));
    const std::string posted = readAll(post);
    ::close(post);
    const std::string stream = posted.substr(posted.find("\r\n\r\n") + 4);
    EXPECT_EQ(stream.rfind("id: 1-0\ndata: \n\n", 0), 0u) << posted;
    EXPECT_NE(stream.find("\n\nretry: 250\n\n"), std::string::npos) << posted;
    const auto before = eventsOf(stream);
    ASSERT_EQ(before.size(), 1u) << posted;
    EXPECT_EQ(before[0].first, "1-1");
    EXPECT_EQ(before[0].second.at("params").at("message").asString(), "before");

    // The GET takes the stream up after the event named, waits with the call, and ends with
    // its answer.
    int get = resume("1-1");
    std::string resumed;
    ASSERT_TRUE(readUntil(get, resumed, "after"));
    release = true;
    resumed += readAll(get);
    ::close(get);
    EXPECT_EQ(closed.load(), 1);
    const auto after = eventsOf(resumed.substr(resumed.find("\r\n\r\n") + 4));
    ASSERT_EQ(after.size(), 2u) << resumed;
    EXPECT_EQ(after[0].first, "1-2");
    EXPECT_EQ(after[0].second.at("params").at("message").asString(), "after");
    EXPECT_EQ(after[1].first, "1-3");
    EXPECT_EQ(after[1].second.at("id").asNumber(), 7);
    EXPECT_EQ(after[1].second.at("result").at("content").asArray()[0].at("text").asString(), "polled");

    // Delivered whole, the stream is gone; so is one never issued: 400 with a JSON-RPC body.
    for (const char *gone : {"1-1", "9-0"}) {
        get = resume(gone);
        const HttpReply refused = parseReply(readAll(get));
        ::close(get);
        EXPECT_EQ(refused.status, 400) << gone;
        const auto body = JSONParser::parseDocument(refused.body);
        ASSERT_TRUE(body) << refused.body;
        EXPECT_NE(body->at("error").at("message").asString().find("nothing to resume"), std::string::npos);
    }

    // An answer that comes while nobody listens waits; the priming id replays all of it,
    // and the session's own stream hears none of it.
    post = sendRaw(port, request("POST", inIt, toolCall(8, "poll")));
    readAll(post);
    ::close(post);
    get = resume("2-0");
    const std::string replay = readAll(get);
    const auto replayed = eventsOf(replay.substr(replay.find("\r\n\r\n") + 4));
    ::close(get);
    ASSERT_EQ(replayed.size(), 1u);
    EXPECT_EQ(replayed[0].second.at("id").asNumber(), 8);
    EXPECT_EQ(closed.load(), 2);

    // A client of an older revision, or one without a session, keeps its stream to the end.
    const std::string older = initialize("2025-06-18");
    const HttpReply whole = inSession(older, waitingCall, kAcceptBoth);
    EXPECT_EQ(closed.load(), 2);
    EXPECT_EQ(whole.body.find("data: \n"), std::string::npos) << whole.body;
    EXPECT_EQ(whole.body.find("retry:"), std::string::npos) << whole.body;
    const auto olderEvents = eventsOf(whole.body);
    ASSERT_EQ(olderEvents.size(), 3u) << whole.body;
    EXPECT_EQ(olderEvents[2].first, "1-3");
    const auto stateless = eventsOf(parseReply(roundTrip(port, request("POST", kAcceptBoth, waitingCall))).body);
    ASSERT_EQ(stateless.size(), 3u);
    EXPECT_EQ(stateless[2].first, "3");
    EXPECT_EQ(closed.load(), 2);

    // Stop ends a GET waiting on a running call at once, and the transport comes to rest
    // once the call is over.
    release = false;
    post = sendRaw(port, request("POST", inIt, waitingCall));
    readAll(post);
    ::close(post);
    get = resume("3-1");
    std::string waiting;
    ASSERT_TRUE(readUntil(get, waiting, "after"));
    server.stop();
    waiting += readAll(get);
    ::close(get);
    EXPECT_EQ(waiting.find("polled"), std::string::npos);
    release = true;
    EXPECT_TRUE(server.transport().waitUntilIdle(std::chrono::seconds(5)));
}

TEST(SessionsOverStdio, ReportsAndListChangesAreLinesBetweenTheAnswers)
{
    int in[2];
    int out[2];
    ASSERT_EQ(::pipe2(in, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(out, O_CLOEXEC), 0);
    MCPServer server(std::make_unique<MCPStdioTransport>(in[0], out[1]));
    std::shared_ptr<CallReporter> kept;
    server.getToolService()->registerTool(makeTool("steps", [&](const JSONValue &, const ToolCallContext &call) {
        kept = call.reporter;
        call.reporter->progress(1, 2, "");
        call.reporter->log("debug", JSONValue("hidden"), "");
        call.reporter->log("notice", JSONValue(JSONValue::ObjectType{}), "x");
        return std::optional<JSONValue>(JSONValue(JSONValue::ObjectType{}));
    }));
    ASSERT_TRUE(server.start(0, false));
    auto send = [&](const std::string &line) { ASSERT_EQ(::write(in[1], line.data(), line.size()), ssize_t(line.size())); };
    std::string text;
    send(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"steps","_meta":{"progressToken":5}}})" "\n");
    ASSERT_TRUE(readUntil(out[0], text, "\"id\": 1"));
    ASSERT_TRUE(readUntil(out[0], text, "\n", std::chrono::seconds(10)));
    std::vector<std::string> lines;
    for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    ASSERT_EQ(lines.size(), 3u) << text;
    EXPECT_EQ(lines[0], R"({"jsonrpc":"2.0","method":"notifications/progress","params":{"progress": 1,"progressToken": 5,"total": 2}})");
    EXPECT_EQ(lines[1], R"({"jsonrpc":"2.0","method":"notifications/message","params":{"data": {},"level": "notice","logger": "x"}})");
    EXPECT_EQ(JSONParser::parseDocument(lines[2])->at("id").asNumber(), 1);

    // Late reports go nowhere; a list change is the next line.
    kept->progress(2, 2, "late");
    server.getToolService()->registerTool(makeTool("more", nullptr));
    text.clear();
    ASSERT_TRUE(readUntil(out[0], text, "\n"));
    EXPECT_EQ(text, "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/tools/list_changed\",\"params\":{}}\n");
    server.stop();
    for (int fd : {in[0], in[1], out[0], out[1]})
        ::close(fd);
}

// ---- requests of the server's to the client ----

namespace {

// A tool that asks its client `method` and gives back what came of it.
ToolDefinition askingTool(const std::string &method, const std::string &capability)
{
    return makeTool("ask", [method, capability](const JSONValue &, const ToolCallContext &call) {
        JSONValue outcome;
        if (!call.reporter || !call.reporter->clientSupports(capability)) {
            outcome["why"] = JSONValue("unsupported");
            return std::optional<JSONValue>(outcome);
        }
        JSONValue params;
        params["message"] = JSONValue("Name?");
        const ClientRequests::Reply reply = call.reporter->request(method, params, nullptr);
        outcome["answered"] = JSONValue(reply.answered);
        outcome["result"] = reply.result;
        outcome["why"] = JSONValue(reply.error);
        outcome["code"] = JSONValue(reply.code);
        return std::optional<JSONValue>(outcome);
    });
}

// The one event of a stream's text that carries a method.
JSONValue requestIn(const std::string &stream, const std::string &method)
{
    for (const auto &[id, message] : eventsOf(stream)) {
        if (methodOf(message) == method)
            return message;
    }
    return JSONValue();
}

}  // namespace

TEST_F(SessionsTest, ACallAsksItsClientOnItsStreamAndTheAnswerComesBackByItsId)
{
    server.getToolService()->registerTool(askingTool("elicitation/create", "elicitation"));
    ASSERT_TRUE(server.start(port, false));
    const auto initializeWith = [&](const std::string &capabilities) {
        const HttpReply reply = parseReply(roundTrip(port, request("POST", "",
            R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-11-25","capabilities":)" +
                capabilities + "}}")));
        return headerValue(reply.head, "Mcp-Session-Id");
    };
    const std::string session = initializeWith(R"({"elicitation":{}})");
    const std::string callText = request("POST", std::string(kAcceptBoth) + "Mcp-Session-Id: " + session + "\r\n", toolCall(7, "ask"));

    // Asked on the call's stream; an id the server never gave, or the right digits as a
    // string, is acknowledged and ignored; the right id answers the call.
    int fd = sendRaw(port, callText);
    ASSERT_GE(fd, 0);
    std::string text;
    ASSERT_TRUE(readUntil(fd, text, "elicitation/create"));
    ASSERT_TRUE(readUntil(fd, text, "\n\n"));
    const JSONValue asked = requestIn(text.substr(text.find("\r\n\r\n") + 4), "elicitation/create");
    ASSERT_TRUE(asked.isObject()) << text;
    EXPECT_EQ(asked.at("params").at("message").asString(), "Name?");
    const std::string id = asked.at("id").toString(0);
    for (const std::string &wrong : {std::string("999"), "\"" + id + "\""}) {
        const HttpReply ignored = inSession(session, R"({"jsonrpc":"2.0","id":)" + wrong + R"(,"result":{"action":"decline"}})");
        EXPECT_EQ(ignored.status, 202);
    }
    EXPECT_EQ(inSession(session, R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":{"action":"accept","content":{"name":"Ada"}}})").status, 202);
    text += readAll(fd);
    ::close(fd);
    auto events = eventsOf(text.substr(text.find("\r\n\r\n") + 4));
    ASSERT_FALSE(events.empty()) << text;
    const JSONValue &outcome = events.back().second.at("result");
    EXPECT_TRUE(outcome.at("answered").asBool()) << text;
    EXPECT_EQ(outcome.at("result").at("content").at("name").asString(), "Ada");
    // Answered once: the same id again finds nobody waiting.
    EXPECT_EQ(inSession(session, R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":{"action":"cancel"}})").status, 202);

    // A client's error is the reply's error, with its code; a new request has a new id.
    fd = sendRaw(port, callText);
    text.clear();
    ASSERT_TRUE(readUntil(fd, text, "elicitation/create"));
    ASSERT_TRUE(readUntil(fd, text, "\n\n"));
    const std::string second = requestIn(text.substr(text.find("\r\n\r\n") + 4), "elicitation/create").at("id").toString(0);
    EXPECT_NE(second, id);
    inSession(session, R"({"jsonrpc":"2.0","id":)" + second + R"(,"error":{"code":-1,"message":"User rejected"}})");
    text += readAll(fd);
    ::close(fd);
    events = eventsOf(text.substr(text.find("\r\n\r\n") + 4));
    ASSERT_FALSE(events.empty());
    EXPECT_FALSE(events.back().second.at("result").at("answered").asBool());
    EXPECT_EQ(events.back().second.at("result").at("why").asString(), "User rejected");
    EXPECT_EQ(events.back().second.at("result").at("code").asNumber(), -1);

    // Cancelling the call ends its wait, and the client is told to stop asking.
    fd = sendRaw(port, callText);
    text.clear();
    ASSERT_TRUE(readUntil(fd, text, "elicitation/create"));
    inSession(session, R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":7}})");
    ASSERT_TRUE(readUntil(fd, text, "notifications/cancelled"));
    text += readAll(fd);
    ::close(fd);
    EXPECT_NE(text.find("Request cancelled"), std::string::npos) << text;

    // Ending the session ends the wait at once.
    fd = sendRaw(port, callText);
    text.clear();
    ASSERT_TRUE(readUntil(fd, text, "elicitation/create"));
    EXPECT_EQ(parseReply(roundTrip(port, request("DELETE", "Mcp-Session-Id: " + session + "\r\n"))).status, 200);
    text += readAll(fd);
    ::close(fd);
    EXPECT_NE(text.find("the client's session has ended"), std::string::npos) << text;

    // A client that declared nothing, or only links to open, or has no session, is not asked.
    for (const std::string &declared : {std::string("{}"), std::string(R"({"elicitation":{"url":{}}})")}) {
        const auto unsupported = JSONParser::parseDocument(inSession(initializeWith(declared), toolCall(8, "ask")).body);
        ASSERT_TRUE(unsupported);
        EXPECT_EQ(unsupported->at("result").at("why").asString(), "unsupported") << declared;
    }
    const auto stateless = JSONParser::parseDocument(post(port, toolCall(9, "ask")).body);
    ASSERT_TRUE(stateless);
    EXPECT_EQ(stateless->at("result").at("why").asString(), "unsupported");
}

TEST(SessionsOverStdio, ACallAsksItsClientInALineAndTheAnswerLineComesBack)
{
    int in[2];
    int out[2];
    ASSERT_EQ(::pipe2(in, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(out, O_CLOEXEC), 0);
    MCPServer server(std::make_unique<MCPStdioTransport>(in[0], out[1]));
    server.getToolService()->registerTool(askingTool("sampling/createMessage", "sampling"));
    ASSERT_TRUE(server.start(0, false));
    auto send = [&](const std::string &line) { ASSERT_EQ(::write(in[1], line.data(), line.size()), ssize_t(line.size())); };
    std::string text;
    send(R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"capabilities":{"sampling":{}}}})" "\n");
    ASSERT_TRUE(readUntil(out[0], text, "\n"));
    text.clear();

    send(toolCall(2, "ask") + "\n");
    ASSERT_TRUE(readUntil(out[0], text, "\n"));
    const auto asked = JSONParser::parseDocument(text);
    ASSERT_TRUE(asked) << text;
    EXPECT_EQ(methodOf(*asked), "sampling/createMessage");
    const std::string id = asked->at("id").toString(0);
    text.clear();
    send(R"({"jsonrpc":"2.0","id":12345,"result":{"role":"assistant"}})" "\n");
    send(R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":{"role":"assistant","model":"m"}})" "\n");
    ASSERT_TRUE(readUntil(out[0], text, "}\n"));
    const auto answered = JSONParser::parseDocument(text);
    ASSERT_TRUE(answered) << text;
    EXPECT_EQ(answered->at("result").at("result").at("model").asString(), "m");

    // The client going away ends a wait, and the call is still answered.
    text.clear();
    send(toolCall(3, "ask") + "\n");
    ASSERT_TRUE(readUntil(out[0], text, "sampling/createMessage"));
    ::close(in[1]);
    ASSERT_TRUE(readUntil(out[0], text, "the client has gone away"));
    server.stop();
    for (int fd : {in[0], out[0], out[1]})
        ::close(fd);
}
