#include "chat/clients/ChatClientError.h"
#include "chat/clients/LMSChatStream.h"
#include "chat/clients/LMSStreamParser.h"
#include "chat/clients/LMStudioClient.h"
#include "chat/service/LLMChatMapping.h"
#include "chat/service/LLMBackgroundCall.h"
#include "chat/service/LLMChatService.h"
#include "tests/chatclients/peer/ProviderPeer.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>
#include <QUrl>

namespace {

QJsonObject sentJson(const TestHttpServer::Request &request)
{
    return QJsonDocument::fromJson(request.body).object();
}

// The error a call gives back; fails the test when it succeeds.
template<typename T>
AppError failureOf(const Result<T> &outcome)
{
    if (outcome.ok()) {
        ADD_FAILURE() << "no error";
        return {};
    }
    return outcome.error();
}

// The value a call gives back; fails the test (and gives an empty value) when it fails.
template<typename T>
T valueOf(Result<T> outcome)
{
    if (!outcome.ok()) {
        ADD_FAILURE() << outcome.error().description.toStdString();
        return T{};
    }
    return std::move(*outcome);
}

ChatClientError::Kind kindOf(const AppError &error)
{
    return ChatClientError::kindOf(error);
}

} // namespace

TEST(ChatClientErrorTest, KindAndStatusComeBackFromTheValue)
{
    const AppError notFound = ChatClientError::httpFailure(404, "gone");
    EXPECT_EQ(notFound.domain, "chat");
    EXPECT_EQ(kindOf(notFound), ChatClientError::Kind::http);
    EXPECT_EQ(ChatClientError::httpStatus(notFound), 404);
    // A status outside HTTP's range is still an HTTP error, just without a status to give.
    const AppError odd = ChatClientError::httpFailure(42, "odd");
    EXPECT_EQ(kindOf(odd), ChatClientError::Kind::http);
    EXPECT_EQ(ChatClientError::httpStatus(odd), 0);
    EXPECT_EQ(kindOf(ChatClientError::make(ChatClientError::Kind::decode, "x")), ChatClientError::Kind::decode);
    EXPECT_EQ(ChatClientError::httpStatus(ChatClientError::badURL()), 0);
    EXPECT_EQ(ChatClientError::badURL().description, "unsupported URL");
    // Another layer's error with a code that happens to look like ours is not ours.
    EXPECT_EQ(kindOf(AppError{"store", 404, "x"}), ChatClientError::Kind::transport);
    EXPECT_EQ(ChatClientError::httpStatus(AppError{"store", 404, "x"}), 0);
}

TEST(LMStudioClientTest, ModelRoutesSendWhatTheServerReadsAndDecodeTheReplies)
{
    ProviderPeer peer;
    const LMStudioClient anonymous(peer.baseURL() + "/", "");
    const QList<LMSModel> models = valueOf(anonymous.listModels());
    ASSERT_EQ(models.size(), 2);
    EXPECT_EQ(models[0].key, "qwen-7b");
    EXPECT_EQ(models[0].loadedInstances.size(), 1);
    EXPECT_EQ(models[0].bitsPerWeight, 4.5);
    EXPECT_EQ(models[0].trainedForToolUse, true);
    EXPECT_EQ(models[1].type, "embedding");
    EXPECT_FALSE(models[1].vision.has_value());
    TestHttpServer::Request sent = peer.lastRequest();
    EXPECT_EQ(sent.method, "GET");
    EXPECT_EQ(sent.target, "/api/v1/models");  // one "/" between base and path
    EXPECT_EQ(sent.header("Accept"), "application/json");
    EXPECT_TRUE(sent.header("Authorization").isNull());

    const LMStudioClient client(peer.baseURL(), "lm-token");
    LMStudioClient::LoadConfig echoOnly;
    echoOnly.echoLoadConfig = true;
    const LMSLoadResponse loaded = valueOf(client.load("qwen-7b", echoOnly));
    sent = peer.lastRequest();
    EXPECT_EQ(sent.header("Authorization"), "Bearer lm-token");
    EXPECT_EQ(sent.header("Content-Type"), "application/json");
    EXPECT_EQ(sentJson(sent), QJsonObject({{"model", "qwen-7b"}, {"echo_load_config", true}}));
    EXPECT_EQ(loaded.instanceId, "qwen-7b");
    EXPECT_EQ(loaded.loadTimeSeconds, 2.5);
    ASSERT_TRUE(loaded.loadConfig.has_value());
    EXPECT_EQ(loaded.loadConfig->contextLength, 4096);
    EXPECT_TRUE(client.load("qwen-7b").ok());
    EXPECT_EQ(sentJson(peer.lastRequest()), QJsonObject({{"model", "qwen-7b"}}));
    // Every option that is set goes out under its key.
    LMStudioClient::LoadConfig all{8192, 512, false, 4, true, std::nullopt};
    EXPECT_TRUE(client.load("qwen-7b", all).ok());
    EXPECT_EQ(sentJson(peer.lastRequest()),
              QJsonObject({{"model", "qwen-7b"}, {"context_length", 8192}, {"eval_batch_size", 512}, {"flash_attention", false},
                           {"num_experts", 4}, {"offload_kv_cache_to_gpu", true}}));
    // An instance's whole config from the list; a mistyped optional field fails the entry.
    EXPECT_EQ(LMSInstanceConfig::fromJson(QJsonObject{{"context_length", 2048}, {"num_experts", 8}})->numExperts, 8);
    EXPECT_FALSE(LMSInstanceConfig::fromJson(QJsonObject{{"context_length", 2048}, {"flash_attention", "yes"}}));
    EXPECT_FALSE(LMSInstanceConfig::fromJson(QJsonObject{{"num_experts", 8}}));

    EXPECT_TRUE(client.unload("qwen-7b:2").ok());
    EXPECT_EQ(peer.lastRequest().target, "/api/v1/models/unload");
    EXPECT_EQ(sentJson(peer.lastRequest()), QJsonObject({{"instance_id", "qwen-7b:2"}}));
}

TEST(LMStudioClientTest, DownloadJobMovesThroughItsStates)
{
    ProviderPeer peer;
    const LMStudioClient client(peer.baseURL(), "");
    const LMSDownloadStatus started = valueOf(client.download("qwen-7b", QString("Q4_K_M")));
    EXPECT_EQ(sentJson(peer.lastRequest()), QJsonObject({{"model", "qwen-7b"}, {"quantization", "Q4_K_M"}}));
    EXPECT_EQ(started.status, LMSDownloadStatus::State::downloading);
    ASSERT_EQ(started.jobId, "job-1");

    QList<LMSDownloadStatus::State> states;
    QList<qint64> bytes;
    for (int poll = 0; poll < 3; ++poll) {
        const LMSDownloadStatus status = valueOf(client.downloadStatus(*started.jobId));
        states << status.status;
        bytes << status.downloadedBytes.value_or(-1);
    }
    EXPECT_EQ(peer.lastRequest().target, "/api/v1/models/download/status/job-1");
    EXPECT_EQ(states, (QList<LMSDownloadStatus::State>{LMSDownloadStatus::State::downloading,
                                                       LMSDownloadStatus::State::downloading,
                                                       LMSDownloadStatus::State::completed}));
    EXPECT_EQ(bytes, (QList<qint64>{400, 800, 1000}));

    // A state the client doesn't know fails the decoding instead of guessing.
    EXPECT_FALSE(LMSDownloadStatus::fromJson(QJsonObject{{"status", "queued"}}).has_value());
    EXPECT_EQ(LMSDownloadStatus::fromJson(QJsonObject{{"status", "already_downloaded"}})->status,
              LMSDownloadStatus::State::alreadyDownloaded);
}

TEST(LMStudioClientTest, FailuresCarryTheServersWords)
{
    ProviderPeer peer;
    const LMStudioClient client(peer.baseURL(), "");
    peer.setFailure(ProviderPeer::Failure::serverError);
    AppError error = failureOf(client.listModels());
    EXPECT_EQ(kindOf(error), ChatClientError::Kind::http);
    EXPECT_EQ(ChatClientError::httpStatus(error), 500);
    EXPECT_EQ(error.description, QString("HTTP 500: Request failed.\n") + ProviderPeer::serverErrorBody());

    peer.setFailure(ProviderPeer::Failure::undecodable);
    EXPECT_EQ(kindOf(failureOf(client.downloadStatus("job-1"))), ChatClientError::Kind::decode);
    EXPECT_EQ(kindOf(failureOf(client.load("x"))), ChatClientError::Kind::decode);

    // Nobody listening: the transport's reason.
    int port = 0;
    {
        ProviderPeer gone;
        port = QUrl(gone.baseURL()).port();
    }
    error = failureOf(LMStudioClient(QString("http://127.0.0.1:%1").arg(port), "").listModels());
    EXPECT_EQ(kindOf(error), ChatClientError::Kind::transport);
    EXPECT_FALSE(error.description.isEmpty());
}

TEST(LLMChatServiceTest, ModelListsOfEveryProvider)
{
    ProviderPeer peer;
    QList<AIModel> models = valueOf(LLMChatService::listModels(AIProviderID::lmStudio, peer.baseURL(), ""));
    ASSERT_EQ(models.size(), 2);
    EXPECT_EQ(models[0], (AIModel{"qwen-7b", "Qwen 7B", AIProviderID::lmStudio, true, {}, {}}));
    EXPECT_FALSE(models[1].isLoaded);

    models = valueOf(LLMChatService::listModels(AIProviderID::openAI, peer.baseURL(), ""));
    ASSERT_EQ(models.size(), 2);
    EXPECT_EQ(models[0].id, "gpt-b");  // the reply's order
    // Sent even without a key (the blank after "Bearer" isn't part of a field's value on the wire).
    EXPECT_EQ(peer.lastRequest().header("Authorization"), "Bearer");

    // Anthropic's pages are followed to the last one, in order.
    models = valueOf(LLMChatService::listModels(AIProviderID::anthropic, peer.baseURL(), "sk-ant"));
    ASSERT_EQ(models.size(), 3);
    EXPECT_EQ(models[0].name, "Claude A");
    EXPECT_EQ(models[1].name, "claude-b");
    EXPECT_EQ(models[2].name, "Claude C");
    EXPECT_EQ(peer.lastRequest().target, "/v1/models?after_id=claude-b");
    EXPECT_EQ(peer.lastRequest().header("x-api-key"), "sk-ant");
    EXPECT_EQ(peer.lastRequest().header("anthropic-version"), "2023-06-01");

    // Gemini's too, leaving out what can't generateContent; a model that names no methods stays.
    models = valueOf(LLMChatService::listModels(AIProviderID::gemini, peer.geminiBaseURL(), "g-key"));
    ASSERT_EQ(models.size(), 3);
    EXPECT_EQ(models[0], (AIModel{"gemini-pro", "Gemini Pro", AIProviderID::gemini, false, {}, {}}));
    EXPECT_EQ(models[1].id, "flash");
    EXPECT_EQ(models[2].id, "gemini-late");
    EXPECT_EQ(peer.lastRequest().target, "/v1beta/models?pageToken=page-2");
    EXPECT_EQ(peer.lastRequest().header("x-goog-api-key"), "g-key");

    models = valueOf(LLMChatService::listModels(AIProviderID::huggingFace, peer.baseURL(), "hf"));
    ASSERT_EQ(models.size(), 2);
    EXPECT_EQ(models[0].provider, AIProviderID::huggingFace);
}

TEST(LLMChatServiceTest, FailedModelListsAndBadURLs)
{
    ProviderPeer peer;
    peer.setFailure(ProviderPeer::Failure::serverError);
    AppError error = failureOf(LLMChatService::listModels(AIProviderID::openAI, peer.baseURL(), "k"));
    EXPECT_EQ(kindOf(error), ChatClientError::Kind::http);
    EXPECT_EQ(error.description, ProviderPeer::serverErrorBody());  // the provider's JSON, word for word

    // The router falls back to its fixed list on an HTTP error, a bad reply or a bad URL.
    EXPECT_EQ(valueOf(LLMChatService::listModels(AIProviderID::huggingFace, peer.baseURL(), "hf")),
              LLMChatMapping::huggingFaceFallbackModels());
    peer.setFailure(ProviderPeer::Failure::undecodable);
    EXPECT_EQ(valueOf(LLMChatService::listModels(AIProviderID::huggingFace, peer.baseURL(), "hf")).size(), 4);
    EXPECT_EQ(kindOf(failureOf(LLMChatService::listModels(AIProviderID::gemini, peer.geminiBaseURL(), "k"))),
              ChatClientError::Kind::decode);
    EXPECT_EQ(valueOf(LLMChatService::listModels(AIProviderID::huggingFace, "not a url", "hf")).size(), 4);

    for (AIProviderID provider : {AIProviderID::lmStudio, AIProviderID::openAI, AIProviderID::gemini}) {
        error = failureOf(LLMChatService::chat(provider, "::nope", "", {"Hi", "m"}));
        EXPECT_EQ(kindOf(error), ChatClientError::Kind::badURL);
    }
    EXPECT_EQ(kindOf(failureOf(LLMChatService::listModels(AIProviderID::anthropic, "", ""))),
              ChatClientError::Kind::badURL);
}

TEST(LLMChatServiceTest, BlockingChatOfEveryProvider)
{
    ProviderPeer peer;
    LLMChatService::ChatRequest request{"What is up?", "model-1"};
    request.systemPrompt = QString("Be brief.");
    request.temperature = 0.5;
    request.previousResponseID = QString("resp_0");
    request.store = true;
    request.integrations = QJsonArray{QJsonObject{{"type", "plugin"}, {"id", "mcp/kelvara"}}};

    AIChatResponse reply = valueOf(LLMChatService::chat(AIProviderID::lmStudio, peer.baseURL(), "", request));
    QJsonObject sent = sentJson(peer.lastRequest());
    EXPECT_EQ(sent.value("stream"), false);
    EXPECT_EQ(sent.value("store"), true);
    EXPECT_EQ(sent.value("system_prompt"), "Be brief.");
    EXPECT_EQ(sent.value("previous_response_id"), "resp_0");
    EXPECT_EQ(sent.value("integrations").toArray().size(), 1);
    EXPECT_EQ(reply.id, "resp_1");
    EXPECT_EQ(reply.messageText, "Hello, world.");
    EXPECT_EQ(reply.stats, (AIChatStats{12, 34, 5, 42.5, 0.25, 1.5}));

    reply = valueOf(LLMChatService::chat(AIProviderID::openAI, peer.baseURL(), "sk", request));
    sent = sentJson(peer.lastRequest());
    EXPECT_EQ(peer.lastRequest().target, "/v1/chat/completions");
    EXPECT_EQ(peer.lastRequest().header("Authorization"), "Bearer sk");
    EXPECT_EQ(sent.value("messages").toArray().size(), 2);
    EXPECT_EQ(sent.value("temperature").toDouble(), 0.5);
    EXPECT_FALSE(sent.contains("integrations"));
    EXPECT_FALSE(sent.contains("previous_response_id"));
    EXPECT_EQ(reply.messageText, "Hi from OpenAI");
    EXPECT_EQ(reply.stats, (AIChatStats{9, 3, 0, 0, 0, std::nullopt}));

    reply = valueOf(LLMChatService::chat(AIProviderID::huggingFace, peer.baseURL(), "hf", request));
    EXPECT_EQ(reply.id, "chatcmpl-1");

    reply = valueOf(LLMChatService::chat(AIProviderID::anthropic, peer.baseURL(), "sk-ant", request));
    sent = sentJson(peer.lastRequest());
    EXPECT_EQ(peer.lastRequest().target, "/v1/messages");
    EXPECT_EQ(sent.value("max_tokens").toInteger(), 1024);
    EXPECT_EQ(sent.value("system"), "Be brief.");
    EXPECT_FALSE(sent.contains("temperature"));
    EXPECT_EQ(reply.messageText, "Hi from Claude");

    reply = valueOf(LLMChatService::chat(AIProviderID::gemini, peer.geminiBaseURL(), "g", request));
    sent = sentJson(peer.lastRequest());
    EXPECT_EQ(peer.lastRequest().target, "/v1beta/models/model-1:generateContent");
    EXPECT_EQ(sent.value("contents")[0]["parts"][0]["text"], "System: Be brief.\n\nUser: What is up?");
    EXPECT_FALSE(reply.id.has_value());
    EXPECT_EQ(reply.messageText, "Hi from Gemini");
    EXPECT_EQ(reply.stats->inputTokens, 7);
}

// OpenAI's reasoning models get the limit under its newer name and no temperature; the others,
// and the Hugging Face router whatever the model, keep the older form. The stand-in refuses a
// reasoning model's older form as OpenAI does.
TEST(LLMChatServiceTest, OpenAIReasoningModelsTakeTheirOwnLimit)
{
    ProviderPeer peer;
    LLMChatService::ChatRequest request{"Hi", "o3-mini"};
    request.temperature = 0.5;
    request.maxOutputTokens = 512;
    EXPECT_EQ(valueOf(LLMChatService::chat(AIProviderID::openAI, peer.baseURL(), "k", request)).messageText,
              "Hi from OpenAI");
    QJsonObject sent = sentJson(peer.lastRequest());
    EXPECT_EQ(sent.value("max_completion_tokens"), 512);
    EXPECT_FALSE(sent.contains("max_tokens"));
    EXPECT_FALSE(sent.contains("temperature"));

    request.model = "gpt-4o";
    ASSERT_TRUE(LLMChatService::chat(AIProviderID::openAI, peer.baseURL(), "k", request).ok());
    sent = sentJson(peer.lastRequest());
    EXPECT_EQ(sent.value("max_tokens"), 512);
    EXPECT_EQ(sent.value("temperature"), 0.5);
    EXPECT_FALSE(sent.contains("max_completion_tokens"));

    request.model = "o3-mini";
    EXPECT_EQ(kindOf(failureOf(LLMChatService::chat(AIProviderID::huggingFace, peer.baseURL(), "k", request))),
              ChatClientError::Kind::http); // the router is not OpenAI: its form goes out as it is
    EXPECT_TRUE(sentJson(peer.lastRequest()).contains("max_tokens"));

    for (const char *reasoning : {"o1", "o1-preview", "o3", "o4-mini", "gpt-5", "gpt-5-mini-2025-08-07", " O3-Mini "})
        EXPECT_TRUE(LLMChatMapping::isOpenAIReasoningModel(reasoning)) << reasoning;
    for (const char *plain : {"gpt-4o", "gpt-4.1-mini", "o10x", "gpt-50", "omni-moderation-latest", "gpt-3.5-turbo", ""})
        EXPECT_FALSE(LLMChatMapping::isOpenAIReasoningModel(plain)) << plain;
}

// Pages are followed only as far as they lead somewhere new.
TEST(LLMChatServiceTest, ModelPagesEndAtTheLastPage)
{
    EXPECT_EQ(LLMChatMapping::nextModelPage(AIProviderID::anthropic, R"({"data":[],"has_more":true,"last_id":"a b"})"),
              std::optional<QString>("after_id=a%20b"));
    EXPECT_EQ(LLMChatMapping::nextModelPage(AIProviderID::anthropic, R"({"data":[],"has_more":false,"last_id":"x"})"),
              std::nullopt);
    EXPECT_EQ(LLMChatMapping::nextModelPage(AIProviderID::anthropic, R"({"data":[],"has_more":true})"), std::nullopt);
    EXPECT_EQ(LLMChatMapping::nextModelPage(AIProviderID::gemini, R"({"models":[],"nextPageToken":""})"), std::nullopt);
    EXPECT_EQ(LLMChatMapping::nextModelPage(AIProviderID::openAI, R"({"data":[],"has_more":true,"last_id":"x"})"),
              std::nullopt);
}

TEST(LLMChatServiceTest, ChatFailuresPassThrough)
{
    ProviderPeer peer;
    peer.setFailure(ProviderPeer::Failure::serverError);
    EXPECT_EQ(failureOf(LLMChatService::chat(AIProviderID::anthropic, peer.baseURL(), "k", {"Hi", "m"}))
                  .description,
              ProviderPeer::serverErrorBody());
    EXPECT_TRUE(failureOf(LLMChatService::chat(AIProviderID::lmStudio, peer.baseURL(), "", {"Hi", "m"}))
                    .description
                    .startsWith("HTTP 500: Request failed.\n"));
    // A well-formed reply that doesn't decode is an error, not an empty answer.
    peer.setFailure(ProviderPeer::Failure::undecodable);
    for (AIProviderID provider : AIProvider::allCases())
        EXPECT_EQ(kindOf(failureOf(LLMChatService::chat(provider, peer.baseURL(), "k", {"Hi", "m"}))),
                  ChatClientError::Kind::decode)
            << AIProvider::rawValue(provider).toStdString();
    // A slow reply still arrives whole.
    peer.setFailure(ProviderPeer::Failure::slow);
    EXPECT_EQ(valueOf(LLMChatService::chat(AIProviderID::openAI, peer.baseURL(), "k", {"Hi", "m"})).messageText,
              "Hi from OpenAI");
}

namespace {

struct StreamOutcome {
    QList<LMSStreamEvent> events;
    std::optional<QString> error;
    bool finished = false;
};

StreamOutcome streamFrom(const ProviderPeer &peer)
{
    StreamOutcome outcome;
    LMSChatStream stream(peer.baseURL(), QString());
    QObject::connect(&stream, &LMSChatStream::event, [&](const LMSStreamEvent &event) { outcome.events << event; });
    QObject::connect(&stream, &LMSChatStream::finished, [&](const std::optional<QString> &error) {
        outcome.error = error;
        outcome.finished = true;
    });
    LMSChatRequest request;
    request.model = QStringLiteral("qwen-7b");
    request.input = QStringLiteral("Read /tmp/a");
    stream.start(request);
    TestSupport::waitUntil([&] { return outcome.finished; }, 20000);
    return outcome;
}

} // namespace

TEST(LMStudioStreamPeerTest, ByteByByteDeliveryMatchesTheWholeReplyAndACutFrameIsDropped)
{
    ProviderPeer peer;
    LMSStreamParser whole;
    const QList<LMSStreamEvent> expected = whole.feed(ProviderPeer::chatStream());
    ASSERT_TRUE(whole.finished());

    const StreamOutcome streamed = streamFrom(peer);
    ASSERT_TRUE(streamed.finished);
    EXPECT_EQ(streamed.error, std::nullopt);
    EXPECT_EQ(streamed.events, expected);
    ASSERT_FALSE(streamed.events.isEmpty());
    EXPECT_EQ(streamed.events.last().kind, LMSStreamEvent::Kind::chatEnd);
    QString text;
    for (const LMSStreamEvent &event : streamed.events)
        if (event.kind == LMSStreamEvent::Kind::messageDelta)
            text += event.content;
    EXPECT_EQ(text, "Hello, world.");

    // Cut inside the message.end frame: everything before it arrives, then the stream just ends.
    peer.setFailure(ProviderPeer::Failure::cutStream);
    const StreamOutcome cut = streamFrom(peer);
    ASSERT_TRUE(cut.finished);
    EXPECT_EQ(cut.error, std::nullopt);
    ASSERT_FALSE(cut.events.isEmpty());
    EXPECT_EQ(cut.events.last().kind, LMSStreamEvent::Kind::messageDelta);
    EXPECT_EQ(cut.events.size(), expected.size() - 2);
}

TEST(LLMBackgroundCallTest, TheOutcomeArrivesOnTheOwnersThreadAndCancelStopsIt)
{
    ProviderPeer peer;
    QObject owner;
    std::optional<AIChatResponse> reply;
    std::optional<AppError> failure;
    bool onOwnersThread = false;
    int deliveries = 0;
    auto ask = [&](AIProviderID provider) {
        return [provider, base = peer.baseURL()] {
            return LLMChatService::chat(provider, base, "k", {"Hi", "m"});
        };
    };
    auto collect = [&](Result<AIChatResponse> outcome) {
        ++deliveries;
        onOwnersThread = QThread::currentThread() == owner.thread();
        reply = outcome ? std::optional<AIChatResponse>(*outcome) : std::nullopt;
        failure = outcome ? std::nullopt : std::optional<AppError>(outcome.error());
    };

    LLMBackgroundCall<AIChatResponse> ok(&owner, ask(AIProviderID::openAI), collect);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return deliveries == 1; }, 20000));
    EXPECT_TRUE(onOwnersThread);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->messageText, "Hi from OpenAI");
    EXPECT_FALSE(failure);

    peer.setFailure(ProviderPeer::Failure::serverError);
    LLMBackgroundCall<AIChatResponse> failing(&owner, ask(AIProviderID::anthropic), collect);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return deliveries == 2; }, 20000));
    EXPECT_FALSE(reply);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->description, ProviderPeer::serverErrorBody());

    // Cancelled at once: the call still reaches the peer, but nothing is delivered. A later call
    // on the same owner is delivered, and queued deliveries come in order, so by the time it
    // arrives the cancelled one would have too.
    peer.setFailure(ProviderPeer::Failure::none);
    std::atomic<bool> cancelledDone{false};
    LLMBackgroundCall<AIChatResponse> cancelled(
        &owner,
        [&, work = ask(AIProviderID::anthropic)] {
            auto result = work();
            cancelledDone = true;
            return result;
        },
        collect);
    cancelled.cancel();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return cancelledDone.load(); }, 20000));
    LLMBackgroundCall<AIChatResponse> after(&owner, ask(AIProviderID::openAI), collect);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return deliveries >= 3; }, 20000));
    EXPECT_EQ(deliveries, 3);
    EXPECT_EQ(reply->messageText, "Hi from OpenAI");
}
