#pragma once

#include "engine/MCPTypes.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace MCP {

class IMCPToolService {
public:
    virtual ~IMCPToolService() = default;
    virtual void registerTool(const ToolDefinition &definition) = 0;
    virtual void unregisterTool(const std::string &name) = 0;
    virtual void clearTools() = 0;
    virtual JSONValue callTool(const std::string &name, const JSONValue &arguments) = 0;
    virtual std::vector<ToolDefinition> listTools() = 0;
    virtual std::optional<ToolDefinition> findTool(const std::string &name) = 0;
    virtual void setListChangedCallback(std::function<void()> callback) = 0;
    virtual void notifyListChanged() = 0;
};

}  // namespace MCP
