#include "workbench/JSONParameter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

QString JSONParameter::typeName(JSONValueType type)
{
    switch (type) {
    case JSONValueType::string:
        return QStringLiteral("string");
    case JSONValueType::number:
        return QStringLiteral("number");
    case JSONValueType::boolean:
        return QStringLiteral("boolean");
    case JSONValueType::object:
        return QStringLiteral("object");
    case JSONValueType::array:
        return QStringLiteral("array");
    case JSONValueType::null:
        return QStringLiteral("null");
    }
    return {};
}

JSONParameter::JSONValueType JSONParameter::typeFromName(const QString &name)
{
    for (JSONValueType type : {JSONValueType::string, JSONValueType::number, JSONValueType::boolean,
                               JSONValueType::object, JSONValueType::array, JSONValueType::null}) {
        if (typeName(type) == name)
            return type;
    }
    return JSONValueType::string;
}

QJsonValue JSONParameter::jsonValue() const
{
    switch (valueType) {
    case JSONValueType::string:
        return value;
    case JSONValueType::number: {
        bool ok = false;
        // The whole text, no leading blank: "1e3" is 1000, "12abc" stays text.
        const double number = value.isEmpty() || value.front().isSpace() ? 0 : QLocale::c().toDouble(value, &ok);
        return ok ? QJsonValue(number) : QJsonValue(value);
    }
    case JSONValueType::boolean:
        return value.toLower() == QLatin1String("true");
    case JSONValueType::object: {
        const QJsonDocument document = QJsonDocument::fromJson(value.toUtf8());
        return document.isObject() ? QJsonValue(document.object()) : QJsonValue(QJsonObject());
    }
    case JSONValueType::array: {
        const QJsonDocument document = QJsonDocument::fromJson(value.toUtf8());
        return document.isArray() ? QJsonValue(document.array()) : QJsonValue(QJsonArray());
    }
    case JSONValueType::null:
        return QJsonValue(QJsonValue::Null);
    }
    return {};
}
