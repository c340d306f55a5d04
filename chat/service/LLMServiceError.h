#pragma once

#include "chat/service/AIProvider.h"

#include <QString>

// What the chat service throws when a provider lacks a feature (loading, unloading, download).
struct LLMServiceError {
    AIProviderID provider;
    QString feature; // "model loading", "model unloading", "model download", "download status"

    // "ChatGPT (OpenAI) does not support model loading."
    QString description() const;
};
