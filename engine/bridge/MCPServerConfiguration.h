#pragma once

#include "engine/bridge/MCPServerInfo.h"

#include <QString>
#include <cstdint>
#include <optional>

struct MCPServerConfiguration {
    uint16_t port = 8888;
    MCPServerInfo serverInfo;
    std::optional<QString> instructions;  // absent: the initialize answer has none
};
