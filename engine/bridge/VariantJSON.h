#pragma once

#include "engine/JSONValue.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVariant>
#include <QVariantMap>

// Conversions between the engine's JSONValue and Qt's variant trees, which stand for the
// platform dictionary at the seam between the engine and the application.
namespace VariantJSON {

// bool is Bool, every other number is Number, QString is String (up to its first NUL),
// QVariantList/QStringList are Arrays, QVariantMap/QVariantHash are Objects, the Qt JSON
// types convert by their contents; null, invalid and every other kind give Null.
MCP::JSONValue fromVariant(const QVariant &value);
MCP::JSONValue fromVariantMap(const QVariantMap &map);

// Null gives a null QVariant (std::nullptr_t), Bool a bool, Number a double, String a
// QString, Array a QVariantList, Object a QVariantMap.
QVariant toVariant(const MCP::JSONValue &value);
// Throws std::runtime_error("JSONValue is not an object, cannot convert to NSDictionary")
// when the value is not an Object.
QVariantMap toVariantMap(const MCP::JSONValue &value);

// The Qt JSON values of the layers above, converted member by member without text in
// between. Every number is a double; a non-finite one gives Null, as Qt's own writer does.
// Strings keep every character, NUL included.
MCP::JSONValue fromJson(const QJsonValue &value);
QJsonValue toJson(const MCP::JSONValue &value);
// An Object's members; anything else gives an empty object.
QJsonObject toJsonObject(const MCP::JSONValue &value);

// Parses JSON text, top-level scalars allowed. Throws std::runtime_error with
// "JSON parsing failed" and ": " plus the parser's description on failure.
MCP::JSONValue parseJSONText(const QString &text);

}  // namespace VariantJSON
