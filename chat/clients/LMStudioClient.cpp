#include "chat/clients/LMStudioClient.h"

#include "chat/clients/LMSChatStream.h"
#include "tools/http/HttpClient.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

void setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
}

}  // namespace

LMStudioClient::LMStudioClient(QString baseURL, QString token) : m_baseURL(std::move(baseURL)), m_token(std::move(token)) {}

std::optional<QJsonObject> LMStudioClient::call(const QString &method, const QString &path, const QJsonObject *body,
                                                QString *error) const
{
    QJsonObject headers{{"Accept", "application/json"}};
    if (body)
        headers.insert(QStringLiteral("Content-Type"), QStringLiteral("application/json"));
    if (!m_token.isEmpty())
        headers.insert(QStringLiteral("Authorization"), QStringLiteral("Bearer ") + m_token);
    // A local model may take minutes to load.
    HttpClient http(666.0);
    AppError transferError;
    const HttpClientResult result =
        http.request(method, LMSChatStream::routeUrl(m_baseURL, path),
                     body ? QString::fromUtf8(QJsonDocument(*body).toJson(QJsonDocument::Compact)) : QString(), QString(),
                     QString::fromUtf8(QJsonDocument(headers).toJson(QJsonDocument::Compact)), &transferError);
    if (result.statusCode == 0) {
        setError(error, result.error ? result.error->description : transferError.description);
        return std::nullopt;
    }
    if (result.statusCode < 200 || result.statusCode > 299) {
        setError(error, LMSChatStream::httpErrorText(result.statusCode, result.body));
        return std::nullopt;
    }
    QJsonParseError parse;
    const QJsonDocument document = QJsonDocument::fromJson(result.body.toUtf8(), &parse);
    if (!document.isObject()) {
        // unload does not read its reply; the others need an object.
        if (method == QLatin1String("POST") && path.endsWith(QLatin1String("/unload")))
            return QJsonObject();
        setError(error, parse.error != QJsonParseError::NoError ? parse.errorString()
                                                                : QStringLiteral("The reply is not a JSON object."));
        return std::nullopt;
    }
    return document.object();
}

std::optional<QList<LMSModel>> LMStudioClient::listModels(QString *error) const
{
    const std::optional<QJsonObject> reply = call(QStringLiteral("GET"), QStringLiteral("/api/v1/models"), nullptr, error);
    if (!reply)
        return std::nullopt;
    if (!reply->value(QStringLiteral("models")).isArray()) {
        setError(error, QStringLiteral("The reply has no list of models."));
        return std::nullopt;
    }
    QList<LMSModel> models;
    for (const QJsonValue &value : reply->value(QStringLiteral("models")).toArray()) {
        const std::optional<LMSModel> model = LMSModel::fromJson(value.toObject());
        if (!model) {
            setError(error, QStringLiteral("A model of the list could not be read: ") +
                                QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact)));
            return std::nullopt;
        }
        models.append(*model);
    }
    return models;
}

std::optional<LMSLoadResponse> LMStudioClient::load(const QString &model, const std::optional<LMSInstanceConfig> &config,
                                                    bool echoLoadConfig, QString *error) const
{
    QJsonObject body{{"model", model}};
    if (config) {
        config->writeTo(body);
        if (echoLoadConfig)
            body.insert(QStringLiteral("echo_load_config"), true);
    }
    const std::optional<QJsonObject> reply = call(QStringLiteral("POST"), QStringLiteral("/api/v1/models/load"), &body, error);
    if (!reply)
        return std::nullopt;
    std::optional<LMSLoadResponse> response = LMSLoadResponse::fromJson(*reply);
    if (!response)
        setError(error, QStringLiteral("The load reply could not be read."));
    return response;
}

bool LMStudioClient::unload(const QString &instanceId, QString *error) const
{
    const QJsonObject body{{"instance_id", instanceId}};
    return call(QStringLiteral("POST"), QStringLiteral("/api/v1/models/unload"), &body, error).has_value();
}

std::optional<LMSDownloadStatus> LMStudioClient::download(const QString &model, const std::optional<QString> &quantization,
                                                          QString *error) const
{
    QJsonObject body{{"model", model}};
    if (quantization)
        body.insert(QStringLiteral("quantization"), *quantization);
    const std::optional<QJsonObject> reply = call(QStringLiteral("POST"), QStringLiteral("/api/v1/models/download"), &body, error);
    if (!reply)
        return std::nullopt;
    std::optional<LMSDownloadStatus> status = LMSDownloadStatus::fromJson(*reply);
    if (!status)
        setError(error, QStringLiteral("The download status could not be read."));
    return status;
}

std::optional<LMSDownloadStatus> LMStudioClient::downloadStatus(const QString &jobId, QString *error) const
{
    // The job id goes into the path as it stands.
    const std::optional<QJsonObject> reply =
        call(QStringLiteral("GET"), QStringLiteral("/api/v1/models/download/status/") + jobId, nullptr, error);
    if (!reply)
        return std::nullopt;
    std::optional<LMSDownloadStatus> status = LMSDownloadStatus::fromJson(*reply);
    if (!status)
        setError(error, QStringLiteral("The download status could not be read."));
    return status;
}
