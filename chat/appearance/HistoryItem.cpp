#include "chat/appearance/HistoryItem.h"

QJsonObject HistoryItem::toJson() const
{
    return {{QStringLiteral("id"), id},
            {QStringLiteral("prompt"), prompt},
            {QStringLiteral("timestamp"), timestamp.toUTC().toString(Qt::ISODate)}};
}

std::optional<HistoryItem> HistoryItem::fromJson(const QJsonObject &object)
{
    const QJsonValue id = object.value(QStringLiteral("id")), prompt = object.value(QStringLiteral("prompt")),
                     stamp = object.value(QStringLiteral("timestamp"));
    if (!id.isString() || !prompt.isString() || !stamp.isString())
        return std::nullopt;
    const QDateTime when = QDateTime::fromString(stamp.toString(), Qt::ISODate);
    if (!when.isValid())
        return std::nullopt;
    return HistoryItem{id.toString(), prompt.toString(), when};
}
