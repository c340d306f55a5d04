#pragma once

#include <QJsonObject>
#include <optional>

// The figures of one answer, whatever the provider. The cloud providers fill only the token
// counts; the rates stay 0 and the load time absent.
struct AIChatStats {
    qint64 inputTokens = 0;
    qint64 totalOutputTokens = 0;
    qint64 reasoningOutputTokens = 0;
    double tokensPerSecond = 0;
    double timeToFirstTokenSeconds = 0;
    std::optional<double> modelLoadTimeSeconds;

    // Keys equal to the field names; the load time is left out when absent.
    QJsonObject toJson() const;
    // Nothing when a required field is missing or not a number.
    static std::optional<AIChatStats> fromJson(const QJsonObject &object);
    bool operator==(const AIChatStats &) const = default;
};
