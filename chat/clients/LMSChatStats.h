#pragma once

#include <QJsonObject>
#include <optional>

// The figures of one LM Studio chat reply.
struct LMSChatStats {
    qint64 inputTokens = 0;
    qint64 totalOutputTokens = 0;
    qint64 reasoningOutputTokens = 0;
    double tokensPerSecond = 0;
    double timeToFirstTokenSeconds = 0;
    std::optional<double> modelLoadTimeSeconds;

    // Every field but the load time is required; nothing when one is missing or mistyped.
    static std::optional<LMSChatStats> fromJson(const QJsonObject &object);
    bool operator==(const LMSChatStats &) const = default;
};
