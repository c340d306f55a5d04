#include "chat/clients/LMSLoadResponse.h"

#include <QJsonValue>

std::optional<LMSLoadResponse> LMSLoadResponse::fromJson(const QJsonObject &object)
{
    const QString type = object.value("type").toString();
    if ((type != QLatin1String("llm") && type != QLatin1String("embedding")) || !object.value("instance_id").isString()
        || !object.value("load_time_seconds").isDouble() || !object.value("status").isString())
        return std::nullopt;
    LMSLoadResponse response{type, object.value("instance_id").toString(), object.value("load_time_seconds").toDouble(),
                             object.value("status").toString(), std::nullopt};
    const QJsonValue config = object.value("load_config");
    if (config.isObject()) {
        response.loadConfig = LMSInstanceConfig::fromJson(config.toObject());
        if (!response.loadConfig)
            return std::nullopt;
    } else if (!config.isUndefined() && !config.isNull()) {
        return std::nullopt;
    }
    return response;
}
