#include "tools/router/JSONResourceConfig.h"

#include "tools/router/JSONFieldReader.h"

namespace {
const QString kUri = QStringLiteral("uri");
const QString kName = QStringLiteral("name");
const QString kDescription = QStringLiteral("description");
const QString kMimeType = QStringLiteral("mimeType");
const QString kType = QStringLiteral("type");
const QString kContextTags = QStringLiteral("contextTags");
const QString kRelatedResources = QStringLiteral("relatedResources");
const QString kAnnotations = QStringLiteral("annotations");
const QString kValues = QStringLiteral("values");
const QString kScript = QStringLiteral("script");
const QString kValuesScript = QStringLiteral("valuesScript");
}  // namespace

QJsonObject JSONResourceConfig::toJson() const
{
    QJsonObject object{{kUri, uri},
                       {kName, name},
                       {kDescription, resourceDescription},
                       {kMimeType, mimeType},
                       {kType, type},
                       {kContextTags, contextTags},
                       {kRelatedResources, relatedResources},
                       {kAnnotations, annotations.toJson()}};
    if (values)
        object.insert(kValues, *values);
    if (script)
        object.insert(kScript, *script);
    if (valuesScript)
        object.insert(kValuesScript, *valuesScript);
    return object;
}

QVariantMap JSONResourceConfig::toVariant() const
{
    QVariantMap map{{kUri, uri},
                       {kName, name},
                       {kDescription, resourceDescription},
                       {kMimeType, mimeType},
                       {kType, type},
                       {kContextTags, contextTags},
                       {kRelatedResources, relatedResources},
                       {kAnnotations, annotations.toVariant()}};
    if (values)
        map.insert(kValues, values->toVariantMap());
    if (script)
        map.insert(kScript, *script);
    if (valuesScript)
        map.insert(kValuesScript, *valuesScript);
    return map;
}

QVariant JSONResourceConfig::value(const QString &key) const
{
    return toVariant().value(key);
}

Result<JSONResourceConfig> JSONResourceConfig::fromJson(const QJsonObject &object)
{
    JSONFieldReader reader(object);
    JSONResourceConfig config;
    config.uri = reader.string(kUri, true).value_or(QString());
    config.name = reader.string(kName, true).value_or(QString());
    config.resourceDescription = reader.string(kDescription, true).value_or(QString());
    config.mimeType = reader.string(kMimeType, true).value_or(QString());
    config.type = reader.string(kType, true).value_or(QString());
    config.contextTags = reader.string(kContextTags, true).value_or(QString());
    config.relatedResources = reader.string(kRelatedResources, true).value_or(QString());
    if (const auto annotations = reader.object(kAnnotations, true)) {
        if (auto decoded = JSONAnnotations::fromJson(*annotations, reader, kAnnotations))
            config.annotations = *decoded;
    }
    if (const auto values = reader.object(kValues, false)) {
        JSONFieldReader valuesReader(*values, reader.pathOf(kValues));
        for (auto it = values->begin(); it != values->end() && valuesReader.ok(); ++it)
            valuesReader.stringArray(it.key(), true);
        reader.adopt(valuesReader);
        config.values = *values;
    }
    config.script = reader.string(kScript, false);
    config.valuesScript = reader.string(kValuesScript, false);
    if (!reader.ok())
        return reader.failure();
    return config;
}

Result<JSONResourceConfig> JSONResourceConfig::fromJsonData(const QByteArray &data)
{
    const Result<QJsonObject> object = JSONFieldReader::parseObject(data);
    if (!object)
        return object.error();
    return fromJson(*object);
}
