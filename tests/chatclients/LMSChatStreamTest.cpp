// The LM Studio chat stream against a local peer that plays the server.
#include "chat/clients/ChatHttpSession.h"
#include "chat/clients/CloudClient.h"
#include "chat/clients/LMSChatStream.h"
#include "tests/http/TestHttpServer.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QByteArray kReply = "data: {\"type\":\"chat.start\",\"model_instance_id\":\"m1\"}\n\n"
                          "data: {\"type\":\"message.delta\",\"content\":\"Gr\xc3\xbc\xc3\x9f\"}\n\n"
                          "data: {\"type\":\"message.delta\",\"content\":\"e\"}\n\n"
                          "data: {\"type\":\"chat.end\",\"result\":{\"model_instance_id\":\"m1\",\"output\":[],"
                          "\"stats\":{\"input_tokens\":1,\"total_output_tokens\":2,\"reasoning_output_tokens\":0,"
                          "\"tokens_per_second\":3,\"time_to_first_token_seconds\":0.1}}}\n\n"
                          "data: {\"type\":\"message.delta\",\"content\":\"never read\"}\n\n";

struct Outcome {
    QList<LMSStreamEvent> events;
    bool finished = false;
    std::optional<QString> error;
};

Outcome run(LMSChatStream &stream, const LMSChatRequest &request)
{
    Outcome outcome;
    QObject::connect(&stream, &LMSChatStream::event, [&](const LMSStreamEvent &e) { outcome.events.append(e); });
    QObject::connect(&stream, &LMSChatStream::finished, [&](const std::optional<QString> &error) {
        outcome.finished = true;
        outcome.error = error;
    });
    stream.start(request);
    TestSupport::waitUntil([&] { return outcome.finished; }, 20000);
    return outcome;
}

}  // namespace

TEST(LMSChatStreamTest, TheRequestGoesOutAsTheServerReadsItAndEventsArriveInOrderUntilChatEnd)
{
    TestHttpServer peer([](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.headers = {{"Content-Type", "text/event-stream"}};
        response.body = kReply;
        response.mode = TestHttpServer::Response::Mode::Dribble;  // a byte at a time
        return response;
    });
    ASSERT_TRUE(peer.isListening());
    LMSChatStream stream(peer.url(QStringLiteral("//")), QStringLiteral("secret"));
    LMSChatRequest request;
    request.model = QStringLiteral("qwen");
    request.input = QStringLiteral("Hello");
    request.systemPrompt = QStringLiteral("Be brief");
    request.integrations = QJsonArray{QJsonObject{{"type", "plugin"}, {"id", "mcp/kelvara"}, {"allowed", true}}};
    const Outcome outcome = run(stream, request);

    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(outcome.error, std::nullopt);
    ASSERT_EQ(outcome.events.size(), 4);  // nothing after chat.end
    EXPECT_EQ(outcome.events.at(1).content + outcome.events.at(2).content, QString::fromUtf8("Gr\xc3\xbc\xc3\x9f" "e"));
    EXPECT_EQ(outcome.events.at(3).kind, LMSStreamEvent::Kind::chatEnd);

    ASSERT_EQ(peer.requests().size(), 1);
    const TestHttpServer::Request sent = peer.requests().first();
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(sent.target, "/api/v1/chat");
    EXPECT_EQ(sent.header("Accept"), "text/event-stream");
    EXPECT_EQ(sent.header("Authorization"), "Bearer secret");
    const QJsonObject body = QJsonDocument::fromJson(sent.body).object();
    EXPECT_EQ(body, (QJsonObject{{"model", "qwen"}, {"input", "Hello"}, {"stream", true}, {"store", false},
                                 {"system_prompt", "Be brief"},
                                 {"integrations", QJsonArray{QJsonObject{{"type", "plugin"}, {"id", "mcp/kelvara"}, {"allowed", 1}}}}}));
}

TEST(LMSChatStreamTest, AnHttpErrorACutStreamAndACancelEndItAsTheySay)
{
    TestHttpServer failing([](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.status = 500;
        response.body = "model crashed";
        return response;
    });
    LMSChatStream failed(failing.url(), QString());
    const Outcome error = run(failed, LMSChatRequest{});
    EXPECT_EQ(error.error, std::optional<QString>("HTTP 500: Request failed.\nmodel crashed"));
    EXPECT_TRUE(error.events.isEmpty());
    EXPECT_TRUE(failing.requests().first().header("Authorization").isNull());

    // The reply ends in the middle of a frame: the frames before it count, that one is dropped.
    TestHttpServer cut([](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.body = "data: {\"type\":\"message.delta\",\"content\":\"a\"}\n\ndata: {\"type\":\"message.delta\",";
        return response;
    });
    LMSChatStream partial(cut.url(), QString());
    const Outcome shortened = run(partial, LMSChatRequest{});
    EXPECT_EQ(shortened.error, std::nullopt);
    ASSERT_EQ(shortened.events.size(), 1);

    // A peer that never answers: cancel ends it, and nothing is delivered afterwards.
    TestHttpServer silent([](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.mode = TestHttpServer::Response::Mode::NeverAnswer;
        return response;
    });
    auto waiting = std::make_unique<LMSChatStream>(silent.url(), QString());
    bool finished = false;
    QObject::connect(waiting.get(), &LMSChatStream::finished, [&] { finished = true; });
    waiting->start(LMSChatRequest{});
    ASSERT_TRUE(TestSupport::waitUntil([&] { return silent.requests().size() == 1; }));
    waiting->cancel();
    waiting.reset();  // joins the transfer, which the cancel ends
    TestSupport::spin(50);
    EXPECT_FALSE(finished);
    silent.stop();
}

TEST(LMSChatStreamTest, RoutesJoinTheBaseAndThePathWithOneSlash)
{
    EXPECT_EQ(ChatHttpSession::routeUrl(QStringLiteral("http://localhost:1234/"), QStringLiteral("/api/v1/chat")),
              "http://localhost:1234/api/v1/chat");
    EXPECT_EQ(ChatHttpSession::routeUrl(QStringLiteral("http://h//"), QStringLiteral("api/v1/models//")), "http://h/api/v1/models");
}

// A server that goes silent in the middle of an answer: the frames before the silence are
// delivered, then the stream ends as stalled. One that keeps sending, however slowly, is not.
TEST(LMSChatStreamTest, ASilentServerEndsTheStreamAfterTheStallTimeout)
{
    const QByteArray head = "data: {\"type\":\"chat.start\",\"model_instance_id\":\"m1\"}\n\n"
                            "data: {\"type\":\"message.delta\",\"content\":\"Half an\"}\n\n";
    TestHttpServer silent([&](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.body = head + "data: {\"type\":\"message.delta\",\"content\":\" answer\"}\n\n";
        response.mode = TestHttpServer::Response::Mode::Dribble;
        response.stallAfter = head.size();
        return response;
    });
    LMSChatStream stalled(silent.url(), QString());
    stalled.setStallTimeout(1);
    const Outcome outcome = run(stalled, LMSChatRequest{});
    ASSERT_TRUE(outcome.finished);
    EXPECT_TRUE(stalled.stalled());
    EXPECT_EQ(outcome.error, LMSChatStream::stallText(1));
    EXPECT_EQ(*outcome.error, "No data from the model for 1 s: the answer was stopped.");
    ASSERT_EQ(outcome.events.size(), 2);
    EXPECT_EQ(outcome.events.at(1).content, "Half an");
    silent.stop();

    // 4 ms between bytes, about two seconds in all: slow, never silent for a whole second.
    TestHttpServer slow([](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.body = kReply;
        response.mode = TestHttpServer::Response::Mode::Dribble;
        response.dribbleDelayMs = 4;
        return response;
    });
    LMSChatStream steady(slow.url(), QString());
    steady.setStallTimeout(1);
    const Outcome slowOutcome = run(steady, LMSChatRequest{});
    EXPECT_FALSE(steady.stalled());
    EXPECT_EQ(slowOutcome.error, std::nullopt);
    ASSERT_EQ(slowOutcome.events.size(), 4);
    EXPECT_EQ(slowOutcome.events.last().kind, LMSStreamEvent::Kind::chatEnd);
}

// The blocking requests of the hosted providers give up on a server that sends nothing, but
// not on one that answers slowly; the provider clients ask for these limits.
TEST(LMSChatStreamTest, BlockingRequestsGiveUpOnSilenceNotOnSlowness)
{
    TestHttpServer silent([](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.mode = TestHttpServer::Response::Mode::NeverAnswer;
        return response;
    });
    ChatHttpSession::Request request;
    request.url = silent.url();
    request.stallTimeoutSeconds = 1;
    const ChatHttpSession::Reply given = ChatHttpSession::perform(request);
    EXPECT_FALSE(given.transportError.isEmpty());
    EXPECT_EQ(given.status, 0);
    silent.stop();

    TestHttpServer slow([](const TestHttpServer::Request &) {
        TestHttpServer::Response response;
        response.body = QByteArray(40, 'x');
        response.mode = TestHttpServer::Response::Mode::Dribble;
        response.dribbleDelayMs = 50;  // two seconds in all
        return response;
    });
    request.url = slow.url();
    const ChatHttpSession::Reply taken = ChatHttpSession::perform(request);
    EXPECT_TRUE(taken.transportError.isEmpty()) << taken.transportError.toStdString();
    EXPECT_EQ(taken.body, QByteArray(40, 'x'));

    const ChatHttpSession::Request cloud =
        CloudClient(CloudClient::Flavor::anthropic, slow.url(), QStringLiteral("key")).makeRequest(QStringLiteral("/v1/messages"), "POST");
    EXPECT_EQ(cloud.stallTimeoutSeconds, 60);
    EXPECT_EQ(cloud.totalTimeoutSeconds, 1600);
}
