#include "base/AnyCodable.h"

#include <QDebug>

std::optional<AnyCodable> AnyCodable::decode(const QJsonValue &value, QString *error)
{
    if (value.isUndefined()) {
        if (error)
            *error = QStringLiteral("Unsupported JSON value");
        return std::nullopt;
    }
    return AnyCodable(value, 0);
}

std::optional<AnyCodable> AnyCodable::fromVariant(const QVariant &value, QString *error)
{
    auto json = variantToJson(value, error);
    if (!json)
        return std::nullopt;
    return AnyCodable(*json, 0);
}

std::optional<QJsonValue> AnyCodable::variantToJson(const QVariant &value, QString *error)
{
    if (!value.isValid() || value.isNull())
        return QJsonValue(QJsonValue::Null);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return QJsonValue(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return QJsonValue(value.toLongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return QJsonValue(value.toDouble());
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return QJsonValue(value.toString());
    case QMetaType::QJsonValue:
        return value.toJsonValue();
    case QMetaType::QJsonObject:
        return QJsonValue(value.toJsonObject());
    case QMetaType::QJsonArray:
        return QJsonValue(value.toJsonArray());
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QJsonArray array;
        for (const QVariant &item : value.toList()) {
            auto converted = variantToJson(item, error);
            if (!converted)
                return std::nullopt;
            array.append(*converted);
        }
        return QJsonValue(array);
    }
    case QMetaType::QVariantMap: {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            auto converted = variantToJson(it.value(), error);
            if (!converted)
                return std::nullopt;
            object.insert(it.key(), *converted);
        }
        return QJsonValue(object);
    }
    default:
        if (error) {
            QString description;
            QDebug(&description).nospace() << value;
            *error = QStringLiteral("Unsupported JSON value: ") + description;
        }
        return std::nullopt;
    }
}
