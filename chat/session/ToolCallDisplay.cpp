#include "chat/session/ToolCallDisplay.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

namespace ToolCallDisplay {

QString valueText(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        return QStringLiteral("null");
    case QJsonValue::String: {
        QString text = value.toString();
        text.replace(u'"', QStringLiteral("\\\""));
        return u'"' + text + u'"';
    }
    case QJsonValue::Double: {
        const double number = value.toDouble();
        return number == qint64(number) && std::abs(number) < 1e15 ? QString::number(qint64(number)) : QString::number(number);
    }
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QJsonValue::Array: {
        QStringList items;
        for (const QJsonValue &item : value.toArray())
            items.append(valueText(item));
        return u'[' + items.join(u',') + u']';
    }
    case QJsonValue::Object:
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    }
    return QString();
}

QList<KVPair> parameters(const MCPToolCall &call)
{
    QList<KVPair> rows;
    for (auto it = call.arguments.begin(); it != call.arguments.end(); ++it)
        rows.append({it.key(), valueText(it.value())});
    return rows;
}

QList<ToolResult> results(const QString &output)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(output.toUtf8(), &error);
    if (error.error == QJsonParseError::NoError && document.isArray()) {
        QList<ToolResult> blocks;
        bool shaped = true;
        for (const QJsonValue &value : document.array()) {
            const QJsonObject entry = value.toObject();
            if (!entry.value(QStringLiteral("type")).isString() || !entry.value(QStringLiteral("text")).isString()) {
                shaped = false;
                break;
            }
            blocks.append({entry.value(QStringLiteral("type")).toString(), entry.value(QStringLiteral("text")).toString()});
        }
        if (shaped)
            return blocks;
    }
    return {{QStringLiteral("text"), output}};
}

QString cut(const QString &text)
{
    constexpr qsizetype limit = 256;
    if (text.size() <= limit)
        return text;
    return text.left(limit) + QStringLiteral("...(%1 more chars)").arg(text.size() - limit);
}

}  // namespace ToolCallDisplay
