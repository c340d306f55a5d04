#include "chat/clients/LMSModel.h"

#include <QJsonArray>
#include <QJsonValue>

namespace {

std::optional<QString> optionalString(const QJsonObject &object, const char *key, bool *ok)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isString())
        return value.toString();
    if (!value.isUndefined() && !value.isNull())
        *ok = false;
    return std::nullopt;
}

} // namespace

std::optional<LMSModel> LMSModel::fromJson(const QJsonObject &object)
{
    for (const char *key : {"type", "publisher", "key", "display_name"})
        if (!object.value(QLatin1String(key)).isString())
            return std::nullopt;
    for (const char *key : {"size_bytes", "max_context_length"})
        if (!object.value(QLatin1String(key)).isDouble())
            return std::nullopt;
    if (!object.value("loaded_instances").isArray())
        return std::nullopt;
    LMSModel model;
    model.type = object.value("type").toString();
    if (model.type != QLatin1String("llm") && model.type != QLatin1String("embedding"))
        return std::nullopt;
    model.publisher = object.value("publisher").toString();
    model.key = object.value("key").toString();
    model.displayName = object.value("display_name").toString();
    model.sizeBytes = object.value("size_bytes").toInteger();
    model.maxContextLength = object.value("max_context_length").toInteger();
    bool ok = true;
    model.architecture = optionalString(object, "architecture", &ok);
    model.paramsString = optionalString(object, "params_string", &ok);
    model.format = optionalString(object, "format", &ok);
    model.description = optionalString(object, "description", &ok);
    const QJsonValue quantization = object.value("quantization");
    if (quantization.isObject()) {
        model.quantizationName = optionalString(quantization.toObject(), "name", &ok);
        const QJsonValue bits = quantization.toObject().value("bits_per_weight");
        if (bits.isDouble())
            model.bitsPerWeight = bits.toDouble();
        else if (!bits.isUndefined() && !bits.isNull())
            ok = false;
    } else if (!quantization.isUndefined() && !quantization.isNull()) {
        ok = false;
    }
    const QJsonValue capabilities = object.value("capabilities");
    if (capabilities.isObject()) {
        const QJsonObject caps = capabilities.toObject();
        if (!caps.value("vision").isBool() || !caps.value("trained_for_tool_use").isBool())
            return std::nullopt;
        model.vision = caps.value("vision").toBool();
        model.trainedForToolUse = caps.value("trained_for_tool_use").toBool();
    } else if (!capabilities.isUndefined() && !capabilities.isNull()) {
        ok = false;
    }
    for (const QJsonValue &value : object.value("loaded_instances").toArray()) {
        const QJsonObject instance = value.toObject();
        const std::optional<LMSInstanceConfig> config =
            LMSInstanceConfig::fromJson(instance.value("config").toObject());
        if (!instance.value("id").isString() || !instance.value("config").isObject() || !config)
            return std::nullopt;
        model.loadedInstances.append({instance.value("id").toString(), *config});
    }
    if (!ok)
        return std::nullopt;
    return model;
}
