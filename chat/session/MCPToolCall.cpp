#include "chat/session/MCPToolCall.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

namespace {

QString valueText(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return QLatin1Char('"') + value.toString() + QLatin1Char('"');
    case QJsonValue::Object:
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    case QJsonValue::Array:
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    default:
        return value.toVariant().toString().isEmpty() && value.isNull() ? QStringLiteral("null")
                                                                         : value.toVariant().toString();
    }
}

}  // namespace

QString MCPToolCall::argumentsText() const
{
    QStringList pairs;
    for (auto it = arguments.begin(); it != arguments.end(); ++it)
        pairs.append(QStringLiteral("\"%1\": %2").arg(it.key(), valueText(it.value())));
    return QLatin1Char('[') + pairs.join(QStringLiteral(", ")) + QLatin1Char(']');
}

QString MCPToolCall::searchLine() const
{
    QStringList parts{tool, serverLabel, argumentsText()};
    if (output)
        parts.append(*output);
    if (error)
        parts.append(*error);
    return parts.join(u' ');
}
