#include "chat/clients/LMSInstanceConfig.h"

std::optional<LMSInstanceConfig> LMSInstanceConfig::fromJson(const QJsonObject &object)
{
    if (!object.value(QStringLiteral("context_length")).isDouble())
        return std::nullopt;
    LMSInstanceConfig config;
    config.contextLength = object.value(QStringLiteral("context_length")).toInteger();
    auto integer = [&](const char *key, std::optional<qint64> &into) {
        if (object.value(QLatin1String(key)).isDouble())
            into = object.value(QLatin1String(key)).toInteger();
    };
    auto flag = [&](const char *key, std::optional<bool> &into) {
        if (object.value(QLatin1String(key)).isBool())
            into = object.value(QLatin1String(key)).toBool();
    };
    integer("eval_batch_size", config.evalBatchSize);
    flag("flash_attention", config.flashAttention);
    integer("num_experts", config.numExperts);
    flag("offload_kv_cache_to_gpu", config.offloadKvCacheToGpu);
    return config;
}

void LMSInstanceConfig::writeTo(QJsonObject &object) const
{
    if (contextLength)
        object.insert(QStringLiteral("context_length"), *contextLength);
    if (evalBatchSize)
        object.insert(QStringLiteral("eval_batch_size"), *evalBatchSize);
    if (flashAttention)
        object.insert(QStringLiteral("flash_attention"), *flashAttention);
    if (numExperts)
        object.insert(QStringLiteral("num_experts"), *numExperts);
    if (offloadKvCacheToGpu)
        object.insert(QStringLiteral("offload_kv_cache_to_gpu"), *offloadKvCacheToGpu);
}
