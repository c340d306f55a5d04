#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class PromptArguments;

// Value copy of a prompt argument.
// Its JSON form uses the field names as keys; decoding requires every key.
struct PromptArgumentSnapshot {
    QUuid id;
    QString name;
    QString info;
    bool required = false;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static PromptArgumentSnapshot fromRecord(const PromptArguments &record);
    QJsonObject toJson() const;
    static std::optional<PromptArgumentSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const PromptArgumentSnapshot &other) const = default;
};
