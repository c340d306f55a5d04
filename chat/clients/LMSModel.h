#pragma once

#include "chat/clients/LMSInstanceConfig.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

// One entry of LM Studio's model list, with its loaded instances.
struct LMSModel {
    struct Instance {
        QString id;
        LMSInstanceConfig config;
        bool operator==(const Instance &) const = default;
    };

    QString type;  // "llm" or "embedding"
    QString publisher;
    QString key;   // the id every other call uses
    QString displayName;
    std::optional<QString> architecture;
    std::optional<QString> quantizationName;
    std::optional<double> quantizationBitsPerWeight;
    qint64 sizeBytes = 0;
    std::optional<QString> paramsString;
    QList<Instance> loadedInstances;
    qint64 maxContextLength = 0;
    std::optional<QString> format;
    std::optional<bool> vision;             // with trainedForToolUse: the capabilities, when given
    std::optional<bool> trainedForToolUse;
    std::optional<QString> description;

    // The required keys present with their types ("llm" or "embedding" for type), else nothing.
    static std::optional<LMSModel> fromJson(const QJsonObject &object);
    bool operator==(const LMSModel &) const = default;
};
