#include "engine/MCPToolService.h"

#include <stdexcept>

namespace MCP {

static JSONValue errorObject(std::string text)
{
    JSONValue result;
    result["error"] = JSONValue(std::move(text));
    return result;
}

JSONValue MCPToolService::callTool(const std::string &name, const JSONValue &arguments, const ToolCallContext &call)
{
    // Only the handler is copied under the lock; it runs after the lock is released.
    const std::optional<ToolHandler> handler = m_tools.withLock([&](const auto &tools) -> std::optional<ToolHandler> {
        auto it = tools.find(name);
        if (it == tools.end())
            return std::nullopt;
        return it->second.handler;
    });
    if (!handler)
        return errorObject("Tool not found: " + name);
    try {
        if (!*handler)
            return errorObject("Tool does not response any JSON object");
        std::optional<JSONValue> value = (*handler)(arguments, call);
        if (!value)
            return errorObject("Tool does not response any JSON object");
        return std::move(*value);
    } catch (const std::exception &e) {
        return errorObject(std::string("Tool execution failed: ") + e.what());
    }
}

}  // namespace MCP
