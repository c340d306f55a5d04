#include "tools/results/JSONToolResult.h"

#include <QJsonArray>
#include <QJsonDocument>

QJsonObject JSONToolResult::toJsonObject() const
{
    QJsonArray items;
    for (const JSONToolContent &item : content)
        items.append(item.toJson());
    QJsonObject structured;
    for (auto it = structuredContent.cbegin(); it != structuredContent.cend(); ++it)
        structured.insert(it.key(), it.value().toJson());
    return QJsonObject{{QStringLiteral("content"), items}, {QStringLiteral("structuredContent"), structured}};
}

QString JSONToolResult::json() const
{
    const QByteArray data = QJsonDocument(toJsonObject()).toJson(QJsonDocument::Indented);
    if (data.isEmpty())
        return QStringLiteral("{}");
    return QString::fromUtf8(data);
}

std::optional<JSONToolResult> JSONToolResult::fromJson(const QJsonObject &object)
{
    const QJsonValue contentValue = object.value(QStringLiteral("content"));
    const QJsonValue structuredValue = object.value(QStringLiteral("structuredContent"));
    if (!contentValue.isArray() || !structuredValue.isObject())
        return std::nullopt;
    JSONToolResult result;
    for (const QJsonValue &item : contentValue.toArray()) {
        if (!item.isObject())
            return std::nullopt;
        auto parsed = JSONToolContent::fromJson(item.toObject());
        if (!parsed)
            return std::nullopt;
        result.content.append(*parsed);
    }
    const QJsonObject structured = structuredValue.toObject();
    for (auto it = structured.constBegin(); it != structured.constEnd(); ++it) {
        auto value = AnyCodable::decode(it.value());
        if (!value)
            return std::nullopt;
        result.structuredContent.insert(it.key(), *value);
    }
    return result;
}

JSONToolResult JSONToolResult::errorResult(const QString &text)
{
    JSONToolResult result;
    result.content.append(JSONToolContent{QStringLiteral("text"), text});
    result.structuredContent.insert(QStringLiteral("error"), AnyCodable(text));
    result.structuredContent.insert(QStringLiteral("success"), AnyCodable(false));
    return result;
}
