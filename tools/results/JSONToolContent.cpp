#include "tools/results/JSONToolContent.h"

QJsonObject JSONToolContent::toJson() const
{
    return QJsonObject{{QStringLiteral("type"), type}, {QStringLiteral("text"), text}};
}

std::optional<JSONToolContent> JSONToolContent::fromJson(const QJsonObject &object)
{
    const QJsonValue type = object.value(QStringLiteral("type"));
    const QJsonValue text = object.value(QStringLiteral("text"));
    if (!type.isString() || !text.isString())
        return std::nullopt;
    return JSONToolContent{type.toString(), text.toString()};
}
