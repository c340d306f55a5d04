#pragma once

#include "store/PromptArgumentSnapshot.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class PromptConfig;

// Value copy of a prompt with its arguments in sortedArguments order. The JSON key
// "template" is held in templateText, since `template` is a C++ keyword.
// Its JSON form uses the field names as keys; decoding requires every key.
struct PromptConfigSnapshot {
    QUuid id;
    QString name;
    QString promptDescription;
    QString templateText;
    QList<PromptArgumentSnapshot> arguments;
    // The messages' JSON text; the key "messagesJson" is written only when set and may be absent.
    std::optional<QString> messagesJson;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static PromptConfigSnapshot fromRecord(const PromptConfig &record);
    QJsonObject toJson() const;
    static std::optional<PromptConfigSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const PromptConfigSnapshot &other) const = default;
};
