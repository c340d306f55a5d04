#include "chat/clients/LMSChatStats.h"

#include <QJsonValue>

std::optional<LMSChatStats> LMSChatStats::fromJson(const QJsonObject &object)
{
    auto number = [&](const char *key) { return object.value(QLatin1String(key)); };
    for (const char *key : {"input_tokens", "total_output_tokens", "reasoning_output_tokens", "tokens_per_second",
                            "time_to_first_token_seconds"})
        if (!number(key).isDouble())
            return std::nullopt;
    LMSChatStats stats;
    stats.inputTokens = number("input_tokens").toInteger();
    stats.totalOutputTokens = number("total_output_tokens").toInteger();
    stats.reasoningOutputTokens = number("reasoning_output_tokens").toInteger();
    stats.tokensPerSecond = number("tokens_per_second").toDouble();
    stats.timeToFirstTokenSeconds = number("time_to_first_token_seconds").toDouble();
    if (number("model_load_time_seconds").isDouble())
        stats.modelLoadTimeSeconds = number("model_load_time_seconds").toDouble();
    else if (!number("model_load_time_seconds").isUndefined() && !number("model_load_time_seconds").isNull())
        return std::nullopt;
    return stats;
}
