#include "chat/service/AIChatStats.h"

#include <QJsonValue>

QJsonObject AIChatStats::toJson() const
{
    QJsonObject object{{"inputTokens", inputTokens},
                       {"totalOutputTokens", totalOutputTokens},
                       {"reasoningOutputTokens", reasoningOutputTokens},
                       {"tokensPerSecond", tokensPerSecond},
                       {"timeToFirstTokenSeconds", timeToFirstTokenSeconds}};
    if (modelLoadTimeSeconds)
        object.insert("modelLoadTimeSeconds", *modelLoadTimeSeconds);
    return object;
}

std::optional<AIChatStats> AIChatStats::fromJson(const QJsonObject &object)
{
    for (const char *key : {"inputTokens", "totalOutputTokens", "reasoningOutputTokens", "tokensPerSecond",
                            "timeToFirstTokenSeconds"})
        if (!object.value(QLatin1String(key)).isDouble())
            return std::nullopt;
    AIChatStats stats;
    stats.inputTokens = object.value("inputTokens").toInteger();
    stats.totalOutputTokens = object.value("totalOutputTokens").toInteger();
    stats.reasoningOutputTokens = object.value("reasoningOutputTokens").toInteger();
    stats.tokensPerSecond = object.value("tokensPerSecond").toDouble();
    stats.timeToFirstTokenSeconds = object.value("timeToFirstTokenSeconds").toDouble();
    const QJsonValue load = object.value("modelLoadTimeSeconds");
    if (load.isDouble())
        stats.modelLoadTimeSeconds = load.toDouble();
    else if (!load.isUndefined() && !load.isNull())
        return std::nullopt;
    return stats;
}
