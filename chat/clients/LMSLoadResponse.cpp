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
        if (!config.toObject().value("context_length").isDouble())
            return std::nullopt;
        response.contextLength = config.toObject().value("context_length").toInteger();
    } else if (!config.isUndefined() && !config.isNull()) {
        return std::nullopt;
    }
    return response;
}
