#include "chat/service/LLMChatService.h"

#include "chat/clients/AnthropicClient.h"
#include "chat/clients/ChatClientError.h"
#include "chat/clients/GeminiClient.h"
#include "chat/clients/LMStudioClient.h"
#include "chat/clients/OpenAIClient.h"
#include "chat/service/LLMChatMapping.h"

#include <QSet>

namespace {

// The record a decoder made of a reply, or the reply's own failure, or the decoder's.
template<typename T, typename Decode>
Result<T> decodedReply(const Result<QByteArray> &body, Decode decode)
{
    if (!body)
        return body.error();
    return decode(*body);
}

Result<QList<AIModel>> cloudModels(AIProviderID provider, const QString &baseURL, const QString &token)
{
    if (!ChatHttpSession::isValidBaseURL(baseURL))
        return ChatClientError::badURL();
    // Anthropic and Gemini hand the list out in pages; each page names the next. A server that
    // names the same page again, or pages on without end, is not followed further.
    constexpr int kMostPages = 50;
    QList<AIModel> models;
    QString query;
    QSet<QString> asked;
    for (int page = 0; page < kMostPages; ++page) {
        asked.insert(query);
        Result<QByteArray> body = [&]() -> Result<QByteArray> {
            switch (provider) {
            case AIProviderID::anthropic: return AnthropicClient(baseURL, token).listModels(query);
            case AIProviderID::gemini: return GeminiClient(baseURL, token).listModels(query);
            default: return OpenAIClient(baseURL, token).listModels(query);
            }
        }();
        Result<QList<AIModel>> decoded =
            decodedReply<QList<AIModel>>(body, [provider](const QByteArray &reply) {
                return LLMChatMapping::decodeModels(provider, reply);
            });
        if (!decoded)
            return decoded.error();
        models += *decoded;
        const std::optional<QString> next = LLMChatMapping::nextModelPage(provider, *body);
        if (!next || asked.contains(*next))
            break;
        query = *next;
    }
    return models;
}

} // namespace

Result<QList<AIModel>> LLMChatService::listModels(AIProviderID provider, const QString &baseURL, const QString &token)
{
    if (provider == AIProviderID::lmStudio) {
        const Result<QList<LMSModel>> listed = listLMStudioModels(baseURL, token);
        if (!listed)
            return listed.error();
        QList<AIModel> models;
        for (const LMSModel &model : *listed)
            models.append(AIModel{model.key, model.displayName, provider, !model.loadedInstances.isEmpty(), {}, {}});
        return models;
    }
    if (provider == AIProviderID::huggingFace) {
        // The router's list is often closed to a key; the chat still works with these.
        Result<QList<AIModel>> models = cloudModels(provider, baseURL, token);
        return models ? std::move(models) : Result<QList<AIModel>>(LLMChatMapping::huggingFaceFallbackModels());
    }
    return cloudModels(provider, baseURL, token);
}

Result<QList<LMSModel>> LLMChatService::listLMStudioModels(const QString &baseURL, const QString &token)
{
    if (!ChatHttpSession::isValidBaseURL(baseURL))
        return ChatClientError::badURL();
    return LMStudioClient(baseURL, token).listModels();
}

Result<AIChatResponse> LLMChatService::chat(AIProviderID provider, const QString &baseURL, const QString &token,
                                            const ChatRequest &request)
{
    if (!ChatHttpSession::isValidBaseURL(baseURL))
        return ChatClientError::badURL();
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
        const Result<LMSChatResponse> reply = LMStudioClient(baseURL, token).chat(lms);
        if (!reply)
            return reply.error();
        return LLMChatMapping::fromLMStudio(*reply);
    }
    case AIProviderID::openAI:
    case AIProviderID::huggingFace: {
        const OpenAIClient client(baseURL, token);
        return decodedReply<AIChatResponse>(
            client.post(client.chatPath(request.model),
                        LLMChatMapping::openAIRequest(request.model, request.message, request.systemPrompt,
                                                      request.temperature, request.maxOutputTokens,
                                                      provider == AIProviderID::openAI &&
                                                          LLMChatMapping::isOpenAIReasoningModel(request.model))),
            &LLMChatMapping::decodeOpenAIReply);
    }
    case AIProviderID::anthropic: {
        const AnthropicClient client(baseURL, token);
        return decodedReply<AIChatResponse>(
            client.post(client.chatPath(request.model),
                        LLMChatMapping::anthropicRequest(request.model, request.message, request.systemPrompt,
                                                         request.maxOutputTokens)),
            &LLMChatMapping::decodeAnthropicReply);
    }
    case AIProviderID::gemini: {
        const QString prompt = LLMChatMapping::geminiPrompt(request.message, request.systemPrompt);
        const GeminiClient client(baseURL, token);
        return decodedReply<AIChatResponse>(client.post(client.chatPath(request.model), LLMChatMapping::geminiRequest(prompt)),
                                            &LLMChatMapping::decodeGeminiReply);
    }
    }
    return ChatClientError::make(ChatClientError::Kind::badURL, QStringLiteral("Unknown provider."));
}
