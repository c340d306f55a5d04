#pragma once

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
// failure (nothing returned, *error says what), never an empty answer.
class LLMChatMapping {
public:
    // OpenAI and the Hugging Face router: a "system" message first, only when the prompt has
    // more than blanks; the untrimmed prompt is what goes out.
    static QJsonObject openAIRequest(const QString &model, const QString &message,
                                     const std::optional<QString> &systemPrompt,
                                     std::optional<double> temperature, std::optional<qint64> maxTokens);
    // Anthropic takes no temperature; the output limit is 1024 when none is given.
    static QJsonObject anthropicRequest(const QString &model, const QString &message,
                                        const std::optional<QString> &systemPrompt, std::optional<qint64> maxTokens);
    // Gemini has no system field: a non-blank prompt is folded into the text.
    static QString geminiPrompt(const QString &message, const std::optional<QString> &systemPrompt);
    static QJsonObject geminiRequest(const QString &prompt);

    static std::optional<AIChatResponse> decodeOpenAIReply(const QByteArray &body, QString *error = nullptr);
    static std::optional<AIChatResponse> decodeAnthropicReply(const QByteArray &body, QString *error = nullptr);
    static std::optional<AIChatResponse> decodeGeminiReply(const QByteArray &body, QString *error = nullptr);
    // The message items' text joined; the figures copied one to one.
    static AIChatResponse fromLMStudio(const LMSChatResponse &reply);

    // A cloud provider's model list in the order of the reply. Not for LM Studio.
    static std::optional<QList<AIModel>> decodeModels(AIProviderID provider, const QByteArray &body,
                                                      QString *error = nullptr);
    // What the Hugging Face router's list falls back to when it can't be read.
    static QList<AIModel> huggingFaceFallbackModels();
};
