#include "chat/clients/LMSChatResponse.h"

#include <QJsonArray>

std::optional<LMSChatResponse> LMSChatResponse::fromJson(const QJsonObject &object)
{
    const QJsonValue instance = object.value(QStringLiteral("model_instance_id"));
    const QJsonValue output = object.value(QStringLiteral("output"));
    const QJsonValue stats = object.value(QStringLiteral("stats"));
    if (!instance.isString() || !output.isArray() || !stats.isObject())
        return std::nullopt;
    LMSChatResponse response;
    response.modelInstanceId = instance.toString();
    for (const QJsonValue &value : output.toArray()) {
        std::optional<LMSOutputItem> item = value.isObject() ? LMSOutputItem::fromJson(value.toObject()) : std::nullopt;
        if (!item)
            return std::nullopt;
        response.output.append(*item);
    }
    std::optional<LMSChatStats> figures = LMSChatStats::fromJson(stats.toObject());
    if (!figures)
        return std::nullopt;
    response.stats = *figures;
    const QJsonValue id = object.value(QStringLiteral("response_id"));
    if (id.isString())
        response.responseId = id.toString();
    else if (!id.isUndefined() && !id.isNull())
        return std::nullopt;
    return response;
}
