#pragma once

#include "chat/clients/LMSInstanceConfig.h"

#include <QJsonObject>
#include <QString>
#include <optional>

// LM Studio's answer to a load: the new instance and how long it took.
struct LMSLoadResponse {
    QString type;
    QString instanceId;
    double loadTimeSeconds = 0;
    QString status;
    std::optional<LMSInstanceConfig> loadConfig; // when the server echoes how it loaded

    static std::optional<LMSLoadResponse> fromJson(const QJsonObject &object);
    bool operator==(const LMSLoadResponse &) const = default;
};
