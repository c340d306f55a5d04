// LM Studio's routes against a local peer that plays the server.
#include "chat/clients/LMStudioClient.h"
#include "tests/http/TestHttpServer.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QByteArray kModels = R"({"models":[
  {"type":"llm","publisher":"qwen","key":"qwen2.5-7b","display_name":"Qwen 2.5 7B","architecture":"qwen2",
   "quantization":{"name":"Q4_K_M","bits_per_weight":4.5},"size_bytes":4683073536,"params_string":"7B",
   "loaded_instances":[{"id":"qwen2.5-7b","config":{"context_length":4096,"flash_attention":true}}],
   "max_context_length":32768,"format":"gguf","capabilities":{"vision":false,"trained_for_tool_use":true}},
  {"type":"embedding","publisher":"nomic","key":"nomic-embed","display_name":"Nomic Embed","size_bytes":84000000,
   "loaded_instances":[],"max_context_length":2048}]})";

// Answers each route as LM Studio does, and a download status by the job in its path.
TestHttpServer::Response serve(const TestHttpServer::Request &request)
{
    TestHttpServer::Response response;
    if (request.target == "/api/v1/models") {
        response.body = kModels;
    } else if (request.target == "/api/v1/models/load") {
        response.body = R"({"type":"llm","instance_id":"qwen2.5-7b","load_time_seconds":3.5,"status":"loaded",
                            "load_config":{"context_length":8192}})";
    } else if (request.target == "/api/v1/models/unload") {
        response.body = "unloaded";  // not JSON: the reply is not read
    } else if (request.target == "/api/v1/models/download") {
        response.body = R"({"job_id":"job-1","status":"downloading","total_size_bytes":100,"downloaded_bytes":0})";
    } else if (request.target == "/api/v1/models/download/status/job-1") {
        response.body = R"({"job_id":"job-1","status":"completed","bytes_per_second":12.5})";
    } else if (request.target.startsWith("/api/v1/models/download/status/")) {
        response.body = R"({"status":"exploded"})";
    } else {
        response.status = 500;
        response.body = "no such route";
    }
    return response;
}

QJsonObject bodyOf(const TestHttpServer::Request &request)
{
    return QJsonDocument::fromJson(request.body).object();
}

}  // namespace

TEST(LMStudioClientTest, EachRouteSendsWhatTheServerExpectsAndReadsItsReply)
{
    TestHttpServer peer(&serve);
    ASSERT_TRUE(peer.isListening());
    const LMStudioClient client(peer.url(QStringLiteral("/")), QStringLiteral("t0k"));
    QString error;

    const std::optional<QList<LMSModel>> models = client.listModels(&error);
    ASSERT_TRUE(models) << error.toStdString();
    ASSERT_EQ(models->size(), 2);
    const LMSModel &qwen = models->at(0);
    EXPECT_EQ(qwen.key, "qwen2.5-7b");
    EXPECT_EQ(qwen.quantizationName, std::optional<QString>("Q4_K_M"));
    EXPECT_EQ(qwen.sizeBytes, 4683073536LL);
    ASSERT_EQ(qwen.loadedInstances.size(), 1);
    EXPECT_EQ(qwen.loadedInstances.first().config.flashAttention, std::optional<bool>(true));
    EXPECT_EQ(qwen.trainedForToolUse, std::optional<bool>(true));
    EXPECT_EQ(models->at(1).type, "embedding");
    EXPECT_EQ(models->at(1).vision, std::nullopt);
    EXPECT_EQ(peer.requests().last().header("Authorization"), "Bearer t0k");

    // Load with nothing set but the echo: only the model and the echo go out.
    const std::optional<LMSLoadResponse> loaded = client.load(QStringLiteral("qwen2.5-7b"), LMSInstanceConfig{}, true, &error);
    ASSERT_TRUE(loaded) << error.toStdString();
    EXPECT_EQ(loaded->instanceId, "qwen2.5-7b");
    EXPECT_EQ(loaded->loadConfig->contextLength, std::optional<qint64>(8192));
    EXPECT_EQ(bodyOf(peer.requests().last()), (QJsonObject{{"model", "qwen2.5-7b"}, {"echo_load_config", true}}));
    ASSERT_TRUE(client.load(QStringLiteral("m"), std::nullopt, true, &error));
    EXPECT_EQ(bodyOf(peer.requests().last()), (QJsonObject{{"model", "m"}}));  // no config: the model alone

    EXPECT_TRUE(client.unload(QStringLiteral("qwen2.5-7b"), &error)) << error.toStdString();
    EXPECT_EQ(bodyOf(peer.requests().last()), (QJsonObject{{"instance_id", "qwen2.5-7b"}}));

    const std::optional<LMSDownloadStatus> started = client.download(QStringLiteral("qwen"), QStringLiteral("Q4_K_M"), &error);
    ASSERT_TRUE(started);
    EXPECT_EQ(bodyOf(peer.requests().last()), (QJsonObject{{"model", "qwen"}, {"quantization", "Q4_K_M"}}));
    const std::optional<LMSDownloadStatus> done = client.downloadStatus(*started->jobId, &error);
    ASSERT_TRUE(done) << error.toStdString();
    EXPECT_EQ(done->status, LMSDownloadStatus::State::completed);
    EXPECT_EQ(done->bytesPerSecond, std::optional<double>(12.5));
}

TEST(LMStudioClientTest, FailuresSayWhatWentWrong)
{
    TestHttpServer peer(&serve);
    QString error;
    // An unknown download state fails the reading.
    EXPECT_FALSE(LMStudioClient(peer.url(), QString()).downloadStatus(QStringLiteral("other"), &error));
    EXPECT_EQ(error, "The download status could not be read.");
    // A status outside 2xx: its text and the body.
    EXPECT_FALSE(LMStudioClient(peer.url(QStringLiteral("/elsewhere")), QString()).listModels(&error));
    EXPECT_EQ(error, "HTTP 500: Request failed.\nno such route");
    EXPECT_TRUE(peer.requests().last().header("Authorization").isNull());
    // Nobody listening: the transfer's own reason.
    const QString closed = QStringLiteral("http://127.0.0.1:%1").arg(TestSupport::freePort());
    EXPECT_FALSE(LMStudioClient(closed, QString()).listModels(&error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(error.startsWith("HTTP "));
}
