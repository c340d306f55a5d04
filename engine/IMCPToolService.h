#pragma once

#include "engine/MCPTypes.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace MCP {

// The registry of tools. Every operation may be called from any thread, also while the
// server runs: a tools/call on a worker sees the registry as it is at that moment.
// Registering a name that is already there replaces its definition. Each change of the
// list calls the list-changed callback (on the main queue when the server has a poster).
// callTool runs the tool's handler outside the registry's lock, so tools run side by side
// and a handler may itself register or unregister; it never throws: a missing tool, a
// handler without result or one that throws gives an error object as the result.
class IMCPToolService {
public:
    virtual ~IMCPToolService() = default;
    virtual void registerTool(const ToolDefinition &definition) = 0;
    virtual void unregisterTool(const std::string &name) = 0;
    virtual void clearTools() = 0;
    virtual JSONValue callTool(const std::string &name, const JSONValue &arguments, const ToolCallContext &call = {}) = 0;
    virtual std::vector<ToolDefinition> listTools() = 0;
    virtual std::optional<ToolDefinition> findTool(const std::string &name) = 0;
    virtual void setListChangedCallback(std::function<void()> callback) = 0;
    virtual void notifyListChanged() = 0;
};

}  // namespace MCP
