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
    // The schema as its author wrote it, kept when it says more than the fields above hold
    // (enum, bounds, $defs/$ref, nested objects, ...). The fields above are then read from it
    // for the editor, and what the editor changes there is laid over it on writing.
    std::optional<QJsonObject> document;

    // `required` is left out when it holds no names. With a document: writtenDocument().
    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    // The document with the edits of the fields above laid over it: a property whose fields
    // differ from what the document says gets them, one the editor removed goes, one it
    // added comes in; everything else stays as written.
    QJsonObject writtenDocument() const;
    // The schema as a JSON Schema author writes it: the document with the edits laid over
    // it, or, without one, the fields above in the standard words ("default", and an
    // object's items under "properties"), without the file format's extra "name".
    QJsonObject authoredJson() const;
    // The fields above as the editor shows them from a written schema, which is kept.
    static JSONToolSchema fromDocument(const QJsonObject &document);
    // Whether the object uses only what the fields above hold (the form the editor writes).
    static bool isPlainForm(const QJsonObject &object);
    static std::optional<JSONToolSchema> fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                  const QString &key);

    bool operator==(const JSONToolSchema &) const = default;
};
