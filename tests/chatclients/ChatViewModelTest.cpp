#include "base/UserDefaults.h"
#include "chat/session/ChatTranscriptFile.h"
#include "chat/session/ChatViewModel.h"
#include "chat/session/StreamTextFilter.h"
#include "chat/session/ToolCallDisplay.h"
#include "chat/session/XcodeBridgeService.h"
#include "tests/chatclients/peer/ProviderPeer.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>

using TestSupport::waitUntil;
using Role = TranscriptMessage::Role;

namespace {

// A view model pointed at the peer as LM Studio (or another provider), with a fresh transcript.
std::unique_ptr<ChatViewModel> modelFor(const ProviderPeer &peer, AIProviderID provider = AIProviderID::lmStudio)
{
    auto model = std::make_unique<ChatViewModel>();
    model->connection().selectProvider(provider);
    model->connection().setBaseURL(peer.baseURL());
    model->connection().setSystemPrompt(QString());
    model->connection().setToken(QString());
    model->session().clearChat();
    return model;
}

bool settle(ChatViewModel &model)
{
    return waitUntil([&] { return !model.status().isBusy(); }, 20000);
}

int requestsTo(const ProviderPeer &peer, const QByteArray &path)
{
    int count = 0;
    for (const auto &request : peer.requests())
        count += request.target == path;
    return count;
}

}  // namespace

// Connect: a cloud provider without key asks nothing of the network; LM Studio lists its models,
// prefers the loaded one and, with a system prompt, opens a new thread with it on every connect.
TEST(ChatViewModelTest, ConnectPicksTheModelAndOpensTheThreadWithTheSystemPrompt)
{
    ProviderPeer peer;
    auto cloud = modelFor(peer, AIProviderID::openAI);
    cloud->connection().connect();
    EXPECT_EQ(cloud->connection().state(), ChatViewModel::ConnectionState::disconnected);
    EXPECT_EQ(cloud->status().text(),
              AIProvider::displayName(AIProviderID::openAI) + " requires an API key in Connection Settings.");
    EXPECT_TRUE(peer.requests().isEmpty());

    auto model = modelFor(peer);
    model->connection().setSelectedModel(QStringLiteral("gone"));
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->connection().state(), ChatViewModel::ConnectionState::connected);
    EXPECT_EQ(model->status().text(), "Connected — 2 model(s) available.");  // no system prompt: nothing sent
    EXPECT_EQ(model->connection().selectedModel(), "qwen-7b");
    EXPECT_TRUE(model->session().transcript().isEmpty());

    model->connection().setSystemPrompt(QStringLiteral("You are terse."));
    for (int round = 1; round <= 2; ++round) {
        model->connection().connect();
        ASSERT_TRUE(waitUntil([&] {
            const QList<TranscriptMessage> &transcript = model->session().transcript();
            return transcript.size() == 2 * round && transcript.last().isComplete && !model->status().isBusy();
        }, 20000)) << model->status().text().toStdString();
        EXPECT_EQ(model->status().text(), "Ready.");
        ASSERT_EQ(model->session().transcript().size(), 2 * round);
        const TranscriptMessage &answer = model->session().transcript().last();
        EXPECT_EQ(model->session().transcript().at(2 * round - 2).content, "You are terse.");
        EXPECT_EQ(answer.content, "Hello, world.");  // only the message deltas count here
        EXPECT_TRUE(answer.isComplete);
        EXPECT_TRUE(answer.toolCalls.isEmpty());
        EXPECT_EQ(model->session().lastResponseID(), "resp_1");
    }
    const QJsonObject sent = QJsonDocument::fromJson(peer.lastRequest().body).object();
    EXPECT_EQ(sent.value("input").toString(), "You are terse.");
    EXPECT_FALSE(sent.contains("previous_response_id"));
    EXPECT_TRUE(sent.value("store").toBool());

    // Refresh keeps a listed model even when another is loaded; a provider switch disconnects,
    // keeps the transcript and takes the other provider's stored settings.
    model->connection().setSelectedModel(QStringLiteral("nomic-embed"));
    model->connection().refreshModels();
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->connection().selectedModel(), "nomic-embed");
    EXPECT_EQ(model->status().text(), "Refreshed 2 model(s) available.");
    model->connection().saveSettings();
    model->connection().selectProvider(AIProviderID::anthropic);
    EXPECT_EQ(model->connection().state(), ChatViewModel::ConnectionState::disconnected);
    EXPECT_EQ(model->status().text(), "Disconnected.");
    EXPECT_EQ(model->connection().baseURL(), AIProvider::defaultBaseURL(AIProviderID::anthropic));
    EXPECT_EQ(model->session().transcript().size(), 4);
    model->connection().selectProvider(AIProviderID::lmStudio);
    EXPECT_EQ(model->connection().baseURL(), peer.baseURL());
    EXPECT_EQ(model->connection().systemPrompt(), "You are terse.");
}

// A dropped link leaves the provider's thread behind, so the next question starts a new one;
// a load opens a thread with the system prompt, as a connect does.
TEST(ChatViewModelTest, DisconnectEndsTheThreadAndALoadOpensANewOne)
{
    ProviderPeer peer;
    auto model = modelFor(peer);
    ProviderConnection &link = model->connection();
    link.connect();
    ASSERT_TRUE(settle(*model));
    model->session().send(QStringLiteral("Question"));
    ASSERT_TRUE(settle(*model));
    ASSERT_EQ(model->session().lastResponseID(), "resp_1");

    link.disconnect();
    EXPECT_FALSE(model->session().lastResponseID());
    EXPECT_EQ(model->session().transcript().size(), 2);
    link.connect();
    ASSERT_TRUE(settle(*model));
    model->session().send(QStringLiteral("Again"));
    ASSERT_TRUE(settle(*model));
    EXPECT_FALSE(QJsonDocument::fromJson(peer.lastRequest().body).object().contains("previous_response_id"));

    link.setSystemPrompt(QStringLiteral("Be brief."));
    link.loadSelectedModel();
    ASSERT_TRUE(waitUntil([&] {
        return model->session().transcript().size() == 6 && model->session().transcript().last().isComplete &&
               !model->status().isBusy();
    }, 20000)) << model->status().text().toStdString();
    EXPECT_EQ(model->session().transcript().at(4).content, "Be brief.");
    EXPECT_EQ(model->status().text(), "Ready.");
    const QJsonObject opened = QJsonDocument::fromJson(peer.lastRequest().body).object();
    EXPECT_EQ(opened.value("input").toString(), "Be brief.");
    EXPECT_FALSE(opened.contains("previous_response_id"));
}

// With no model loaded, connect ends asking for a load and appends nothing; load, unload and the
// download section speak in their status lines.
TEST(ChatViewModelTest, ModelOperationsAndTheirStatusLines)
{
    ProviderPeer peer;
    auto model = modelFor(peer);
    model->connection().setSystemPrompt(QStringLiteral("Hi"));
    model->connection().refreshModels();
    EXPECT_EQ(model->status().text(), "Not connected. Click Connect first.");
    model->connection().connect();
    ASSERT_TRUE(waitUntil([&] { return model->connection().state() == ChatViewModel::ConnectionState::connected; }, 20000));
    ASSERT_TRUE(settle(*model));
    // The peer lists qwen-7b as loaded; take the load away to see the refusal.
    QList<LMSModel> listed = model->connection().lmStudioModels();
    listed[0].loadedInstances.clear();
    model->connection().setLMStudioModels(listed);
    model->session().sendSystemPrompt();
    const qsizetype before = model->session().transcript().size();
    EXPECT_EQ(model->status().text(), "Please load model first.");
    EXPECT_EQ(model->session().transcript().size(), before);

    model->connection().setSystemPrompt(QString());
    model->connection().loadSelectedModel();
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->status().text(), "Loaded 'qwen-7b' in 2.5s.");
    ASSERT_TRUE(model->connection().loadedModel());
    EXPECT_EQ(model->connection().loadedModel()->key, "qwen-7b");
    model->connection().unloadSelectedModel();
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->status().text(), "Unloaded 'qwen-7b'.");

    model->connection().checkDownloadStatus();
    EXPECT_EQ(model->status().text(), "Enter a job ID first.");
    model->connection().setDownloadModelName(QStringLiteral("qwen-14b"));
    model->connection().startDownload();
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->connection().downloadJobID(), "job-1");
    EXPECT_EQ(model->status().text(), "Downloading 0%");
    model->connection().checkDownloadStatus();
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->status().text(), "Downloading 40% 400.0 B/s");
    for (int poll = 0; poll < 2; ++poll) {
        model->connection().checkDownloadStatus();
        ASSERT_TRUE(settle(*model));
    }
    EXPECT_EQ(model->status().text(), "Download completed.");

    LMSDownloadStatus empty;
    empty.totalSizeBytes = 0;
    empty.downloadedBytes = 0;
    empty.bytesPerSecond = 3.5 * 1024 * 1024;
    EXPECT_EQ(ProviderConnection::downloadStatusLine(empty), "Downloading … 3.5 MB/s");

    auto cloud = modelFor(peer, AIProviderID::gemini);
    cloud->connection().loadSelectedModel();
    EXPECT_EQ(cloud->status().text(), "Model loading is only available for LM Studio.");
    cloud->connection().setBaseURL(QStringLiteral("not a url"));
    cloud->connection().setToken(QStringLiteral("key"));
    cloud->connection().connect();
    EXPECT_EQ(cloud->status().text(), "Invalid base URL");
}

// The chat against both tool-call forms of LM Studio's stream.
class ChatStreamFormTest : public ::testing::TestWithParam<ProviderPeer::StreamForm> {};

INSTANTIATE_TEST_SUITE_P(BothForms, ChatStreamFormTest,
                         ::testing::Values(ProviderPeer::StreamForm::documented, ProviderPeer::StreamForm::earlier),
                         [](const auto &info) {
                             return info.param == ProviderPeer::StreamForm::documented ? "documented" : "earlier";
                         });

// A streamed answer: the attachments block ahead of the text, reasoning, a tool call with its
// arguments and output, the message and the figures of chat.end, then the input emptied.
TEST_P(ChatStreamFormTest, AStreamedAnswerBuildsReasoningToolCallAndText)
{
    ProviderPeer peer;
    peer.setStreamForm(GetParam());
    auto model = modelFor(peer);
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    const QString dir = TestSupport::makeTempDir();
    QFile notes(dir + "/notes.txt");
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("line one");
    notes.close();
    QFile binary(dir + "/blob.bin");
    ASSERT_TRUE(binary.open(QIODevice::WriteOnly));
    binary.write("\xff\xfe\x00\x01", 4);
    binary.close();
    model->attachments().addFile(dir + "/notes.txt");
    model->attachments().addFile(dir + "/./sub/../notes.txt");  // the same file by another spelling
    model->attachments().addFile(dir + "/blob.bin");
    EXPECT_EQ(model->attachments().items().size(), 2);

    model->setPrompt(QStringLiteral("  What is in it?\n"));
    ASSERT_TRUE(model->canSend());
    model->sendPrompt(true);
    EXPECT_TRUE(model->status().isBusy());
    EXPECT_FALSE(model->prompt().isEmpty());  // stays until the answer has ended
    ASSERT_TRUE(settle(*model));

    const QJsonObject sent = QJsonDocument::fromJson(peer.lastRequest().body).object();
    EXPECT_EQ(sent.value("input").toString(),
              "<file name=\"notes.txt\">\nline one\n</file>\n<file name=\"blob.bin\">[binary – cannot embed]</file>\n\nWhat is in it?");
    ASSERT_EQ(model->session().transcript().size(), 2);
    EXPECT_EQ(model->session().transcript().at(0).content, "What is in it?");
    const TranscriptMessage &answer = model->session().transcript().at(1);
    EXPECT_EQ(answer.role, Role::toolCall);
    EXPECT_EQ(answer.reasoning, "Let me look.");
    EXPECT_EQ(answer.content, "Hello, world.");
    EXPECT_TRUE(answer.isComplete);
    ASSERT_EQ(answer.toolCalls.size(), 1);
    EXPECT_EQ(answer.toolCalls.at(0).tool, "read_file");
    EXPECT_EQ(answer.toolCalls.at(0).serverLabel, "kelvara");
    EXPECT_EQ(answer.toolCalls.at(0).arguments.value("path").toString(), "/tmp/a");
    EXPECT_EQ(answer.toolCalls.at(0).output, "hello");
    EXPECT_TRUE(answer.toolCalls.at(0).isCompleted);
    ASSERT_TRUE(answer.stats);
    EXPECT_EQ(answer.stats->totalOutputTokens, 34);
    EXPECT_EQ(model->status().text(), "42 tok/s | 34 tokens | 0.25s to first token");
    EXPECT_EQ(model->session().lastResponseID(), "resp_1");
    EXPECT_TRUE(model->prompt().isEmpty());
    EXPECT_TRUE(model->attachments().items().isEmpty());
    EXPECT_EQ(XcodeBridgeService::readResponse(), "Hello, world.");
    EXPECT_EQ(model->session().historyModel()->items().last().prompt, "What is in it?");

    // The next question continues the thread; a search finds the tool call's output.
    model->session().send(QStringLiteral("And then?"));
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(QJsonDocument::fromJson(peer.lastRequest().body).object().value("previous_response_id").toString(), "resp_1");
    EXPECT_EQ(model->session().searchTranscript(QStringLiteral("HELLO")).size(), 2);
    EXPECT_EQ(model->session().searchTranscript(QStringLiteral("/tmp/a")).size(), 2);

    // White space alone sends nothing; not connected says so and appends nothing.
    model->session().send(QStringLiteral(" \n\t"));
    EXPECT_EQ(model->session().transcript().size(), 4);
    model->connection().disconnect();
    model->session().send(QStringLiteral("hello"));
    EXPECT_EQ(model->status().text(), "Not connected. Click Connect first.");
    EXPECT_EQ(model->session().transcript().size(), 4);
}

// A refused call and a call of a tool the server does not know: each shows its reason, the
// message counts as complete, and the answer after them still arrives.
TEST_P(ChatStreamFormTest, ToolCallFailuresShowTheirReasons)
{
    ProviderPeer peer;
    peer.setStreamForm(GetParam());
    auto model = modelFor(peer);
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    peer.setFailure(ProviderPeer::Failure::toolFailure);
    model->session().send(QStringLiteral("Read it"));
    ASSERT_TRUE(settle(*model));

    const TranscriptMessage &answer = model->session().transcript().last();
    EXPECT_EQ(answer.role, Role::toolCall);
    EXPECT_TRUE(answer.isComplete);
    EXPECT_EQ(answer.content, "I could not read it.");
    ASSERT_EQ(answer.toolCalls.size(), 2);
    const MCPToolCall &refused = answer.toolCalls.at(0);
    EXPECT_EQ(refused.tool, "read_file");
    EXPECT_EQ(refused.serverLabel, "kelvara");
    EXPECT_EQ(refused.arguments.value("path").toInt(), 7);
    EXPECT_EQ(refused.error, "Invalid arguments for read_file: path must be a string.");
    EXPECT_FALSE(refused.output);
    EXPECT_TRUE(refused.isCompleted);
    const MCPToolCall &unknown = answer.toolCalls.at(1);
    // Only the documented form names the tool it could not find.
    EXPECT_EQ(unknown.tool, GetParam() == ProviderPeer::StreamForm::documented ? "open_browser" : "Unknown");
    EXPECT_EQ(unknown.error, "Cannot find tool with name open_browser.");
    EXPECT_TRUE(unknown.isCompleted);
    EXPECT_EQ(model->status().text(), "42 tok/s | 34 tokens | 0.25s to first token");
}

// Two calls under way at once: each later frame finds its own call by the tool's name, and
// frames that name no tool go to the oldest open call.
TEST(ChatViewModelTest, OverlappingToolCallsAreMatchedByNameThenByOrder)
{
    ProviderPeer peer;
    auto model = modelFor(peer);
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    auto frame = [](const QJsonObject &object) {
        return "data: " + QJsonDocument(object).toJson(QJsonDocument::Compact) + "\n\n";
    };
    const QJsonObject k{{"type", "ephemeral_mcp"}, {"server_label", "k"}};
    peer.setChatStream(frame({{"type", "tool_call.start"}, {"tool", "read_file"}, {"provider_info", k}})
                       + frame({{"type", "tool_call.start"}, {"tool", "list_files"}, {"provider_info", k}})
                       + frame({{"type", "tool_call.start"}, {"tool", "read_file"}, {"provider_info", k}})
                       + frame({{"type", "tool_call.arguments"}, {"tool", "list_files"}, {"arguments", QJsonObject{{"path", "/"}}}})
                       + frame({{"type", "tool_call.success"}, {"tool", "read_file"}, {"arguments", QJsonObject{{"path", "/a"}}},
                                {"output", "A"}})
                       + frame({{"type", "tool_call.failure"}, {"reason", "timed out"}})
                       + frame({{"type", "tool_call.success"}, {"tool", "read_file"}, {"output", "B"}})
                       + frame({{"type", "chat.end"}, {"result", QJsonDocument::fromJson(
                                    R"({"model_instance_id":"m","output":[],"stats":{"input_tokens":1,"total_output_tokens":1,)"
                                    R"("reasoning_output_tokens":0,"tokens_per_second":1,"time_to_first_token_seconds":1}})").object()}}));
    model->session().send(QStringLiteral("Go"));
    ASSERT_TRUE(settle(*model));

    const QList<MCPToolCall> &calls = model->session().transcript().last().toolCalls;
    ASSERT_EQ(calls.size(), 3);
    EXPECT_EQ(calls.at(0).tool, "read_file");
    EXPECT_EQ(calls.at(0).output, "A");
    EXPECT_EQ(calls.at(0).arguments.value("path").toString(), "/a");  // taken from the result
    EXPECT_EQ(calls.at(1).tool, "list_files");
    EXPECT_EQ(calls.at(1).arguments.value("path").toString(), "/");
    EXPECT_EQ(calls.at(1).error, "timed out");  // the older of the two calls still open
    EXPECT_FALSE(calls.at(1).output);
    EXPECT_EQ(calls.at(2).tool, "read_file");
    EXPECT_EQ(calls.at(2).output, "B");
    for (const MCPToolCall &call : calls) {
        EXPECT_TRUE(call.isCompleted);
        EXPECT_EQ(call.serverLabel, "k");
        EXPECT_TRUE(call.prepareIndex.isEmpty());
    }
}

// An error frame ends the bubble with its message, and the status line keeps it after the
// chat.end that follows.
TEST(ChatViewModelTest, AnErrorFrameStaysVisibleAfterChatEnd)
{
    ProviderPeer peer;
    auto model = modelFor(peer);
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    peer.setFailure(ProviderPeer::Failure::errorFrame);
    model->session().send(QStringLiteral("Hi"));
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->status().text(), "Error: The MCP server went away.");
    const TranscriptMessage &answer = model->session().transcript().last();
    EXPECT_EQ(answer.content, "Request failed:\nThe MCP server went away.");
    EXPECT_TRUE(answer.isComplete);
    ASSERT_TRUE(answer.stats);  // chat.end's figures still came
    EXPECT_EQ(model->session().lastResponseID(), "resp_1");

    // The next answer without an error shows its figures again.
    peer.setFailure(ProviderPeer::Failure::none);
    model->session().send(QStringLiteral("Again"));
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->status().text(), "42 tok/s | 34 tokens | 0.25s to first token");

    // The system prompt's stream keeps its error past chat.end as well.
    peer.setFailure(ProviderPeer::Failure::errorFrame);
    model->connection().setSystemPrompt(QStringLiteral("Be brief."));
    model->session().sendSystemPrompt();
    ASSERT_TRUE(waitUntil([&] { return model->session().transcript().last().isComplete && !model->status().isBusy(); }, 20000));
    EXPECT_EQ(model->status().text(), "System prompt error: The MCP server went away.");
    EXPECT_EQ(model->session().transcript().last().content, "System prompt failed:\nThe MCP server went away.");
}

// A model that goes silent in the middle of its answer: after the stall timeout of the user
// defaults (here 1 s) the text so far stays, a last line says why it ends, and the chat is
// free for the next question.
TEST(ChatViewModelTest, AStalledStreamEndsTheAnswerWithALine)
{
    struct Restore {
        ~Restore() { UserDefaults::standard()->remove(ChatSession::stallTimeoutKey()); }
    } restore;
    auto defaults = UserDefaults::standard();
    defaults->setValue(ChatSession::stallTimeoutKey(), 1);
    ProviderPeer peer;
    auto model = modelFor(peer);
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    peer.setFailure(ProviderPeer::Failure::stall);
    model->session().send(QStringLiteral("Tell me"));
    ASSERT_TRUE(settle(*model));
    const QString line = QStringLiteral("No data from the model for 1 s: the answer was stopped.");
    EXPECT_EQ(model->status().text(), line);
    const TranscriptMessage &answer = model->session().transcript().last();
    EXPECT_EQ(answer.content, QStringLiteral("Hello, \n\n") + line);
    EXPECT_TRUE(answer.isComplete);
    ASSERT_EQ(answer.toolCalls.size(), 1);
    EXPECT_EQ(answer.toolCalls.at(0).output, "hello");

    // Not a positive number: the default limit.
    defaults->setValue(ChatSession::stallTimeoutKey(), "soon");
    EXPECT_EQ(ChatSession::stallTimeout(), ChatSession::DefaultStallTimeout);
    defaults->setValue(ChatSession::stallTimeoutKey(), 0);
    EXPECT_EQ(ChatSession::stallTimeout(), 120);
    defaults->remove(ChatSession::stallTimeoutKey());
    EXPECT_EQ(ChatSession::stallTimeout(), 120);
}

// A stream that fails ends the bubble with the reason; an abort mid-stream ends it at once.
TEST(ChatViewModelTest, StreamFailuresAndAbort)
{
    ProviderPeer peer;
    auto model = modelFor(peer);
    model->connection().connect();
    ASSERT_TRUE(settle(*model));

    peer.setFailure(ProviderPeer::Failure::serverError);
    model->session().send(QStringLiteral("Hi"));
    ASSERT_TRUE(settle(*model));
    EXPECT_TRUE(model->status().text().startsWith("Error: HTTP 500")) << model->status().text().toStdString();
    EXPECT_TRUE(model->session().transcript().last().content.startsWith("Request failed:\nHTTP 500"));
    EXPECT_TRUE(model->session().transcript().last().isComplete);

    peer.setFailure(ProviderPeer::Failure::slow);
    bool done = false;
    model->session().send(QStringLiteral("Hi again"), [&] { done = true; });
    ASSERT_TRUE(waitUntil([&] { return peer.requests().size() >= 1 && requestsTo(peer, "/api/v1/chat") == 2; }));
    model->session().abort();
    EXPECT_TRUE(done);
    EXPECT_FALSE(model->status().isBusy());
    EXPECT_EQ(model->status().text(), "Aborted.");
    EXPECT_EQ(model->session().transcript().last().content, "*(aborted)*");
    EXPECT_TRUE(model->session().transcript().last().isComplete);
    TestSupport::spin(300);  // what the cancelled stream still reads goes nowhere
    EXPECT_EQ(model->session().transcript().last().content, "*(aborted)*");
    EXPECT_EQ(model->status().text(), "Aborted.");
}

// A stream cut before chat.end: what arrived is a complete answer (so it is rendered), and the
// status says it may be incomplete.
TEST(ChatViewModelTest, ACutStreamStillEndsTheAnswer)
{
    ProviderPeer peer;
    auto model = modelFor(peer);
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    peer.setFailure(ProviderPeer::Failure::cutStream);
    model->session().send(QStringLiteral("Hi"));
    ASSERT_TRUE(settle(*model));
    const TranscriptMessage &answer = model->session().transcript().last();
    EXPECT_TRUE(answer.isComplete);
    EXPECT_FALSE(answer.content.isEmpty());
    EXPECT_FALSE(answer.content.startsWith("Request failed"));
    EXPECT_EQ(model->status().text(), "The connection closed before the answer's end: it may be incomplete.");
}

// The blocking way of the cloud providers, and OpenAI's quota failure in its own words.
TEST(ChatViewModelTest, CloudAnswersAndTheQuotaWords)
{
    ProviderPeer peer;
    auto model = modelFor(peer, AIProviderID::openAI);
    model->connection().setToken(QStringLiteral("sk-test"));
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->connection().selectedModel(), "gpt-b");
    model->session().send(QStringLiteral("Hello"));
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->session().transcript().last().content, "Hi from OpenAI");
    EXPECT_EQ(model->status().text(), "3 tokens");
    EXPECT_EQ(model->session().lastResponseID(), "chatcmpl-1");

    peer.setFailure(ProviderPeer::Failure::serverError);
    model->session().send(QStringLiteral("More"));
    ASSERT_TRUE(settle(*model));
    EXPECT_EQ(model->status().text(), "You must PAY for this service. You cannot test this API without Dollares $$ O.o $$");
    EXPECT_TRUE(model->session().transcript().last().content.startsWith("Request failed:\n"));
    EXPECT_EQ(XcodeBridgeService::readResponse(), model->status().text());
    EXPECT_EQ(model->session().lastResponseID(), "chatcmpl-1");  // a failure keeps the thread
}

// The text rules of the local stream.
TEST(ChatViewModelTest, StreamedTextIsFilteredAndReasoningReadsAsOneBlock)
{
    EXPECT_EQ(StreamTextFilter::filter(QString::fromUtf8("Grüße, Ünal – café 😀")), QString::fromUtf8("Grüße, Ünal  caf "));
    EXPECT_EQ(StreamTextFilter::filter(QString::fromUtf8("😀–")), "");
    EXPECT_EQ(StreamTextFilter::cleanReasoning("", "\n\n"), "");
    EXPECT_EQ(StreamTextFilter::cleanReasoning("a\n", "\nb"), "b");
    EXPECT_EQ(StreamTextFilter::cleanReasoning("a", "x\r\n\r\ny"), "x\ny");
    EXPECT_EQ(StreamTextFilter::cleanReasoning("a", "x\n \t\n\ny\rz"), "x\ny\nz");
}

// Saving and reading a chat: what is shown comes back, tool calls in outline, no token; a bad
// file changes nothing.
TEST(ChatViewModelTest, TranscriptsRoundTrip)
{
    ProviderPeer peer;
    auto model = modelFor(peer);
    model->connection().setToken(QStringLiteral("secret-token"));
    model->connection().connect();
    ASSERT_TRUE(settle(*model));
    model->session().send(QStringLiteral("Question"));
    ASSERT_TRUE(settle(*model));
    const std::optional<QByteArray> bytes = model->session().exportChat();
    ASSERT_TRUE(bytes);
    EXPECT_FALSE(bytes->contains("secret-token"));

    auto other = modelFor(peer, AIProviderID::gemini);
    ASSERT_TRUE(other->session().importChat(*bytes));
    EXPECT_EQ(other->connection().selectedProvider(), AIProviderID::lmStudio);
    EXPECT_EQ(other->connection().baseURL(), peer.baseURL());
    EXPECT_EQ(other->session().lastResponseID(), "resp_1");
    ASSERT_EQ(other->session().transcript().size(), 2);
    for (int i = 0; i < 2; ++i) {
        const TranscriptMessage &a = model->session().transcript().at(i);
        const TranscriptMessage &b = other->session().transcript().at(i);
        EXPECT_EQ(a.id, b.id);
        EXPECT_EQ(a.role, b.role);
        EXPECT_EQ(a.content, b.content);
        EXPECT_EQ(a.reasoning, b.reasoning);
        EXPECT_EQ(a.stats, b.stats);
        EXPECT_EQ(a.timestamp.toMSecsSinceEpoch(), b.timestamp.toMSecsSinceEpoch());
    }
    const MCPToolCall &call = other->session().transcript().at(1).toolCalls.at(0);
    EXPECT_EQ(call.tool, "read_file");
    EXPECT_EQ(call.output, "done");
    EXPECT_TRUE(call.arguments.isEmpty());
    EXPECT_TRUE(other->connection().token().isEmpty());
    EXPECT_EQ(other->connection().state(), ChatViewModel::ConnectionState::disconnected);

    // An id that is no UUID gets a new one; an unknown provider keeps the current one.
    QJsonObject root = QJsonDocument::fromJson(*bytes).object();
    QJsonArray messages = root.value("transcript").toArray();
    QJsonObject first = messages.at(0).toObject();
    first.insert("id", "not-a-uuid");
    first.insert("role", "narrator");
    messages.replace(0, first);
    root.insert("transcript", messages);
    root.insert("selectedProviderRaw", "mystery");
    auto third = modelFor(peer, AIProviderID::anthropic);
    ASSERT_TRUE(third->session().importChat(QJsonDocument(root).toJson()));
    EXPECT_EQ(third->connection().selectedProvider(), AIProviderID::anthropic);
    EXPECT_FALSE(third->session().transcript().at(0).id.isNull());
    EXPECT_EQ(third->session().transcript().at(0).role, Role::user);

    root.remove("baseURL");
    QString why;
    EXPECT_FALSE(third->session().importChat(QJsonDocument(root).toJson(), &why));
    EXPECT_TRUE(why.contains("baseURL"));
    EXPECT_EQ(third->session().transcript().size(), 2);  // as it was
    EXPECT_FALSE(third->session().importChat("{not json"));
    EXPECT_TRUE(ChatTranscriptFile::suggestedFileName(QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), QTimeZone::utc()))
                    == "chat-2026-01-02T03-04-05.000Z.json");
}

// The editor bridge: a request of blanks adds nothing, the same text twice is one attachment,
// CR LF stays inside lines while blank lines are emptied.
TEST(ChatViewModelTest, EditorBridgeRequestsBecomeTextAttachments)
{
    ChatViewModel model;
    model.attachments().clear();
    XcodeBridgeService::writeRequest(QStringLiteral("  \n \t "));
    model.attachments().receiveBridgeRequest();
    EXPECT_TRUE(model.attachments().items().isEmpty());
    XcodeBridgeService::writeRequest(QStringLiteral("\nint a;\r\n   \nint b;\r\n"));
    model.attachments().receiveBridgeRequest();
    model.attachments().receiveBridgeRequest();
    ASSERT_EQ(model.attachments().items().size(), 1);
    EXPECT_EQ(model.attachments().items().at(0).text, "int a;\r\n\nint b;");
    EXPECT_EQ(model.attachments().items().at(0).label(), "Editor Text");
    EXPECT_EQ(model.attachments().block(), "int a;\r\n\nint b;\n\n");
}

// How a tool call's bubble words its parameters and results.
TEST(ChatViewModelTest, ToolCallDisplayRules)
{
    MCPToolCall call;
    call.arguments = QJsonObject{{"a", QJsonValue::Null}, {"b", "say \"hi\""}, {"c", 3}, {"d", true},
                                 {"e", QJsonArray{1, "x"}}, {"f", QJsonObject{{"k", 1.5}}}};
    const QList<ToolCallDisplay::KVPair> rows = ToolCallDisplay::parameters(call);
    QStringList values;
    for (const auto &row : rows)
        values.append(row.key + "=" + row.value);
    EXPECT_EQ(values.join(" "), "a=null b=\"say \\\"hi\\\"\" c=3 d=true e=[1,\"x\"] f={\"k\":1.5}");

    const auto blocks = ToolCallDisplay::results(R"([{"type":"text","text":"one"},{"type":"image","text":"two"}])");
    ASSERT_EQ(blocks.size(), 2);
    EXPECT_EQ(blocks.at(1).type, "image");
    const auto raw = ToolCallDisplay::results(R"({"type":"text","text":"an object"})");
    ASSERT_EQ(raw.size(), 1);
    EXPECT_EQ(raw.at(0).text, R"({"type":"text","text":"an object"})");

    EXPECT_EQ(ToolCallDisplay::cut(QString(256, 'a')), QString(256, 'a'));
    EXPECT_EQ(ToolCallDisplay::cut(QString(300, 'a')), QString(256, 'a') + "...(44 more chars)");
}

// The drop menu's insert and attach, and what the pickers insert.
TEST(ChatViewModelTest, DroppedTextFillsThePromptTemplate)
{
    ChatViewModel model;
    model.setPrompt(QStringLiteral("Summarise $% from $$"));
    model.insertDroppedText(QStringLiteral("/a/b.txt"));
    EXPECT_EQ(model.prompt(), "Summarise b.txt from $$");  // only "$%" is taken
    model.insertDroppedText(QStringLiteral("/c/d.txt"));
    EXPECT_EQ(model.prompt(), "Summarise b.txt from /c/d.txt");
    model.setPrompt(QString());
    model.insertDroppedText(QStringLiteral("plain words"));
    EXPECT_EQ(model.prompt(), "plain words");
    model.insertDroppedText(QStringLiteral("/x/y"));
    EXPECT_EQ(model.prompt(), "plain words\n/x/y");

    model.attachments().clear();
    model.attachments().attachDropped(QStringLiteral("  not a path "), std::nullopt);
    EXPECT_TRUE(model.attachments().items().isEmpty());
    model.attachments().attachDropped(QStringLiteral(" /tmp/some file.txt\n"), std::nullopt);
    ASSERT_EQ(model.attachments().items().size(), 1);
    EXPECT_EQ(model.attachments().items().at(0).path, "/tmp/some file.txt");

    model.setPrompt(QStringLiteral("Hi"));
    model.insertPickedText(QString());
    EXPECT_EQ(model.prompt(), "Hi\n");
}
