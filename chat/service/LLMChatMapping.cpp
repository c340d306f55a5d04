#include "chat/service/LLMChatMapping.h"

#include "chat/clients/ChatClientError.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>
#include <QJsonParseError>
#include <QJsonValue>

namespace {

QString trimmedBlanks(const QString &text)
{
    return text.trimmed();
}

bool fail(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

std::optional<QJsonObject> parseObject(const QByteArray &body, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        fail(error, QStringLiteral("The reply isn't valid JSON: ") + parseError.errorString());
        return std::nullopt;
    }
    if (!document.isObject()) {
        fail(error, QStringLiteral("The reply isn't a JSON object."));
        return std::nullopt;
    }
    return document.object();
}

QString missing(const char *key)
{
    return QStringLiteral("The reply has no valid \"%1\".").arg(QLatin1String(key));
}

// An optional integer: absent or null reads as 0; any other non-number fails.
bool optionalCount(const QJsonObject &object, const char *key, qint64 *out, QString *error)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull()) {
        *out = 0;
        return true;
    }
    if (!value.isDouble())
        return fail(error, missing(key));
    *out = value.toInteger();
    return true;
}

// An optional nested object: absent or null is nothing; anything but an object fails.
bool optionalObject(const QJsonObject &object, const char *key, std::optional<QJsonObject> *out, QString *error)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isObject())
        return fail(error, missing(key));
    *out = value.toObject();
    return true;
}

AIChatStats cloudStats(qint64 input, qint64 output)
{
    AIChatStats stats;
    stats.inputTokens = input;
    stats.totalOutputTokens = output;
    return stats;
}

} // namespace

QJsonObject LLMChatMapping::openAIRequest(const QString &model, const QString &message,
                                          const std::optional<QString> &systemPrompt,
                                          std::optional<double> temperature, std::optional<qint64> maxTokens,
                                          bool reasoningModel)
{
    QJsonArray messages;
    if (systemPrompt && !trimmedBlanks(*systemPrompt).isEmpty())
        messages.append(QJsonObject{{"role", "system"}, {"content", *systemPrompt}});
    messages.append(QJsonObject{{"role", "user"}, {"content", message}});
    QJsonObject body{{"model", model}, {"messages", messages}};
    if (temperature && !reasoningModel)
        body.insert("temperature", *temperature);
    if (maxTokens)
        body.insert(reasoningModel ? "max_completion_tokens" : "max_tokens", *maxTokens);
    return body;
}

bool LLMChatMapping::isOpenAIReasoningModel(const QString &model)
{
    const QString id = model.trimmed().toLower();
    for (const char *family : {"o1", "o3", "o4", "gpt-5"}) {
        const QString name = QString::fromLatin1(family);
        if (id == name || id.startsWith(name + u'-'))
            return true;
    }
    return false;
}

QJsonObject LLMChatMapping::anthropicRequest(const QString &model, const QString &message,
                                             const std::optional<QString> &systemPrompt,
                                             std::optional<qint64> maxTokens)
{
    QJsonObject body{{"model", model},
                     {"max_tokens", maxTokens.value_or(1024)},
                     {"messages", QJsonArray{QJsonObject{{"role", "user"}, {"content", message}}}}};
    if (systemPrompt)
        body.insert("system", *systemPrompt);
    return body;
}

QString LLMChatMapping::geminiPrompt(const QString &message, const std::optional<QString> &systemPrompt)
{
    const QString system = systemPrompt ? trimmedBlanks(*systemPrompt) : QString();
    if (system.isEmpty())
        return message;
    return QStringLiteral("System: ") + system + QStringLiteral("\n\nUser: ") + message;
}

QJsonObject LLMChatMapping::geminiRequest(const QString &prompt)
{
    // One content with one part, and no role.
    return QJsonObject{{"contents", QJsonArray{QJsonObject{{"parts", QJsonArray{QJsonObject{{"text", prompt}}}}}}}};
}

static std::optional<AIChatResponse> openAIReply(const QByteArray &body, QString *error)
{
    const auto object = parseObject(body, error);
    if (!object)
        return std::nullopt;
    if (!object->value("id").isString())
        return fail(error, missing("id")), std::nullopt;
    if (!object->value("choices").isArray())
        return fail(error, missing("choices")), std::nullopt;
    QString text;
    bool first = true;
    for (const QJsonValue &choice : object->value("choices").toArray()) {
        const QJsonObject message = choice.toObject().value("message").toObject();
        if (!choice.isObject() || !choice.toObject().value("message").isObject() || !message.value("role").isString()
            || !message.value("content").isString())
            return fail(error, missing("message")), std::nullopt;
        if (first)
            text = message.value("content").toString();
        first = false;
    }
    std::optional<QJsonObject> usage;
    if (!optionalObject(*object, "usage", &usage, error))
        return std::nullopt;
    qint64 input = 0, output = 0, total = 0;
    if (usage
        && (!optionalCount(*usage, "prompt_tokens", &input, error)
            || !optionalCount(*usage, "completion_tokens", &output, error)
            || !optionalCount(*usage, "total_tokens", &total, error)))
        return std::nullopt;
    return AIChatResponse{object->value("id").toString(), text, cloudStats(input, output)};
}

static std::optional<AIChatResponse> anthropicReply(const QByteArray &body, QString *error)
{
    const auto object = parseObject(body, error);
    if (!object)
        return std::nullopt;
    if (!object->value("id").isString())
        return fail(error, missing("id")), std::nullopt;
    if (!object->value("content").isArray())
        return fail(error, missing("content")), std::nullopt;
    QString text;
    for (const QJsonValue &value : object->value("content").toArray()) {
        const QJsonObject block = value.toObject();
        if (!value.isObject() || !block.value("type").isString())
            return fail(error, missing("type")), std::nullopt;
        const QJsonValue blockText = block.value("text");
        if (blockText.isString())
            text += blockText.toString();
        else if (!blockText.isUndefined() && !blockText.isNull())
            return fail(error, missing("text")), std::nullopt;
    }
    std::optional<QJsonObject> usage;
    if (!optionalObject(*object, "usage", &usage, error))
        return std::nullopt;
    qint64 input = 0, output = 0;
    if (usage
        && (!optionalCount(*usage, "input_tokens", &input, error)
            || !optionalCount(*usage, "output_tokens", &output, error)))
        return std::nullopt;
    return AIChatResponse{object->value("id").toString(), text, cloudStats(input, output)};
}

static std::optional<AIChatResponse> geminiReply(const QByteArray &body, QString *error)
{
    const auto object = parseObject(body, error);
    if (!object)
        return std::nullopt;
    if (!object->value("candidates").isArray())
        return fail(error, missing("candidates")), std::nullopt;
    QString text;
    bool first = true;
    for (const QJsonValue &value : object->value("candidates").toArray()) {
        const QJsonObject content = value.toObject().value("content").toObject();
        if (!value.isObject() || !value.toObject().value("content").isObject() || !content.value("parts").isArray())
            return fail(error, missing("content")), std::nullopt;
        for (const QJsonValue &partValue : content.value("parts").toArray()) {
            if (!partValue.isObject())
                return fail(error, missing("parts")), std::nullopt;
            const QJsonValue partText = partValue.toObject().value("text");
            if (partText.isString()) {
                if (first)
                    text += partText.toString();
            } else if (!partText.isUndefined() && !partText.isNull()) {
                return fail(error, missing("text")), std::nullopt;
            }
        }
        first = false;
    }
    std::optional<QJsonObject> usage;
    if (!optionalObject(*object, "usageMetadata", &usage, error))
        return std::nullopt;
    qint64 input = 0, output = 0, total = 0;
    if (usage
        && (!optionalCount(*usage, "promptTokenCount", &input, error)
            || !optionalCount(*usage, "candidatesTokenCount", &output, error)
            || !optionalCount(*usage, "totalTokenCount", &total, error)))
        return std::nullopt;
    return AIChatResponse{std::nullopt, text, cloudStats(input, output)};
}

AIChatResponse LLMChatMapping::fromLMStudio(const LMSChatResponse &reply)
{
    AIChatResponse response;
    response.id = reply.responseId;
    for (const LMSOutputItem &item : reply.output)
        if (item.kind == LMSOutputItem::Kind::message)
            response.messageText += item.content;
    AIChatStats stats;
    stats.inputTokens = reply.stats.inputTokens;
    stats.totalOutputTokens = reply.stats.totalOutputTokens;
    stats.reasoningOutputTokens = reply.stats.reasoningOutputTokens;
    stats.tokensPerSecond = reply.stats.tokensPerSecond;
    stats.timeToFirstTokenSeconds = reply.stats.timeToFirstTokenSeconds;
    stats.modelLoadTimeSeconds = reply.stats.modelLoadTimeSeconds;
    response.stats = stats;
    return response;
}

static std::optional<QList<AIModel>> models(AIProviderID provider, const QByteArray &body, QString *error)
{
    const auto object = parseObject(body, error);
    if (!object)
        return std::nullopt;
    const char *listKey = provider == AIProviderID::gemini ? "models" : "data";
    if (!object->value(QLatin1String(listKey)).isArray())
        return fail(error, missing(listKey)), std::nullopt;
    QList<AIModel> models;
    for (const QJsonValue &value : object->value(QLatin1String(listKey)).toArray()) {
        const QJsonObject entry = value.toObject();
        const char *idKey = provider == AIProviderID::gemini ? "name" : "id";
        if (!value.isObject() || !entry.value(QLatin1String(idKey)).isString())
            return fail(error, missing(idKey)), std::nullopt;
        // A Gemini model that names its methods without generateContent can't chat.
        if (provider == AIProviderID::gemini && entry.value("supportedGenerationMethods").isArray() &&
            !entry.value("supportedGenerationMethods").toArray().contains(QStringLiteral("generateContent")))
            continue;
        AIModel model;
        model.provider = provider;
        model.id = entry.value(QLatin1String(idKey)).toString();
        model.name = model.id;
        auto optionalName = [&](const char *key) -> std::optional<QString> {
            const QJsonValue name = entry.value(QLatin1String(key));
            if (name.isString())
                return name.toString();
            return std::nullopt;
        };
        switch (provider) {
        case AIProviderID::anthropic:
            if (const auto name = optionalName("display_name"))
                model.name = *name;
            break;
        case AIProviderID::gemini:
            model.id.remove(QStringLiteral("models/"));
            model.name = optionalName("displayName").value_or(model.id);
            break;
        default:
            break;
        }
        models.append(model);
    }
    return models;
}

std::optional<QString> LLMChatMapping::nextModelPage(AIProviderID provider, const QByteArray &body)
{
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    auto query = [](const char *key, const QString &value) {
        return QString::fromLatin1(key) + u'=' + QString::fromUtf8(QUrl::toPercentEncoding(value));
    };
    if (provider == AIProviderID::anthropic) {
        const QString last = object.value("last_id").toString();
        if (object.value("has_more").toBool() && !last.isEmpty())
            return query("after_id", last);
    } else if (provider == AIProviderID::gemini) {
        const QString token = object.value("nextPageToken").toString();
        if (!token.isEmpty())
            return query("pageToken", token);
    }
    return std::nullopt;
}

QList<AIModel> LLMChatMapping::huggingFaceFallbackModels()
{
    const std::pair<const char *, const char *> rows[] = {
        {"Qwen/Qwen3-Coder-30B-A3B-Instruct", "Qwen3 Coder 30B A3B Instruct"},
        {"meta-llama/Llama-3.3-70B-Instruct", "Llama 3.3 70B Instruct"},
        {"mistralai/Mistral-Nemo-Instruct-2407", "Mistral Nemo Instruct 2407"},
        {"deepseek-ai/DeepSeek-R1", "DeepSeek R1"},
    };
    QList<AIModel> models;
    for (const auto &[id, name] : rows)
        models.append(AIModel{QString::fromUtf8(id), QString::fromUtf8(name), AIProviderID::huggingFace, false, {}, {}});
    return models;
}

namespace {

// What a decoder made of a reply, or why it could not, as the chat clients report a reply
// that isn't the record it should be.
template <typename T>
Result<T> decoded(std::optional<T> value, const QString &error)
{
    if (!value)
        return ChatClientError::make(ChatClientError::Kind::decode, error);
    return std::move(*value);
}

} // namespace

Result<AIChatResponse> LLMChatMapping::decodeOpenAIReply(const QByteArray &body)
{
    QString error;
    std::optional<AIChatResponse> reply = openAIReply(body, &error);
    return decoded(std::move(reply), error);
}

Result<AIChatResponse> LLMChatMapping::decodeAnthropicReply(const QByteArray &body)
{
    QString error;
    std::optional<AIChatResponse> reply = anthropicReply(body, &error);
    return decoded(std::move(reply), error);
}

Result<AIChatResponse> LLMChatMapping::decodeGeminiReply(const QByteArray &body)
{
    QString error;
    std::optional<AIChatResponse> reply = geminiReply(body, &error);
    return decoded(std::move(reply), error);
}

Result<QList<AIModel>> LLMChatMapping::decodeModels(AIProviderID provider, const QByteArray &body)
{
    QString error;
    std::optional<QList<AIModel>> list = models(provider, body, &error);
    return decoded(std::move(list), error);
}
