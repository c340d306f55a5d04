#pragma once

#include "chat/service/AIChatStats.h"

#include <QString>
#include <optional>

// One finished answer, whatever the provider.
struct AIChatResponse {
    std::optional<QString> id; // the response id; Gemini gives none
    QString messageText;
    std::optional<AIChatStats> stats; // every provider path sets it, zero counts without a usage block

    bool operator==(const AIChatResponse &) const = default;
};
