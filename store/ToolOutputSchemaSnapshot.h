#pragma once

#include "store/ToolOutSchemaParamsSnapshot.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class ToolOutputSchema;

// Value copy of an output schema with its parameters in sortedProperties order.
// Its JSON form uses the field names as keys; decoding requires every key.
struct ToolOutputSchemaSnapshot {
    QUuid id;
    QString type;
    QString requiredParams;
    QList<ToolOutSchemaParamsSnapshot> properties;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ToolOutputSchemaSnapshot fromRecord(const ToolOutputSchema &record);
    QJsonObject toJson() const;
    static std::optional<ToolOutputSchemaSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ToolOutputSchemaSnapshot &other) const = default;
};
