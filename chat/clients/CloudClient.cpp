#include "chat/clients/CloudClient.h"

#include "chat/clients/ChatClientError.h"

#include <QJsonDocument>

CloudClient::CloudClient(Flavor flavor, QString baseURL, QString apiKey, QString apiVersion)
    : m_flavor(flavor), m_baseURL(std::move(baseURL)), m_apiKey(std::move(apiKey)), m_apiVersion(std::move(apiVersion))
{
}

ChatHttpSession::Request CloudClient::makeRequest(const QString &path, const QByteArray &method) const
{
    ChatHttpSession::Request request;
    request.url = ChatHttpSession::routeUrl(m_baseURL, path);
    request.method = method;
    request.headers.append(qMakePair(QByteArray("Accept"), QByteArray("application/json")));
    switch (m_flavor) {
    case Flavor::openAI:
        // Sent even with an empty key: the provider's own refusal is the clearer message.
        request.headers.append(qMakePair(QByteArray("Authorization"), QByteArray("Bearer " + m_apiKey.toUtf8())));
        break;
    case Flavor::anthropic:
        request.headers.append(qMakePair(QByteArray("x-api-key"), QByteArray(m_apiKey.toUtf8())));
        request.headers.append(qMakePair(QByteArray("anthropic-version"), QByteArray(m_apiVersion.toUtf8())));
        break;
    case Flavor::gemini:
        request.headers.append(qMakePair(QByteArray("x-goog-api-key"), QByteArray(m_apiKey.toUtf8())));
        break;
    }
    if (method == "POST")
        request.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    // 60 s without a byte ends a request, as does 1600 s in all: an answer that is not streamed
    // may take minutes to write on a slow machine.
    request.connectTimeoutSeconds = 60;
    request.stallTimeoutSeconds = 60;
    request.totalTimeoutSeconds = 1600;
    return request;
}

Result<QByteArray> CloudClient::perform(const ChatHttpSession::Request &request)
{
    const ChatHttpSession::Reply reply = ChatHttpSession::perform(request);
    if (!reply.transportError.isEmpty())
        return ChatClientError::make(ChatClientError::Kind::transport, reply.transportError);
    if (reply.status < 200 || reply.status > 299)
        return ChatClientError::httpFailure(
            reply.status, ChatHttpSession::utf8(reply.body).value_or(QStringLiteral("HTTP %1").arg(reply.status)));
    return reply.body;
}

Result<QByteArray> CloudClient::listModels(const QString &query) const
{
    QString path = m_flavor == Flavor::gemini ? QStringLiteral("/models") : QStringLiteral("/v1/models");
    if (!query.isEmpty())
        path += QLatin1Char('?') + query;
    return perform(makeRequest(path, "GET"));
}

Result<QByteArray> CloudClient::post(const QString &path, const QJsonObject &body) const
{
    ChatHttpSession::Request request = makeRequest(path, "POST");
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact);
    return perform(request);
}

QString CloudClient::chatPath(const QString &model) const
{
    switch (m_flavor) {
    case Flavor::openAI: return QStringLiteral("/v1/chat/completions");
    case Flavor::anthropic: return QStringLiteral("/v1/messages");
    case Flavor::gemini: return QStringLiteral("/models/") + model + QStringLiteral(":generateContent");
    }
    return {};
}
