#pragma once

#include "chat/service/AIProvider.h"

#include <QHash>
#include <QString>
#include <optional>

// One model as the model list shows it, whatever the provider.
struct AIModel {
    QString id;   // sent as the model on the wire
    QString name; // shown in the list
    AIProviderID provider = AIProviderID::lmStudio;
    bool isLoaded = false; // only an LM Studio model with a loaded instance
    std::optional<double> temperature;
    std::optional<qint64> maxOutputTokens;

    bool operator==(const AIModel &) const = default;
};

size_t qHash(const AIModel &model, size_t seed = 0) noexcept;
