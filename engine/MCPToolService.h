#pragma once

#include "engine/IMCPToolService.h"
#include "engine/ListChangedNotifier.h"

#include <atomic>
#include <map>
#include <mutex>

namespace MCP {

// The tool registry. A tool's handler runs outside the lock, so tools run in parallel.
// Every failure of a call becomes a plain result object with an `error` member.
class MCPToolService : public IMCPToolService {
public:
    void registerTool(const ToolDefinition &definition) override;
    void unregisterTool(const std::string &name) override;
    void clearTools() override;
    JSONValue callTool(const std::string &name, const JSONValue &arguments) override;
    std::vector<ToolDefinition> listTools() override;
    // Takes the lock too: the registry is meant to change only while the server is
    // stopped, but a lookup that races a registration must not corrupt the map.
    std::optional<ToolDefinition> findTool(const std::string &name) override;
    void setListChangedCallback(std::function<void()> callback) override;
    void notifyListChanged() override;

    void setMainQueuePoster(MainQueuePoster poster) { m_notifier.setMainQueuePoster(std::move(poster)); }
    size_t count();

    // Changes with every registration, removal and clearing: a list built at one revision
    // is the list for as long as the revision stays.
    uint64_t revision() const { return m_revision.load(); }

private:
    std::map<std::string, ToolDefinition> m_tools;
    ListChangedNotifier m_notifier;
    std::mutex m_mutex;
    std::atomic<uint64_t> m_revision{0};
};

}  // namespace MCP
