#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class ToolInSchemaParams;

// Value copy of an input schema parameter.
// Its JSON form uses the field names as keys; decoding requires every key.
struct ToolInSchemaParamsSnapshot {
    QUuid id;
    QString parameterName;
    QString parameterType;
    QString parameterDescription;
    QString defaultValue;
    QString itemType;
    QString items;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ToolInSchemaParamsSnapshot fromRecord(const ToolInSchemaParams &record);
    QJsonObject toJson() const;
    static std::optional<ToolInSchemaParamsSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ToolInSchemaParamsSnapshot &other) const = default;
};
