#pragma once

#include "tools/router/JSONToolSchemaProperty.h"

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

class JSONFieldReader;

// A tool's input or output schema: an object type, its properties by name, and the
// names a caller must give.
struct JSONToolSchema {
    QString type = QStringLiteral("object");
    QMap<QString, JSONToolSchemaProperty> properties;
    std::optional<QStringList> required;

    // `required` is left out when it holds no names.
    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    static std::optional<JSONToolSchema> fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                  const QString &key);

    bool operator==(const JSONToolSchema &) const = default;
};
