#pragma once

#include "store/ToolSchemaParamsSnapshot.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

// Value copy of a schema with its parameters in sortedProperties order, the shape
// ToolInputSchemaSnapshot and ToolOutputSchemaSnapshot share; Record is the schema entity
// it is made from and Params that schema's parameter entity.
// Its JSON form uses the field names as keys; decoding requires every key.
template <class Record, class Params>
struct ToolSchemaSnapshot {
    QUuid id;
    QString type;
    QString requiredParams;
    QList<ToolSchemaParamsSnapshot<Params>> properties;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ToolSchemaSnapshot fromRecord(const Record &record);
    QJsonObject toJson() const;
    static std::optional<ToolSchemaSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ToolSchemaSnapshot &other) const = default;
};
