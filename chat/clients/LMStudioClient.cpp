#include "chat/clients/LMStudioClient.h"

#include "chat/clients/ChatClientError.h"
#include "chat/clients/LMSChatStream.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

QJsonObject decodeObject(const QByteArray &body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        throw ChatClientError(ChatClientError::Kind::decode,
                              QStringLiteral("The server's reply isn't valid JSON: ") + error.errorString());
    if (!document.isObject())
        throw ChatClientError(ChatClientError::Kind::decode, QStringLiteral("The server's reply isn't a JSON object."));
    return document.object();
}

template<typename T>
T decoded(const std::optional<T> &value, const char *record)
{
    if (!value)
        throw ChatClientError(ChatClientError::Kind::decode,
                              QStringLiteral("The server's reply couldn't be read as %1.").arg(QLatin1String(record)));
    return *value;
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

QByteArray LMStudioClient::perform(const ChatHttpSession::Request &request) const
{
    const ChatHttpSession::Reply reply = ChatHttpSession::perform(request);
    if (!reply.transportError.isEmpty())
        throw ChatClientError(ChatClientError::Kind::transport, reply.transportError, reply.status);
    if (reply.status < 200 || reply.status > 299) {
        const auto body = ChatHttpSession::utf8(reply.body);
        throw ChatClientError(ChatClientError::Kind::http,
                              body ? LMSChatStream::httpErrorText(reply.status, *body)
                                   : QStringLiteral("HTTP %1").arg(reply.status),
                              reply.status);
    }
    return reply.body;
}

QByteArray LMStudioClient::post(const QString &path, const QJsonObject &body) const
{
    ChatHttpSession::Request request = makeRequest(path, "POST");
    request.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact); // keys come out sorted
    return perform(request);
}

QList<LMSModel> LMStudioClient::listModels() const
{
    const QJsonObject reply = decodeObject(perform(makeRequest(QStringLiteral("/api/v1/models"), "GET")));
    if (!reply.value("models").isArray())
        throw ChatClientError(ChatClientError::Kind::decode, QStringLiteral("The server's reply has no model list."));
    QList<LMSModel> models;
    for (const QJsonValue &value : reply.value("models").toArray())
        models.append(decoded(LMSModel::fromJson(value.toObject()), "a model"));
    return models;
}

LMSLoadResponse LMStudioClient::load(const QString &model, const std::optional<LoadConfig> &config) const
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
    return decoded(LMSLoadResponse::fromJson(decodeObject(post(QStringLiteral("/api/v1/models/load"), body))),
                   "a load response");
}

void LMStudioClient::unload(const QString &instanceId) const
{
    post(QStringLiteral("/api/v1/models/unload"), QJsonObject{{"instance_id", instanceId}});
}

LMSDownloadStatus LMStudioClient::download(const QString &model, const std::optional<QString> &quantization) const
{
    QJsonObject body{{"model", model}};
    if (quantization)
        body.insert("quantization", *quantization);
    return decoded(LMSDownloadStatus::fromJson(decodeObject(post(QStringLiteral("/api/v1/models/download"), body))),
                   "a download status");
}

LMSDownloadStatus LMStudioClient::downloadStatus(const QString &jobId) const
{
    // The job id goes into the path as it stands.
    const QJsonObject reply =
        decodeObject(perform(makeRequest(QStringLiteral("/api/v1/models/download/status/") + jobId, "GET")));
    return decoded(LMSDownloadStatus::fromJson(reply), "a download status");
}

LMSChatResponse LMStudioClient::chat(const LMSChatRequest &request) const
{
    LMSChatRequest blocking = request;
    blocking.stream = false;
    return decoded(LMSChatResponse::fromJson(decodeObject(post(QStringLiteral("/api/v1/chat"), blocking.toJson()))),
                   "a chat response");
}
