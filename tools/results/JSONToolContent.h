#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

// One item of a tool result's content list.
struct JSONToolContent {
    QString type = QStringLiteral("text");
    QString text;

    QJsonObject toJson() const;
    // Both members must be strings.
    static std::optional<JSONToolContent> fromJson(const QJsonObject &object);

    bool operator==(const JSONToolContent &) const = default;
};
