#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace MCP {

struct MCPServerConfig {
    uint16_t port = 8888;
    std::string name = "kelvara";
    std::string title = "Kelvara Server";
    std::string version = "1.0.1";
    std::optional<std::string> instructions = std::string("Kelvara Server");
    bool listenAtAll = false;
};

}  // namespace MCP
