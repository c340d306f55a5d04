#include "tools/results/JSONToolContent.h"

QJsonObject JSONToolContent::toJson() const
{
    QJsonObject object = members;
    object.insert(QStringLiteral("type"), type);
    if (type == QLatin1String("text") || !text.isEmpty())
        object.insert(QStringLiteral("text"), text);
    return object;
}

std::optional<JSONToolContent> JSONToolContent::fromJson(const QJsonObject &object)
{
    const QJsonValue type = object.value(QStringLiteral("type"));
    const QJsonValue text = object.value(QStringLiteral("text"));
    if (!type.isString())
        return std::nullopt;
    if (!text.isString() && (type.toString() == QLatin1String("text") || !text.isUndefined()))
        return std::nullopt;
    JSONToolContent content{type.toString(), text.toString(), object};
    content.members.remove(QStringLiteral("type"));
    content.members.remove(QStringLiteral("text"));
    return content;
}
