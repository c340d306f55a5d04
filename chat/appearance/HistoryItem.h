#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <optional>

// One prompt the user sent. Stored as {"id", "prompt", "timestamp"} with an ISO 8601 date.
struct HistoryItem {
    QString id; // a UUID, upper case
    QString prompt;
    QDateTime timestamp;

    QJsonObject toJson() const;
    // Nothing when a key is missing or of the wrong kind, or the date isn't ISO 8601.
    static std::optional<HistoryItem> fromJson(const QJsonObject &object);
};
