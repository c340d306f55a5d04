#pragma once

#include "engine/IMCPResourceService.h"
#include "engine/ListChangedNotifier.h"

#include <atomic>
#include <map>
#include <mutex>

namespace MCP {

// The resource registry. Providers run under the lock, so reads are serialised.
class MCPResourceService : public IMCPResourceService {
public:
    void registerResource(const ResourceDefinition &definition) override;
    void unregisterResource(const std::string &uri) override;
    void clearResources() override;
    // The lookups take the lock as well (see MCPToolService::findTool).
    std::optional<ResourceDefinition> findResource(const std::string &uri) override;
    std::optional<ResourceDefinition> findResourceByName(const std::string &name) override;
    ResourceDefinition readResource(const ResourceDefinition &definition) override;
    std::vector<ResourceDefinition> listResources() override;
    void setListChangedCallback(std::function<void()> callback) override;
    void notifyListChanged() override;

    void setMainQueuePoster(MainQueuePoster poster) { m_notifier.setMainQueuePoster(std::move(poster)); }
    size_t count();

    // Changes with every registration, removal and clearing: a list built at one revision
    // is the list for as long as the revision stays.
    uint64_t revision() const { return m_revision.load(); }

private:
    std::map<std::string, ResourceDefinition> m_resources;
    ListChangedNotifier m_notifier;
    std::mutex m_mutex;
    std::atomic<uint64_t> m_revision{0};
};

}  // namespace MCP
