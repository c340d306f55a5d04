#include "chat/clients/LMSInstanceConfig.h"

std::optional<LMSInstanceConfig> LMSInstanceConfig::fromJson(const QJsonObject &object)
{
    if (!object.value(QStringLiteral("context_length")).isDouble())
        return std::nullopt;
    LMSInstanceConfig config;
    config.contextLength = object.value(QStringLiteral("context_length")).toInteger();
    bool wellTyped = true;
    auto integer = [&](const char *key, std::optional<qint64> &into) {
        const QJsonValue value = object.value(QLatin1String(key));
        if (value.isDouble())
            into = value.toInteger();
        else if (!value.isUndefined() && !value.isNull())
            wellTyped = false;
    };
    auto flag = [&](const char *key, std::optional<bool> &into) {
        const QJsonValue value = object.value(QLatin1String(key));
        if (value.isBool())
            into = value.toBool();
        else if (!value.isUndefined() && !value.isNull())
            wellTyped = false;
    };
    integer("eval_batch_size", config.evalBatchSize);
    flag("flash_attention", config.flashAttention);
    integer("num_experts", config.numExperts);
    flag("offload_kv_cache_to_gpu", config.offloadKvCacheToGpu);
    if (!wellTyped)
        return std::nullopt;
    return config;
}
