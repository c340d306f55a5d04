#pragma once

#include "engine/IMCPResourceService.h"
#include "engine/Registry.h"

namespace MCP {

// The resource registry. Providers run under the lock, so reads are serialised.
class MCPResourceService : public IMCPResourceService {
public:
    void registerResource(const ResourceDefinition &definition) override { m_resources.put(definition); }
    void unregisterResource(const std::string &uri) override { m_resources.remove(uri); }
    void clearResources() override { m_resources.clear(); }
    // The lookups take the lock as well (see MCPToolService::findTool).
    std::optional<ResourceDefinition> findResource(const std::string &uri) override;
    std::optional<ResourceDefinition> findResourceByName(const std::string &name) override;
    ResourceDefinition readResource(const ResourceDefinition &definition) override;
    std::vector<ResourceDefinition> listResources() override { return m_resources.list(); }
    void setListChangedCallback(std::function<void()> callback) override
    {
        m_resources.setListChangedCallback(std::move(callback));
    }
    void notifyListChanged() override { m_resources.notifyListChanged(); }

    void setMainQueuePoster(MainQueuePoster poster) { m_resources.setMainQueuePoster(std::move(poster)); }
    // Told of every change on the changing thread, beside the callback (the server's own).
    void setListObserver(std::function<void()> observer) { m_resources.setListObserver(std::move(observer)); }
    size_t count() { return m_resources.count(); }
    uint64_t revision() const { return m_resources.revision(); }

private:
    Registry<ResourceDefinition, &ResourceDefinition::uri> m_resources;
};

}  // namespace MCP
