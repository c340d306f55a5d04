#include "engine/bridge/VariantJSON.h"

#include "engine/JSONParser.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>
#include <cmath>
#include <stdexcept>

namespace VariantJSON {

using MCP::JSONValue;

static std::string utf8UpToNul(const QString &text)
{
    const qsizetype nul = text.indexOf(QChar(u'\0'));
    return (nul < 0 ? text : text.left(nul)).toStdString();
}

JSONValue fromVariant(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return JSONValue(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Float:
    case QMetaType::Double:
        return JSONValue(value.toDouble());
    case QMetaType::QString:
        return JSONValue(utf8UpToNul(value.toString()));
    case QMetaType::QStringList: {
        JSONValue::ArrayType array;
        for (const QString &item : value.toStringList())
            array.emplace_back(utf8UpToNul(item));
        return JSONValue(std::move(array));
    }
    case QMetaType::QVariantList: {
        JSONValue::ArrayType array;
        const QVariantList list = value.toList();
        array.reserve(static_cast<size_t>(list.size()));
        for (const QVariant &item : list)
            array.push_back(fromVariant(item));
        return JSONValue(std::move(array));
    }
    case QMetaType::QVariantMap:
        return fromVariantMap(value.toMap());
    case QMetaType::QVariantHash: {
        JSONValue object = JSONValue(JSONValue::ObjectType{});
        const QVariantHash hash = value.toHash();
        for (auto it = hash.begin(); it != hash.end(); ++it)
            object[utf8UpToNul(it.key())] = fromVariant(it.value());
        return object;
    }
    case QMetaType::QJsonValue:
    case QMetaType::QJsonObject:
    case QMetaType::QJsonArray:
        return fromVariant(value.value<QJsonValue>().toVariant());
    case QMetaType::QJsonDocument: {
        const QJsonDocument document = value.toJsonDocument();
        return fromVariant(document.isArray() ? QVariant(document.array().toVariantList())
                                              : QVariant(document.object().toVariantMap()));
    }
    default:
        return JSONValue();
    }
}

JSONValue fromVariantMap(const QVariantMap &map)
{
    JSONValue object = JSONValue(JSONValue::ObjectType{});
    for (auto it = map.begin(); it != map.end(); ++it)
        object[utf8UpToNul(it.key())] = fromVariant(it.value());
    return object;
}

QVariant toVariant(const JSONValue &value)
{
    switch (value.type()) {
    case JSONValue::Type::Null:
        return QVariant::fromValue(nullptr);
    case JSONValue::Type::Bool:
        return QVariant(value.asBool());
    case JSONValue::Type::Number:
        return QVariant(value.asNumber());
    case JSONValue::Type::String:
        return QVariant(QString::fromStdString(value.asString()));
    case JSONValue::Type::Array: {
        QVariantList list;
        list.reserve(static_cast<qsizetype>(value.asArray().size()));
        for (const auto &item : value.asArray())
            list.append(toVariant(item));
        return list;
    }
    case JSONValue::Type::Object: {
        QVariantMap map;
        for (const auto &[key, member] : value.asObject())
            map.insert(QString::fromStdString(key), toVariant(member));
        return map;
    }
    }
    return {};
}

QVariantMap toVariantMap(const JSONValue &value)
{
    if (!value.isObject())
        throw std::runtime_error("JSONValue is not an object, cannot convert to NSDictionary");
    const QVariant converted = toVariant(value);
    if (converted.typeId() != QMetaType::QVariantMap)
        throw std::runtime_error("Conversion to NSDictionary failed");
    return converted.toMap();
}

JSONValue fromJson(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return JSONValue(value.toBool());
    case QJsonValue::Double: {
        const double number = value.toDouble();
        return std::isfinite(number) ? JSONValue(number) : JSONValue();
    }
    case QJsonValue::String:
        return JSONValue(value.toString().toStdString());
    case QJsonValue::Array: {
        const QJsonArray array = value.toArray();
        JSONValue::ArrayType items;
        items.reserve(static_cast<size_t>(array.size()));
        for (const QJsonValue &item : array)
            items.push_back(fromJson(item));
        return JSONValue(std::move(items));
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        JSONValue::ObjectType members;
        for (auto it = object.constBegin(); it != object.constEnd(); ++it)
            members.emplace_hint(members.end(), it.key().toStdString(), fromJson(it.value()));
        return JSONValue(std::move(members));
    }
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    return JSONValue();
}

QJsonValue toJson(const JSONValue &value)
{
    switch (value.type()) {
    case JSONValue::Type::Null:
        return QJsonValue(QJsonValue::Null);
    case JSONValue::Type::Bool:
        return QJsonValue(value.asBool());
    case JSONValue::Type::Number:
        return QJsonValue(value.asNumber());
    case JSONValue::Type::String:
        return QJsonValue(QString::fromStdString(value.asString()));
    case JSONValue::Type::Array: {
        QJsonArray array;
        for (const auto &item : value.asArray())
            array.append(toJson(item));
        return array;
    }
    case JSONValue::Type::Object:
        return toJsonObject(value);
    }
    return {};
}

QJsonObject toJsonObject(const JSONValue &value)
{
    QJsonObject object;
    if (!value.isObject())
        return object;
    for (const auto &[key, member] : value.asObject())
        object.insert(QString::fromStdString(key), toJson(member));
    return object;
}

JSONValue parseJSONText(const QString &text)
{
    std::string error;
    auto value = MCP::JSONParser::parseDocument(text.toStdString(), &error);
    if (!value)
        throw std::runtime_error(error.empty() ? std::string("JSON parsing failed") : "JSON parsing failed: " + error);
    return std::move(*value);
}

}  // namespace VariantJSON
