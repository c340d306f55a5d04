#include "tools/router/JSONToolSchema.h"

#include "tools/router/JSONFieldReader.h"

#include <QJsonArray>

namespace {
const QString kType = QStringLiteral("type");
const QString kProperties = QStringLiteral("properties");
const QString kRequired = QStringLiteral("required");
}  // namespace

QJsonObject JSONToolSchema::toJson() const
{
    QJsonObject props;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it)
        props.insert(it.key(), it.value().toJson());
    QJsonObject object{{kType, type}, {kProperties, props}};
    if (required && !required->isEmpty())
        object.insert(kRequired, QJsonArray::fromStringList(*required));
    return object;
}

QVariantMap JSONToolSchema::toVariant() const
{
    QVariantMap props;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it)
        props.insert(it.key(), it.value().toVariant());
    QVariantMap map{{kType, type}, {kProperties, props}};
    if (required && !required->isEmpty())
        map.insert(kRequired, *required);
    return map;
}

std::optional<JSONToolSchema> JSONToolSchema::fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                       const QString &key)
{
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONToolSchema schema;
    schema.type = reader.string(kType, true).value_or(QString());
    if (const auto props = reader.object(kProperties, true)) {
        JSONFieldReader propsReader(*props, reader.pathOf(kProperties));
        for (auto it = props->constBegin(); it != props->constEnd() && propsReader.ok(); ++it) {
            if (!it.value().isObject()) {
                propsReader.fail(QStringLiteral("The value of '%1' is not an object.").arg(propsReader.pathOf(it.key())));
                break;
            }
            if (auto property = JSONToolSchemaProperty::fromJson(it.value().toObject(), propsReader, it.key()))
                schema.properties.insert(it.key(), *property);
        }
        reader.adopt(propsReader);
    }
    schema.required = reader.stringArray(kRequired, false);
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return schema;
}
