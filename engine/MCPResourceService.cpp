#include "engine/MCPResourceService.h"

#include "engine/AsciiText.h"
#include "engine/UriTemplate.h"

#include <algorithm>

namespace MCP {

std::string IMCPResourceService::normalisedUri(std::string_view uri)
{
    const size_t colon = uri.find(':');
    if (colon == std::string_view::npos || colon == 0)
        return std::string(uri);
    const std::string scheme = asciiLowered(uri.substr(0, colon));
    if (!std::all_of(scheme.begin(), scheme.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
        }))
        return std::string(uri);
    std::string_view rest = uri.substr(colon + 1);
    if (!rest.starts_with("//"))
        return scheme + ":" + std::string(rest);
    rest.remove_prefix(2);
    const size_t authorityEnd = std::min(rest.find_first_of("/?#"), rest.size());
    std::string_view authority = rest.substr(0, authorityEnd);
    std::string_view tail = rest.substr(authorityEnd);

    // user:pass@ keeps its case; the host does not.
    std::string userInfo;
    if (const size_t at = authority.rfind('@'); at != std::string_view::npos) {
        userInfo = std::string(authority.substr(0, at + 1));
        authority.remove_prefix(at + 1);
    }
    std::string host = asciiLowered(authority);
    static const std::pair<const char *, const char *> defaultPorts[] = {
        {"http", ":80"}, {"https", ":443"}, {"ws", ":80"}, {"wss", ":443"}, {"ftp", ":21"}};
    for (const auto &[name, port] : defaultPorts)
        if (scheme == name && host.ends_with(port) && host.size() > std::string_view(port).size())
            host.resize(host.size() - std::string_view(port).size());
    const bool web = scheme == "http" || scheme == "https" || scheme == "ws" || scheme == "wss" || scheme == "ftp" ||
                     scheme == "file";
    std::string out = scheme + "://" + userInfo + host;
    if (web && (tail.empty() || tail.front() != '/'))
        out += '/';
    out += tail;
    return out;
}

std::optional<ResourceDefinition> MCPResourceService::findResource(const std::string &uri)
{
    return m_resources.withLock([&](const auto &resources) -> std::optional<ResourceDefinition> {
        if (auto it = resources.find(uri); it != resources.end())
            return it->second;
        const std::string wanted = normalisedUri(uri);
        for (const auto &[key, definition] : resources)
            if (normalisedUri(key) == wanted)
                return definition;
        return std::nullopt;
    });
}

std::optional<ResourceDefinition> MCPResourceService::findResourceByName(const std::string &name)
{
    return m_resources.withLock([&](const auto &resources) -> std::optional<ResourceDefinition> {
        for (const auto &[uri, definition] : resources)
            if (definition.name == name)
                return definition;
        return std::nullopt;
    });
}

std::optional<ResourceDefinition> MCPResourceService::matchTemplate(const std::string &uri)
{
    return m_resources.withLock([&](const auto &resources) -> std::optional<ResourceDefinition> {
        for (const auto &[key, definition] : resources) {
            if (definition.type != "template")
                continue;
            if (auto values = UriTemplate::match(key, uri)) {
                ResourceDefinition found = definition;
                found.uriTemplate = key;
                found.uri = uri;
                found.variables = std::move(*values);
                return found;
            }
        }
        return std::nullopt;
    });
}

ResourceDefinition MCPResourceService::readResource(const ResourceDefinition &definition)
{
    return m_resources.withLock([&](const auto &) -> ResourceDefinition {
        try {
            if (!definition.provider)
                return definition;
            return definition.provider(definition);
        } catch (const std::exception &e) {
            ResourceDefinition failed = definition;
            failed.data = ResourceData{};
            failed.data.error = std::string("Error reading resource: ") + e.what();
            return failed;
        }
    });
}

}  // namespace MCP
