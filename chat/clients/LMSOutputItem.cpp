#include "chat/clients/LMSOutputItem.h"

std::optional<LMSOutputItem> LMSOutputItem::fromJson(const QJsonObject &object)
{
    const QJsonValue typeValue = object.value(QStringLiteral("type"));
    if (!typeValue.isString())
        return std::nullopt;
    LMSOutputItem item;
    item.type = typeValue.toString();
    auto text = [&](const char *key, QString *into) {
        const QJsonValue value = object.value(QLatin1String(key));
        if (!value.isString())
            return false;
        *into = value.toString();
        return true;
    };
    if (item.type == QLatin1String("message") || item.type == QLatin1String("reasoning")) {
        item.kind = item.type == QLatin1String("message") ? Kind::message : Kind::reasoning;
        if (!text("content", &item.content))
            return std::nullopt;
    } else if (item.type == QLatin1String("tool_call")) {
        item.kind = Kind::toolCall;
        if (!text("tool", &item.tool) || !text("output", &item.output) || !object.value(QStringLiteral("arguments")).isObject())
            return std::nullopt;
        item.arguments = object.value(QStringLiteral("arguments")).toObject();
    } else if (item.type == QLatin1String("invalid_tool_call")) {
        item.kind = Kind::invalidToolCall;
        if (!text("reason", &item.reason))
            return std::nullopt;
    } else {
        item.kind = Kind::unknown;
    }
    return item;
}
