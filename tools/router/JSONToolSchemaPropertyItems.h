#pragma once

#include <QJsonObject>
#include <QString>
#include <QVariantMap>
#include <optional>

class JSONFieldReader;

// The items of an array or object property. In memory the content is JSON text; in a file
// it stands as real JSON under a key that depends on the type: "array" keeps an array
// under `content`, "object" an object under `properties`, any other type a string under
// `content` that is read but never written.
struct JSONToolSchemaPropertyItems {
    QString type;
    std::optional<QString> content;

    QJsonObject toJson() const;
    // What the bridge reads: `type`, and `content` as JSON text when there is some.
    QVariantMap toVariant() const;
    static std::optional<JSONToolSchemaPropertyItems> fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                               const QString &key);

    bool operator==(const JSONToolSchemaPropertyItems &) const = default;
};
