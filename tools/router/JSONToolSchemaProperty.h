#pragma once

#include "tools/router/JSONToolSchemaPropertyItems.h"

#include <QJsonObject>
#include <QString>
#include <QVariantMap>
#include <optional>

class JSONFieldReader;

// One property of a tool's input or output schema. The file key of schemaDescription is
// "description".
struct JSONToolSchemaProperty {
    QString type;
    QString schemaDescription;
    std::optional<QString> defaultValue;
    std::optional<QString> name;
    std::optional<JSONToolSchemaPropertyItems> items;

    // `defaultValue` is left out when missing or empty, `items` when there are none.
    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    // `name` is ignored on reading: the property's key in the schema is its name.
    static std::optional<JSONToolSchemaProperty> fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                          const QString &key);

    bool operator==(const JSONToolSchemaProperty &) const = default;
};
