#pragma once

#include "base/Result.h"
#include "chat/clients/LMSChatResponse.h"
#include "chat/service/AIChatResponse.h"
#include "chat/service/AIModel.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

// The request bodies of the cloud providers' blocking chat and the decoding of their replies into
// the provider-neutral records. Pure functions; any thread.
//
// The decoders are strict: a missing required key or a value of the wrong type is a decode
// failure (a ChatClientError of the kind decode, saying what), never an empty answer.
class LLMChatMapping {
public:
    // OpenAI and the Hugging Face router: a "system" message first, only when the prompt has
    // more than blanks; the untrimmed prompt is what goes out.
    // A reasoning model of OpenAI's own API takes the limit as "max_completion_tokens" and no
    // temperature (it refuses any but the default).
    static QJsonObject openAIRequest(const QString &model, const QString &message,
                                     const std::optional<QString> &systemPrompt,
                                     std::optional<double> temperature, std::optional<qint64> maxTokens,
                                     bool reasoningModel = false);
    // OpenAI's reasoning families by their published names: o1, o3, o4 and gpt-5, with their
    // dated and sized variants ("o3-mini", "gpt-5-2025-08-07").
    static bool isOpenAIReasoningModel(const QString &model);
    // Anthropic takes no temperature; the output limit is 1024 when none is given.
    static QJsonObject anthropicRequest(const QString &model, const QString &message,
                                        const std::optional<QString> &systemPrompt, std::optional<qint64> maxTokens);
    // Gemini has no system field: a non-blank prompt is folded into the text.
    static QString geminiPrompt(const QString &message, const std::optional<QString> &systemPrompt);
    static QJsonObject geminiRequest(const QString &prompt);

    static Result<AIChatResponse> decodeOpenAIReply(const QByteArray &body);
    static Result<AIChatResponse> decodeAnthropicReply(const QByteArray &body);
    static Result<AIChatResponse> decodeGeminiReply(const QByteArray &body);
    // The message items' text joined; the figures copied one to one.
    static AIChatResponse fromLMStudio(const LMSChatResponse &reply);

    // A cloud provider's model list in the order of the reply. Not for LM Studio. Gemini's
    // models that can't generateContent (embedding models, say) are left out.
    static Result<QList<AIModel>> decodeModels(AIProviderID provider, const QByteArray &body);
    // The query of the next page of a model list ("after_id=…" for Anthropic, "pageToken=…"
    // for Gemini), or nothing on the last page and for the providers that don't page.
    static std::optional<QString> nextModelPage(AIProviderID provider, const QByteArray &body);
    // What the Hugging Face router's list falls back to when it can't be read.
    static QList<AIModel> huggingFaceFallbackModels();
};
