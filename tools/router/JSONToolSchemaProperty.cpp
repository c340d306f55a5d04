#include "tools/router/JSONToolSchemaProperty.h"

#include "tools/router/JSONFieldReader.h"

namespace {
const QString kType = QStringLiteral("type");
const QString kDescription = QStringLiteral("description");
const QString kDefaultValue = QStringLiteral("defaultValue");
const QString kName = QStringLiteral("name");
const QString kItems = QStringLiteral("items");
}  // namespace

QJsonObject JSONToolSchemaProperty::toJson() const
{
    QJsonObject object{{kType, type}, {kDescription, schemaDescription}};
    if (defaultValue && !defaultValue->isEmpty())
        object.insert(kDefaultValue, *defaultValue);
    if (name)
        object.insert(kName, *name);
    if (items)
        object.insert(kItems, items->toJson());
    return object;
}

QVariantMap JSONToolSchemaProperty::toVariant() const
{
    QVariantMap map{{kType, type}, {kDescription, schemaDescription}};
    if (defaultValue && !defaultValue->isEmpty())
        map.insert(kDefaultValue, *defaultValue);
    if (name)
        map.insert(kName, *name);
    if (items)
        map.insert(kItems, items->toVariant());
    return map;
}

std::optional<JSONToolSchemaProperty> JSONToolSchemaProperty::fromJson(const QJsonObject &object,
                                                                       JSONFieldReader &parent, const QString &key)
{
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONToolSchemaProperty property;
    property.type = reader.string(kType, true).value_or(QString());
    // A property may go without a description; it is then sent without one.
    property.schemaDescription = reader.string(kDescription, false).value_or(QString());
    property.defaultValue = reader.string(kDefaultValue, false);
    if (const auto items = reader.object(kItems, false))
        property.items = JSONToolSchemaPropertyItems::fromJson(*items, reader, kItems);
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return property;
}
