#include "engine/MCPHttpPolicy.h"

#include "engine/AsciiText.h"

#include <algorithm>
#include <sys/resource.h>

namespace MCP {

namespace {

// "host" or "host:port" with a decimal port; the host part returned, or nothing.
bool splitHostPort(std::string_view authority, std::string_view &host)
{
    size_t portStart = std::string_view::npos;
    if (authority.starts_with('[')) {
        const size_t close = authority.find(']');
        if (close == std::string_view::npos)
            return false;
        host = authority.substr(0, close + 1);
        if (close + 1 < authority.size()) {
            if (authority[close + 1] != ':')
                return false;
            portStart = close + 2;
        }
    } else {
        const size_t colon = authority.find(':');
        host = authority.substr(0, colon);
        if (colon != std::string_view::npos)
            portStart = colon + 1;
    }
    if (portStart == std::string_view::npos)
        return true;
    const std::string_view port = authority.substr(portStart);
    return !port.empty() && port.size() <= 5 && std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isLoopbackName(std::string_view host)
{
    return host == "localhost" || host == "127.0.0.1" || host == "[::1]";
}

std::string_view withoutTrailingSlash(std::string_view text)
{
    while (text.ends_with('/'))
        text.remove_suffix(1);
    return text;
}

}  // namespace

bool MCPHttpPolicy::isLoopbackOrigin(std::string_view origin)
{
    const std::string text = asciiLowered(withoutTrailingSlash(origin));
    std::string_view rest(text);
    if (rest.starts_with("http://"))
        rest.remove_prefix(7);
    else if (rest.starts_with("https://"))
        rest.remove_prefix(8);
    else
        return false;
    std::string_view host;
    return splitHostPort(rest, host) && isLoopbackName(host);
}

bool MCPHttpPolicy::isLoopbackHost(std::string_view hostHeader)
{
    const std::string text = asciiLowered(hostHeader);
    std::string_view host;
    return splitHostPort(text, host) && isLoopbackName(host);
}

bool MCPHttpPolicy::originAllowed(std::string_view origin) const
{
    if (isLoopbackOrigin(origin))
        return true;
    const std::string wanted = asciiLowered(withoutTrailingSlash(origin));
    return std::any_of(allowedOrigins.begin(), allowedOrigins.end(), [&](const std::string &allowed) {
        return allowed == "*" || asciiLowered(withoutTrailingSlash(allowed)) == wanted;
    });
}

bool MCPHttpPolicy::authorizationAccepted(std::string_view authorization) const
{
    if (bearerToken.empty())
        return true;
    // The scheme's name is case-insensitive; the token is compared in full whatever the
    // first difference, so the time taken tells nothing about it.
    if (authorization.size() < 7 || asciiLowered(authorization.substr(0, 7)) != "bearer ")
        return false;
    std::string_view given = authorization.substr(7);
    while (!given.empty() && given.front() == ' ')
        given.remove_prefix(1);
    unsigned char difference = given.size() == bearerToken.size() ? 0 : 1;
    for (size_t i = 0; i < bearerToken.size(); ++i)
        difference |= static_cast<unsigned char>(bearerToken[i] ^ (i < given.size() ? given[i] : 0));
    return difference == 0;
}

size_t MCPHttpPolicy::connectionCap() const
{
    if (maxConnections > 0)
        return maxConnections;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return 4096;
    // Half of what is left after a reserve for the process itself: a connection may cost
    // a tool's file or process besides its socket.
    const size_t open = static_cast<size_t>(limit.rlim_cur);
    return std::max<size_t>(8, open > 64 ? (open - 64) / 2 : 8);
}

size_t MCPHttpPolicy::peerConnectionCap() const
{
    if (maxConnectionsPerPeer > 0)
        return maxConnectionsPerPeer;
    // Room for a client that opens several connections at once, while one address alone
    // cannot take every connection from the others.
    return std::max<size_t>(8, connectionCap() / 4);
}

}  // namespace MCP
