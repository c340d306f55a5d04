#pragma once

#include "tools/router/AnyCodable.h"

#include <QString>
#include <optional>

// A JSON-RPC style error of the application layer.
struct MCPError {
    int code = 0;
    QString message;
    std::optional<AnyCodable> data;

    static MCPError unableToSaveServerConfiguration() { return {-32605, QStringLiteral("Unable to save server configuration"), {}}; }
    static MCPError unableToFindServerConfiguration() { return {-32607, QStringLiteral("Unable to find server configuration"), {}}; }
};
