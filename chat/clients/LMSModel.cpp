#include "chat/clients/LMSModel.h"

#include <QJsonArray>

std::optional<LMSModel> LMSModel::fromJson(const QJsonObject &object)
{
    auto requiredText = [&](const char *key, QString &into) {
        const QJsonValue value = object.value(QLatin1String(key));
        into = value.toString();
        return value.isString();
    };
    auto optionalText = [&](const char *key, std::optional<QString> &into) {
        const QJsonValue value = object.value(QLatin1String(key));
        if (value.isString())
            into = value.toString();
        return value.isUndefined() || value.isNull() || value.isString();
    };
    LMSModel model;
    if (!requiredText("type", model.type) || (model.type != QLatin1String("llm") && model.type != QLatin1String("embedding")) ||
        !requiredText("publisher", model.publisher) || !requiredText("key", model.key) ||
        !requiredText("display_name", model.displayName) || !object.value(QStringLiteral("size_bytes")).isDouble() ||
        !object.value(QStringLiteral("max_context_length")).isDouble() ||
        !object.value(QStringLiteral("loaded_instances")).isArray())
        return std::nullopt;
    if (!optionalText("architecture", model.architecture) || !optionalText("params_string", model.paramsString) ||
        !optionalText("format", model.format) || !optionalText("description", model.description))
        return std::nullopt;
    model.sizeBytes = object.value(QStringLiteral("size_bytes")).toInteger();
    model.maxContextLength = object.value(QStringLiteral("max_context_length")).toInteger();
    for (const QJsonValue &value : object.value(QStringLiteral("loaded_instances")).toArray()) {
        const QJsonObject instance = value.toObject();
        const std::optional<LMSInstanceConfig> config = LMSInstanceConfig::fromJson(instance.value(QStringLiteral("config")).toObject());
        if (!instance.value(QStringLiteral("id")).isString() || !config)
            return std::nullopt;
        model.loadedInstances.append({instance.value(QStringLiteral("id")).toString(), *config});
    }
    if (const QJsonValue quantization = object.value(QStringLiteral("quantization")); quantization.isObject()) {
        const QJsonObject q = quantization.toObject();
        if (q.value(QStringLiteral("name")).isString())
            model.quantizationName = q.value(QStringLiteral("name")).toString();
        if (q.value(QStringLiteral("bits_per_weight")).isDouble())
            model.quantizationBitsPerWeight = q.value(QStringLiteral("bits_per_weight")).toDouble();
    }
    if (const QJsonValue capabilities = object.value(QStringLiteral("capabilities")); capabilities.isObject()) {
        const QJsonObject c = capabilities.toObject();
        if (!c.value(QStringLiteral("vision")).isBool() || !c.value(QStringLiteral("trained_for_tool_use")).isBool())
            return std::nullopt;
        model.vision = c.value(QStringLiteral("vision")).toBool();
        model.trainedForToolUse = c.value(QStringLiteral("trained_for_tool_use")).toBool();
    }
    return model;
}
