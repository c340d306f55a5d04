#include "tools/router/JSONToolConfig.h"

#include "tools/router/JSONFieldReader.h"


namespace {
const QString kName = QStringLiteral("name");
const QString kTitle = QStringLiteral("title");
const QString kDescription = QStringLiteral("description");
const QString kExecHandler = QStringLiteral("execHandler");
const QString kExecMethod = QStringLiteral("execMethod");
const QString kPluginName = QStringLiteral("pluginName");
const QString kToolType = QStringLiteral("toolType");
const QString kScriptName = QStringLiteral("scriptName");
const QString kAnnotations = QStringLiteral("annotations");
const QString kInputSchema = QStringLiteral("inputSchema");
const QString kOutputSchema = QStringLiteral("outputSchema");
}  // namespace

QJsonObject JSONToolConfig::toJson() const
{
    QJsonObject object{{kName, name},
                       {kDescription, toolDescription},
                       {kExecHandler, execHandler},
                       {kExecMethod, execMethod},
                       {kPluginName, pluginName},
                       {kToolType, toolType},
                       {kScriptName, scriptName},
                       {kAnnotations, annotations.toJson()},
                       {kInputSchema, inputSchema.toJson()},
                       {kOutputSchema, outputSchema.toJson()}};
    if (title)
        object.insert(kTitle, *title);
    return object;
}

QVariantMap JSONToolConfig::toVariant() const
{
    QVariantMap map{{kName, name},
                    {kDescription, toolDescription},
                    {kExecHandler, execHandler},
                    {kExecMethod, execMethod},
                    {kPluginName, pluginName},
                    {kToolType, toolType},
                    {kScriptName, scriptName},
                    {kAnnotations, annotations.toVariant()},
                    {kInputSchema, inputSchema.toVariant()},
                    {kOutputSchema, outputSchema.toVariant()}};
    if (title)
        map.insert(kTitle, *title);
    return map;
}

QVariant JSONToolConfig::value(const QString &key) const
{
    return toVariant().value(key);
}

Result<JSONToolConfig> JSONToolConfig::fromJson(const QJsonObject &object)
{
    JSONFieldReader reader(object);
    JSONToolConfig config;
    config.name = reader.string(kName, true).value_or(QString());
    config.title = reader.string(kTitle, false);
    config.toolDescription = reader.string(kDescription, true).value_or(QString());
    config.execHandler = reader.string(kExecHandler, true).value_or(QString());
    config.execMethod = reader.string(kExecMethod, true).value_or(QString());
    config.pluginName = reader.string(kPluginName, true).value_or(QString());
    config.toolType = reader.string(kToolType, true).value_or(QString());
    config.scriptName = reader.string(kScriptName, true).value_or(QString());
    if (const auto annotations = reader.object(kAnnotations, true)) {
        if (auto decoded = JSONAnnotations::fromJson(*annotations, reader, kAnnotations))
            config.annotations = *decoded;
    }
    if (const auto schema = reader.object(kInputSchema, true)) {
        if (auto decoded = JSONToolSchema::fromJson(*schema, reader, kInputSchema))
            config.inputSchema = *decoded;
    }
    if (const auto schema = reader.object(kOutputSchema, true)) {
        if (auto decoded = JSONToolSchema::fromJson(*schema, reader, kOutputSchema))
            config.outputSchema = *decoded;
    }
    if (!reader.ok())
        return reader.failure();
    return config;
}

Result<JSONToolConfig> JSONToolConfig::fromJsonData(const QByteArray &data)
{
    const Result<QJsonObject> object = JSONFieldReader::parseObject(data);
    if (!object)
        return object.error();
    return fromJson(*object);
}
