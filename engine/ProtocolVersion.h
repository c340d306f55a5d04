#pragma once

#include <array>
#include <string_view>

namespace MCP {

// The MCP protocol revisions this server speaks, newest first. `initialize` answers the
// client's revision when it is one of them, else the newest; over HTTP a request that names
// another in MCP-Protocol-Version is refused.
namespace ProtocolVersion {

constexpr std::array<std::string_view, 3> supported{"2025-11-25", "2025-06-18", "2025-03-26"};
constexpr std::string_view latest = supported.front();

constexpr bool isSupported(std::string_view version)
{
    for (std::string_view known : supported) {
        if (known == version)
            return true;
    }
    return false;
}

// What initialize answers to a client that asks for `requested`.
constexpr std::string_view negotiate(std::string_view requested)
{
    return isSupported(requested) ? requested : latest;
}

}  // namespace ProtocolVersion

}  // namespace MCP
