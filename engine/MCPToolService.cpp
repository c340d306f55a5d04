#include "engine/MCPToolService.h"

#include "engine/JSONParser.h"

#include <stdexcept>

namespace MCP {

void MCPToolService::registerTool(const ToolDefinition &definition)
{
    {
        std::lock_guard lock(m_mutex);
        m_tools.insert_or_assign(definition.name, definition);
        ++m_revision;
    }
    notifyListChanged();
}

void MCPToolService::unregisterTool(const std::string &name)
{
    {
        std::lock_guard lock(m_mutex);
        m_tools.erase(name);
        ++m_revision;
    }
    notifyListChanged();
}

void MCPToolService::clearTools()
{
    {
        std::lock_guard lock(m_mutex);
        m_tools.clear();
        ++m_revision;
    }
    notifyListChanged();
}

static JSONValue errorObject(std::string text)
{
    JSONValue result;
    result["error"] = JSONValue(std::move(text));
    return result;
}

JSONValue MCPToolService::callTool(const std::string &name, const JSONValue &arguments)
{
    ToolHandler handler;
    {
        std::lock_guard lock(m_mutex);
        auto it = m_tools.find(name);
        if (it == m_tools.end())
            return errorObject("Tool not found: " + name);
        handler = it->second.handler;
    }
    try {
        if (!handler)
            return errorObject("Tool does not response any JSON object");
        std::optional<std::string> json = handler(arguments);
        if (!json)
            return errorObject("Tool does not response any JSON object");
        std::string error;
        auto value = JSONParser::parseDocument(*json, &error);
        if (!value)
            throw std::runtime_error("JSON parsing failed: " + error);
        return std::move(*value);
    } catch (const std::exception &e) {
        return errorObject(std::string("Tool execution failed: ") + e.what());
    }
}

std::vector<ToolDefinition> MCPToolService::listTools()
{
    std::lock_guard lock(m_mutex);
    std::vector<ToolDefinition> tools;
    tools.reserve(m_tools.size());
    for (const auto &[name, definition] : m_tools)
        tools.push_back(definition);
    return tools;
}

size_t MCPToolService::count()
{
    std::lock_guard lock(m_mutex);
    return m_tools.size();
}

std::optional<ToolDefinition> MCPToolService::findTool(const std::string &name)
{
    std::lock_guard lock(m_mutex);
    auto it = m_tools.find(name);
    if (it == m_tools.end())
        return std::nullopt;
    return it->second;
}

void MCPToolService::setListChangedCallback(std::function<void()> callback)
{
    m_notifier.setCallback(std::move(callback));
}

void MCPToolService::notifyListChanged()
{
    m_notifier.notify();
}

}  // namespace MCP
