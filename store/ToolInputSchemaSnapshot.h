#pragma once

#include "store/ToolInSchemaParamsSnapshot.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class ToolInputSchema;

// Value copy of an input schema with its parameters in sortedProperties order.
// Its JSON form uses the field names as keys; decoding requires every key.
struct ToolInputSchemaSnapshot {
    QUuid id;
    QString type;
    QString requiredParams;
    QList<ToolInSchemaParamsSnapshot> properties;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ToolInputSchemaSnapshot fromRecord(const ToolInputSchema &record);
    QJsonObject toJson() const;
    static std::optional<ToolInputSchemaSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ToolInputSchemaSnapshot &other) const = default;
};
