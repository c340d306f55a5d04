#pragma once

#include "store/ToolInputSchemaSnapshot.h"
#include "store/ToolOutputSchemaSnapshot.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class ToolsConfig;

// Value copy of a tool with its schemas in sorted order. `title` is not carried; the
// output schemas are spelled correctly here (`outputSchemas`).
// Its JSON form uses the field names as keys; decoding requires every key.
struct ToolsConfigSnapshot {
    QUuid id;
    QString name;
    QString toolDescription;
    QString toolType;
    QString methodName;
    QString handlerName;
    QString pluginName;
    QString scriptFileName;
    QList<ToolInputSchemaSnapshot> inputSchemas;
    QList<ToolOutputSchemaSnapshot> outputSchemas;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ToolsConfigSnapshot fromRecord(const ToolsConfig &record);
    QJsonObject toJson() const;
    static std::optional<ToolsConfigSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ToolsConfigSnapshot &other) const = default;
};
