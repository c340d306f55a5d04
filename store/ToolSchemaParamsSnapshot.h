#pragma once

#include <QJsonObject>
#include <QString>
#include <QUuid>
#include <optional>

// Value copy of a schema parameter, the shape ToolInSchemaParamsSnapshot and
// ToolOutSchemaParamsSnapshot share; Record is the parameter entity it is made from.
// Its JSON form uses the field names as keys; decoding requires every key.
template <class Record>
struct ToolSchemaParamsSnapshot {
    QUuid id;
    QString parameterName;
    QString parameterType;
    QString parameterDescription;
    QString defaultValue;
    QString itemType;
    QString items;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ToolSchemaParamsSnapshot fromRecord(const Record &record);
    QJsonObject toJson() const;
    static std::optional<ToolSchemaParamsSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ToolSchemaParamsSnapshot &other) const = default;
};
