#pragma once

#include <QJsonObject>
#include <optional>

// How a loaded model instance is set up; in a load request only what is set goes out.
struct LMSInstanceConfig {
    std::optional<qint64> contextLength;  // required when read from the server
    std::optional<qint64> evalBatchSize;
    std::optional<bool> flashAttention;
    std::optional<qint64> numExperts;
    std::optional<bool> offloadKvCacheToGpu;

    // context_length required; each optional one read when present with its type.
    static std::optional<LMSInstanceConfig> fromJson(const QJsonObject &object);
    // Only the fields that are set, under their snake-case keys.
    void writeTo(QJsonObject &object) const;
    bool operator==(const LMSInstanceConfig &) const = default;
};
