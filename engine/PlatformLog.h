#pragma once

#include <string_view>

namespace MCP {

// The engine's fallback log when no callback is installed: one line on stderr.
class PlatformLog {
public:
    static void write(std::string_view line);
};

}  // namespace MCP
