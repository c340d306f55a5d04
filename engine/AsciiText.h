#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace MCP {

// ASCII letters in lower case, every other byte as it is: for the case-insensitive parts of
// HTTP and URLs (header names, schemes, hosts), which are ASCII by definition.
inline std::string asciiLowered(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
    return out;
}

}  // namespace MCP
