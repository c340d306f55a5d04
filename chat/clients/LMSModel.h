#pragma once

#include "chat/clients/LMSInstanceConfig.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

// One entry of LM Studio's model list. `key` is the id every other call takes.
struct LMSModel {
    struct Instance {
        QString id;
        LMSInstanceConfig config;
        bool operator==(const Instance &) const = default;
    };

    QString type; // "llm" or "embedding"
    QString publisher;
    QString key;
    QString displayName;
    std::optional<QString> architecture;
    std::optional<QString> quantizationName;
    std::optional<double> bitsPerWeight;
    qint64 sizeBytes = 0;
    std::optional<QString> paramsString;
    QList<Instance> loadedInstances;
    qint64 maxContextLength = 0;
    std::optional<QString> format;
    std::optional<bool> vision;
    std::optional<bool> trainedForToolUse;
    std::optional<QString> description;

    // Nothing when a required field is missing or mistyped, or the type is neither kind.
    static std::optional<LMSModel> fromJson(const QJsonObject &object);
    bool operator==(const LMSModel &) const = default;
};
