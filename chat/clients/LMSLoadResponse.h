#pragma once

#include "chat/clients/LMSInstanceConfig.h"

#include <QJsonObject>
#include <QString>
#include <optional>

// What LM Studio says after loading a model.
struct LMSLoadResponse {
    QString type;
    QString instanceId;
    double loadTimeSeconds = 0;
    QString status;
    std::optional<LMSInstanceConfig> loadConfig;

    static std::optional<LMSLoadResponse> fromJson(const QJsonObject &object);
};
