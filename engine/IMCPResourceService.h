#pragma once

#include "engine/MCPTypes.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MCP {

// The registry of resources, keyed by URI. Every operation may be called from any thread,
// also while the server runs. Registering a URI that is already there replaces it; each
// change calls the list-changed callback. readResource calls the resource's provider under
// the registry's lock (one read at a time), and answers a provider that throws with the
// definition and its data.error naming the error. findResource matches a URI as given, or
// else after the normalisation of the URL standard (normalisedUri), so that
// "https://Host" and "https://host/" name the same resource.
class IMCPResourceService {
public:
    virtual ~IMCPResourceService() = default;
    virtual void registerResource(const ResourceDefinition &definition) = 0;
    virtual void unregisterResource(const std::string &uri) = 0;
    virtual void clearResources() = 0;
    virtual std::optional<ResourceDefinition> findResource(const std::string &uri) = 0;
    virtual std::optional<ResourceDefinition> findResourceByName(const std::string &name) = 0;
    // The first template resource (in URI order) whose template matches the URI: a copy
    // with `uri` the URI, `uriTemplate` the template and the variables filled in.
    virtual std::optional<ResourceDefinition> matchTemplate(const std::string &uri) = 0;

    // Scheme and host in lower case, a default port dropped, and for the schemes of the web
    // (http, https, ws, wss, ftp, file) an empty path as "/". Other URIs keep all but the
    // scheme's case.
    static std::string normalisedUri(std::string_view uri);
    virtual ResourceDefinition readResource(const ResourceDefinition &definition) = 0;
    virtual std::vector<ResourceDefinition> listResources() = 0;
    virtual void setListChangedCallback(std::function<void()> callback) = 0;
    virtual void notifyListChanged() = 0;
};

}  // namespace MCP
