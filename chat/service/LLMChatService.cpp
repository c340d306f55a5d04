#include "chat/service/LLMChatService.h"

#include "chat/clients/AnthropicClient.h"
#include "chat/clients/ChatClientError.h"
#include "chat/clients/GeminiClient.h"
#include "chat/clients/LMStudioClient.h"
#include "chat/clients/OpenAIClient.h"
#include "chat/service/LLMChatMapping.h"

namespace {

void requireValidURL(const QString &baseURL)
{
    if (!ChatHttpSession::isValidBaseURL(baseURL))
        throw ChatClientError::badURL();
}

template<typename T>
T orDecodeError(std::optional<T> value, const QString &error)
{
    if (!value)
        throw ChatClientError(ChatClientError::Kind::decode, error);
    return std::move(*value);
}

QList<AIModel> cloudModels(AIProviderID provider, const QString &baseURL, const QString &token)
{
    requireValidURL(baseURL);
    QByteArray body;
    switch (provider) {
    case AIProviderID::anthropic: body = AnthropicClient(baseURL, token).listModels(); break;
    case AIProviderID::gemini: body = GeminiClient(baseURL, token).listModels(); break;
    default: body = OpenAIClient(baseURL, token).listModels(); break;
    }
    QString error;
    auto models = LLMChatMapping::decodeModels(provider, body, &error);
    return orDecodeError(std::move(models), error);
}

} // namespace

QList<AIModel> LLMChatService::listModels(AIProviderID provider, const QString &baseURL, const QString &token)
{
    if (provider == AIProviderID::lmStudio) {
        QList<AIModel> models;
        for (const LMSModel &model : listLMStudioModels(baseURL, token))
            models.append(AIModel{model.key, model.displayName, provider, !model.loadedInstances.isEmpty(), {}, {}});
        return models;
    }
    if (provider == AIProviderID::huggingFace) {
        // The router's list is often closed to a key; the chat still works with these.
        try {
            return cloudModels(provider, baseURL, token);
        } catch (const ChatClientError &) {
            return LLMChatMapping::huggingFaceFallbackModels();
        }
    }
    return cloudModels(provider, baseURL, token);
}

QList<LMSModel> LLMChatService::listLMStudioModels(const QString &baseURL, const QString &token)
{
    requireValidURL(baseURL);
    return LMStudioClient(baseURL, token).listModels();
}

AIChatResponse LLMChatService::chat(AIProviderID provider, const QString &baseURL, const QString &token,
                                    const ChatRequest &request)
{
    requireValidURL(baseURL);
    QString error;
    switch (provider) {
    case AIProviderID::lmStudio: {
        LMSChatRequest lms;
        lms.model = request.model;
        lms.input = request.message;
        lms.stream = false;
        lms.store = request.store;
        lms.systemPrompt = request.systemPrompt;
        lms.temperature = request.temperature;
        lms.maxOutputTokens = request.maxOutputTokens;
        lms.previousResponseId = request.previousResponseID;
        lms.integrations = request.integrations;
        return LLMChatMapping::fromLMStudio(LMStudioClient(baseURL, token).chat(lms));
    }
    case AIProviderID::openAI:
    case AIProviderID::huggingFace: {
        const OpenAIClient client(baseURL, token);
        const QByteArray body = client.post(client.chatPath(request.model),
                                            LLMChatMapping::openAIRequest(request.model, request.message,
                                                                          request.systemPrompt, request.temperature,
                                                                          request.maxOutputTokens));
        return orDecodeError(LLMChatMapping::decodeOpenAIReply(body, &error), error);
    }
    case AIProviderID::anthropic: {
        const AnthropicClient client(baseURL, token);
        const QByteArray body = client.post(
            client.chatPath(request.model),
            LLMChatMapping::anthropicRequest(request.model, request.message, request.systemPrompt, request.maxOutputTokens));
        return orDecodeError(LLMChatMapping::decodeAnthropicReply(body, &error), error);
    }
    case AIProviderID::gemini: {
        const QString prompt = LLMChatMapping::geminiPrompt(request.message, request.systemPrompt);
        const GeminiClient client(baseURL, token);
        const QByteArray body = client.post(client.chatPath(request.model), LLMChatMapping::geminiRequest(prompt));
        return orDecodeError(LLMChatMapping::decodeGeminiReply(body, &error), error);
    }
    }
    throw ChatClientError(ChatClientError::Kind::badURL, QStringLiteral("Unknown provider."));
}
