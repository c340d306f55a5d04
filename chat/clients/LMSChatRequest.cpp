#include "chat/clients/LMSChatRequest.h"

namespace {

// What the server's decoder reads of a free-form value: a JSON boolean goes out as 1 or 0,
// since an integer is the first reading a number-like value gets.
QJsonValue plain(const QJsonValue &value)
{
    if (value.isObject()) {
        QJsonObject out;
        const QJsonObject in = value.toObject();
        for (auto it = in.begin(); it != in.end(); ++it)
            out.insert(it.key(), plain(it.value()));
        return out;
    }
    if (value.isArray()) {
        QJsonArray out;
        for (const QJsonValue &item : value.toArray())
            out.append(plain(item));
        return out;
    }
    if (value.isBool())
        return value.toBool() ? 1 : 0;
    return value;
}

}  // namespace

QJsonObject LMSChatRequest::toJson() const
{
    QJsonObject object{{"model", model}, {"input", input}, {"stream", stream}, {"store", store}};
    if (systemPrompt)
        object.insert(QStringLiteral("system_prompt"), *systemPrompt);
    if (temperature)
        object.insert(QStringLiteral("temperature"), *temperature);
    if (maxOutputTokens)
        object.insert(QStringLiteral("max_output_tokens"), *maxOutputTokens);
    if (previousResponseId)
        object.insert(QStringLiteral("previous_response_id"), *previousResponseId);
    if (!integrations.isEmpty())
        object.insert(QStringLiteral("integrations"), plain(integrations));
    return object;
}
