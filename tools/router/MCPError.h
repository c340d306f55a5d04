#pragma once

#include "base/AnyCodable.h"

#include <QString>
#include <optional>

// A JSON-RPC style error of the application layer.
struct MCPError {
    int code = 0;
    QString message;
    std::optional<AnyCodable> data;

    static MCPError unableToSaveServerConfiguration() { return {-32605, QStringLiteral("Unable to save server configuration"), {}}; }
    static MCPError unableToFindServerConfiguration() { return {-32607, QStringLiteral("Unable to find server configuration"), {}}; }

    // The error has no text of its own for people; this is the general form a platform
    // gives such an error value, with the code and message added so that the reason is
    // not lost: "The operation couldn’t be completed. (MCPError -32605: Unable to save
    // server configuration)".
    QString localizedDescription() const
    {
        return QStringLiteral("The operation couldn\u2019t be completed. (MCPError %1: %2)").arg(code).arg(message);
    }
};
