#include "chat/clients/LMStudioClient.h"

#include "chat/clients/ChatClientError.h"
#include "chat/clients/LMSChatStream.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

Result<QJsonObject> decodeObject(const Result<QByteArray> &body)
{
    if (!body)
        return body.error();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(*body, &error);
    if (error.error != QJsonParseError::NoError)
        return ChatClientError::make(ChatClientError::Kind::decode,
                                     QStringLiteral("The server's reply isn't valid JSON: ") + error.errorString());
    if (!document.isObject())
        return ChatClientError::make(ChatClientError::Kind::decode,
                                     QStringLiteral("The server's reply isn't a JSON object."));
    return document.object();
}

// The record read from a reply, or why it couldn't be.
template<typename T>
Result<T> decoded(const Result<QJsonObject> &reply, std::optional<T> (*fromJson)(const QJsonObject &),
                  const char *record)
{
    if (!reply)
        return reply.error();
    std::optional<T> value = fromJson(*reply);
    if (!value)
        return ChatClientError::make(ChatClientError::Kind::decode,
                                     QStringLiteral("The server's reply couldn't be read as %1.").arg(QLatin1String(record)));
    return std::move(*value);
}

} // namespace

LMStudioClient::LMStudioClient(QString baseURL, QString token) : m_baseURL(std::move(baseURL)), m_token(std::move(token))
{
}

ChatHttpSession::Request LMStudioClient::makeRequest(const QString &path, const QByteArray &method) const
{
    ChatHttpSession::Request request;
    request.url = ChatHttpSession::routeUrl(m_baseURL, path);
    request.method = method;
    request.headers.append(qMakePair(QByteArray("Accept"), QByteArray("application/json")));
    if (!m_token.isEmpty())
        request.headers.append(qMakePair(QByteArray("Authorization"), QByteArray("Bearer " + m_token.toUtf8())));
    // A local model may take minutes to load: the limits are far above the cloud clients'.
    request.connectTimeoutSeconds = 60;
    request.stallTimeoutSeconds = 666;
    request.totalTimeoutSeconds = 2666;
    return request;
}

Result<QByteArray> LMStudioClient::perform(const ChatHttpSession::Request &request) const
{
    const ChatHttpSession::Reply reply = ChatHttpSession::perform(request);
    if (!reply.transportError.isEmpty())
        return ChatClientError::make(ChatClientError::Kind::transport, reply.transportError);
    if (reply.status < 200 || reply.status > 299) {
        const auto body = ChatHttpSession::utf8(reply.body);
        return ChatClientError::httpFailure(reply.status, body ? LMSChatStream::httpErrorText(reply.status, *body)
                                                               : QStringLiteral("HTTP %1").arg(reply.status));
    }
    return reply.body;
}

Result<QByteArray> LMStudioClient::post(const QString &path, const QJsonObject &body) const
{
    ChatHttpSession::Request request = makeRequest(path, "POST");
    request.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact); // keys come out sorted
    return perform(request);
}

Result<QList<LMSModel>> LMStudioClient::listModels() const
{
    const Result<QJsonObject> reply = decodeObject(perform(makeRequest(QStringLiteral("/api/v1/models"), "GET")));
    if (!reply)
        return reply.error();
    if (!reply->value("models").isArray())
        return ChatClientError::make(ChatClientError::Kind::decode, QStringLiteral("The server's reply has no model list."));
    QList<LMSModel> models;
    for (const QJsonValue &value : reply->value("models").toArray()) {
        Result<LMSModel> model = decoded<LMSModel>(value.toObject(), &LMSModel::fromJson, "a model");
        if (!model)
            return model.error();
        models.append(std::move(*model));
    }
    return models;
}

Result<LMSLoadResponse> LMStudioClient::load(const QString &model, const std::optional<LoadConfig> &config) const
{
    QJsonObject body{{"model", model}};
    if (config) {
        if (config->contextLength)
            body.insert("context_length", *config->contextLength);
        if (config->evalBatchSize)
            body.insert("eval_batch_size", *config->evalBatchSize);
        if (config->flashAttention)
            body.insert("flash_attention", *config->flashAttention);
        if (config->numExperts)
            body.insert("num_experts", *config->numExperts);
        if (config->offloadKvCacheToGpu)
            body.insert("offload_kv_cache_to_gpu", *config->offloadKvCacheToGpu);
        if (config->echoLoadConfig)
            body.insert("echo_load_config", *config->echoLoadConfig);
    }
    return decoded<LMSLoadResponse>(decodeObject(post(QStringLiteral("/api/v1/models/load"), body)),
                                    &LMSLoadResponse::fromJson, "a load response");
}

Result<void> LMStudioClient::unload(const QString &instanceId) const
{
    const Result<QByteArray> reply = post(QStringLiteral("/api/v1/models/unload"), QJsonObject{{"instance_id", instanceId}});
    if (!reply)
        return reply.error();
    return {};
}

Result<LMSDownloadStatus> LMStudioClient::download(const QString &model, const std::optional<QString> &quantization) const
{
    QJsonObject body{{"model", model}};
    if (quantization)
        body.insert("quantization", *quantization);
    return decoded<LMSDownloadStatus>(decodeObject(post(QStringLiteral("/api/v1/models/download"), body)),
                                      &LMSDownloadStatus::fromJson, "a download status");
}

Result<LMSDownloadStatus> LMStudioClient::downloadStatus(const QString &jobId) const
{
    // The job id goes into the path as it stands.
    return decoded<LMSDownloadStatus>(
        decodeObject(perform(makeRequest(QStringLiteral("/api/v1/models/download/status/") + jobId, "GET"))),
        &LMSDownloadStatus::fromJson, "a download status");
}

Result<LMSChatResponse> LMStudioClient::chat(const LMSChatRequest &request) const
{
    LMSChatRequest blocking = request;
    blocking.stream = false;
    return decoded<LMSChatResponse>(decodeObject(post(QStringLiteral("/api/v1/chat"), blocking.toJson())),
                                    &LMSChatResponse::fromJson, "a chat response");
}
