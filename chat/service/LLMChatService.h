#pragma once

#include "base/Result.h"
#include "chat/clients/LMSModel.h"
#include "chat/service/AIChatResponse.h"
#include "chat/service/AIModel.h"

#include <QJsonArray>
#include <QList>
#include <QString>
#include <optional>

// The stateless facade the chat talks to: it picks the client for a provider, builds it for
// this one call, and maps the wire records to the provider-neutral ones. Every call blocks on
// the network, so the chat runs it off the main thread; calls on several threads share nothing.
// Failures come back as ChatClientError values: an unparsable base URL is Kind::badURL, client
// and decode errors pass through as the clients word them.
class LLMChatService {
public:
    // In the reply's order. For Hugging Face alone any failure yields its fixed list.
    static Result<QList<AIModel>> listModels(AIProviderID provider, const QString &baseURL, const QString &token);
    static Result<QList<LMSModel>> listLMStudioModels(const QString &baseURL, const QString &token);

    struct ChatRequest {
        QString message;
        QString model;
        std::optional<QString> previousResponseID;
        std::optional<QString> systemPrompt;
        std::optional<double> temperature;
        std::optional<qint64> maxOutputTokens;
        bool store = false;
        QJsonArray integrations; // LM Studio only; the cloud providers ignore them
    };

    // One blocking question and answer. LM Studio goes without streaming here.
    static Result<AIChatResponse> chat(AIProviderID provider, const QString &baseURL, const QString &token,
                                       const ChatRequest &request);
};
