#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class ToolOutSchemeParams;

// Value copy of an output schema parameter (the record class is spelled "Scheme", this one "Schema").
// Its JSON form uses the field names as keys; decoding requires every key.
struct ToolOutSchemaParamsSnapshot {
    QUuid id;
    QString parameterName;
    QString parameterType;
    QString parameterDescription;
    QString defaultValue;
    QString itemType;
    QString items;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ToolOutSchemaParamsSnapshot fromRecord(const ToolOutSchemeParams &record);
    QJsonObject toJson() const;
    static std::optional<ToolOutSchemaParamsSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ToolOutSchemaParamsSnapshot &other) const = default;
};
