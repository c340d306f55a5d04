#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <cmath>

// Small pieces for writing the stored plug-in records by hand, so that their keys keep the
// order of the fields (QJsonObject always sorts them), and for reading them strictly.
namespace PluginJson {

// The exact JSON text of one scalar value.
inline QByteArray scalar(const QJsonValue &value)
{
    // QJsonDocument writes only arrays and objects; the one element is cut out of its array.
    const QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return text.mid(1, text.size() - 2);
}

inline bool readString(const QJsonObject &object, const char *key, QString &out)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

inline bool readBool(const QJsonObject &object, const char *key, bool &out)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isBool())
        return false;
    out = value.toBool();
    return true;
}

// A whole number; 3.5 or a number beyond 2^53 is refused.
inline bool readInteger(const QJsonObject &object, const char *key, qint64 &out)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isDouble())
        return false;
    const double number = value.toDouble();
    if (std::trunc(number) != number || std::fabs(number) > 9007199254740992.0)
        return false;
    out = qint64(number);
    return true;
}

}  // namespace PluginJson
