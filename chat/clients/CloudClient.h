#pragma once

#include "base/Result.h"
#include "chat/clients/ChatHttpSession.h"

#include <QJsonObject>

// An authorised, blocking request and reply with one hosted provider: OpenAI (and the Hugging
// Face router), Anthropic or Gemini. A value; the calls block, so run them off the main thread
// or accept the wait. Failures come back as ChatClientError values.
class CloudClient {
public:
    enum class Flavor { openAI, anthropic, gemini };

    CloudClient(Flavor flavor, QString baseURL, QString apiKey, QString apiVersion = QStringLiteral("2023-06-01"));

    // The request for a path with "Accept" and the provider's authorisation headers; a POST also
    // carries "Content-Type: application/json".
    ChatHttpSession::Request makeRequest(const QString &path, const QByteArray &method) const;
    // The body of a reply in 200 to 299; else an http error whose text is the body (or
    // "HTTP " and the status when the body isn't UTF-8).
    static Result<QByteArray> perform(const ChatHttpSession::Request &request);

    // One page of the model list; query ("after_id=…") picks a later one.
    Result<QByteArray> listModels(const QString &query = {}) const;
    Result<QByteArray> post(const QString &path, const QJsonObject &body) const;
    // The provider's chat path for a model.
    QString chatPath(const QString &model) const;

private:
    Flavor m_flavor;
    QString m_baseURL;
    QString m_apiKey;
    QString m_apiVersion;
};
