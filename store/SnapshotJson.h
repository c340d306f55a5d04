#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

// Strict readers for the snapshots' JSON: each key must be present with the right type.
namespace SnapshotJson {

inline bool readString(const QJsonObject &object, const QString &key, QString &out)
{
    const QJsonValue value = object.value(key);
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

inline bool readUuid(const QJsonObject &object, const QString &key, QUuid &out)
{
    QString text;
    if (!readString(object, key, text))
        return false;
    out = QUuid::fromString(text);
    return !out.isNull();
}

inline bool readDouble(const QJsonObject &object, const QString &key, double &out)
{
    const QJsonValue value = object.value(key);
    if (!value.isDouble())
        return false;
    out = value.toDouble();
    return true;
}

inline bool readBool(const QJsonObject &object, const QString &key, bool &out)
{
    const QJsonValue value = object.value(key);
    if (!value.isBool())
        return false;
    out = value.toBool();
    return true;
}

template <class T>
bool readList(const QJsonObject &object, const QString &key, QList<T> &out)
{
    const QJsonValue value = object.value(key);
    if (!value.isArray())
        return false;
    out.clear();
    for (const QJsonValue &item : value.toArray()) {
        if (!item.isObject())
            return false;
        auto decoded = T::fromJson(item.toObject());
        if (!decoded)
            return false;
        out.append(*decoded);
    }
    return true;
}

}  // namespace SnapshotJson
