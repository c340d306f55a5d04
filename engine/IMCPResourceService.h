#pragma once

#include "engine/MCPTypes.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace MCP {

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
