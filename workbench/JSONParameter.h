#pragma once

#include <QJsonValue>
#include <QString>
#include <QUuid>

// One row of the run dialog's "JSON Parameters": a key, the value's type and its text.
struct JSONParameter {
    enum class JSONValueType { string, number, boolean, object, array, null };

    QUuid id = QUuid::createUuid();
    QString key;
    JSONValueType valueType = JSONValueType::string;
    QString value;

    static QString typeName(JSONValueType type);
    static JSONValueType typeFromName(const QString &name);
    // The value as the run sends it: a number only when the whole text reads as one, a
    // boolean true only for "true" in any case, an object or array ({} or [] when the text
    // is not one), null.
    QJsonValue jsonValue() const;
};
