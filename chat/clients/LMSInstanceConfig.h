#pragma once

#include <QJsonObject>
#include <optional>

// How a model instance is set up, as the model list and a load's echo give it: the context
// length always, the others when the server says them.
struct LMSInstanceConfig {
    qint64 contextLength = 0;
    std::optional<qint64> evalBatchSize;
    std::optional<bool> flashAttention;
    std::optional<qint64> numExperts;
    std::optional<bool> offloadKvCacheToGpu;

    // Nothing when context_length is missing or an optional field has the wrong type.
    static std::optional<LMSInstanceConfig> fromJson(const QJsonObject &object);
    bool operator==(const LMSInstanceConfig &) const = default;
};
