#pragma once

#include "engine/IMCPToolService.h"
#include "engine/Registry.h"

namespace MCP {

// The tool registry. A tool's handler runs outside the lock, so tools run in parallel.
// Every failure of a call becomes a plain result object with an `error` member.
class MCPToolService : public IMCPToolService {
public:
    void registerTool(const ToolDefinition &definition) override { m_tools.put(definition); }
    void unregisterTool(const std::string &name) override { m_tools.remove(name); }
    void clearTools() override { m_tools.clear(); }
    JSONValue callTool(const std::string &name, const JSONValue &arguments, const ToolCallContext &call = {}) override;
    std::vector<ToolDefinition> listTools() override { return m_tools.list(); }
    // Takes the lock too: the registry is meant to change only while the server is
    // stopped, but a lookup that races a registration must not corrupt the map.
    std::optional<ToolDefinition> findTool(const std::string &name) override { return m_tools.find(name); }
    void setListChangedCallback(std::function<void()> callback) override { m_tools.setListChangedCallback(std::move(callback)); }
    void notifyListChanged() override { m_tools.notifyListChanged(); }

    void setMainQueuePoster(MainQueuePoster poster) { m_tools.setMainQueuePoster(std::move(poster)); }
    // Told of every change on the changing thread, beside the callback (the server's own).
    void setListObserver(std::function<void()> observer) { m_tools.setListObserver(std::move(observer)); }
    size_t count() { return m_tools.count(); }
    uint64_t revision() const { return m_tools.revision(); }

private:
    Registry<ToolDefinition, &ToolDefinition::name> m_tools;
};

}  // namespace MCP
