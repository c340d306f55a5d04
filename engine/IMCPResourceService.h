#pragma once

#include "engine/MCPTypes.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace MCP {

// The registry of resources, keyed by URI. Every operation may be called from any thread,
// also while the server runs. Registering a URI that is already there replaces it; each
// change calls the list-changed callback. readResource calls the resource's provider under
// the registry's lock (one read at a time), and answers a provider that throws with a
// text/plain resource naming the error.
class IMCPResourceService {
public:
    virtual ~IMCPResourceService() = default;
    virtual void registerResource(const ResourceDefinition &definition) = 0;
    virtual void unregisterResource(const std::string &uri) = 0;
    virtual void clearResources() = 0;
    virtual std::optional<ResourceDefinition> findResource(const std::string &uri) = 0;
    virtual std::optional<ResourceDefinition> findResourceByName(const std::string &name) = 0;
    virtual ResourceDefinition readResource(const ResourceDefinition &definition) = 0;
    virtual std::vector<ResourceDefinition> listResources() = 0;
    virtual void setListChangedCallback(std::function<void()> callback) = 0;
    virtual void notifyListChanged() = 0;
};

}  // namespace MCP
