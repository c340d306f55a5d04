#include "chat/clients/LMSLoadResponse.h"

std::optional<LMSLoadResponse> LMSLoadResponse::fromJson(const QJsonObject &object)
{
    const QJsonValue type = object.value(QStringLiteral("type"));
    const QJsonValue id = object.value(QStringLiteral("instance_id"));
    const QJsonValue time = object.value(QStringLiteral("load_time_seconds"));
    const QJsonValue status = object.value(QStringLiteral("status"));
    if (!type.isString() || (type.toString() != QLatin1String("llm") && type.toString() != QLatin1String("embedding")) ||
        !id.isString() || !time.isDouble() || !status.isString())
        return std::nullopt;
    LMSLoadResponse response{type.toString(), id.toString(), time.toDouble(), status.toString(), std::nullopt};
    if (const QJsonValue config = object.value(QStringLiteral("load_config")); config.isObject()) {
        response.loadConfig = LMSInstanceConfig::fromJson(config.toObject());
        if (!response.loadConfig)
            return std::nullopt;
    }
    return response;
}
