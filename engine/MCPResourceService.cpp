#include "engine/MCPResourceService.h"

namespace MCP {

void MCPResourceService::registerResource(const ResourceDefinition &definition)
{
    {
        std::lock_guard lock(m_mutex);
        m_resources.insert_or_assign(definition.uri, definition);
    }
    notifyListChanged();
}

void MCPResourceService::unregisterResource(const std::string &uri)
{
    {
        std::lock_guard lock(m_mutex);
        m_resources.erase(uri);
    }
    notifyListChanged();
}

void MCPResourceService::clearResources()
{
    {
        std::lock_guard lock(m_mutex);
        m_resources.clear();
    }
    notifyListChanged();
}

std::optional<ResourceDefinition> MCPResourceService::findResource(const std::string &uri)
{
    std::lock_guard lock(m_mutex);
    auto it = m_resources.find(uri);
    if (it == m_resources.end())
        return std::nullopt;
    return it->second;
}

std::optional<ResourceDefinition> MCPResourceService::findResourceByName(const std::string &name)
{
    std::lock_guard lock(m_mutex);
    for (const auto &[uri, definition] : m_resources)
        if (definition.name == name)
            return definition;
    return std::nullopt;
}

ResourceDefinition MCPResourceService::readResource(const ResourceDefinition &definition)
{
    std::lock_guard lock(m_mutex);
    try {
        if (!definition.provider)
            return definition;
        return definition.provider(definition);
    } catch (const std::exception &e) {
        const std::string text = std::string("Error reading resource: ") + e.what();
        ResourceDefinition failed;
        failed.mimeType = "text/plain";
        failed.data.format = "text/plain";
        failed.name = text;
        failed.description = text;
        failed.data.content = text;
        return failed;
    }
}

std::vector<ResourceDefinition> MCPResourceService::listResources()
{
    std::lock_guard lock(m_mutex);
    std::vector<ResourceDefinition> resources;
    resources.reserve(m_resources.size());
    for (const auto &[uri, definition] : m_resources)
        resources.push_back(definition);
    return resources;
}

size_t MCPResourceService::count()
{
    std::lock_guard lock(m_mutex);
    return m_resources.size();
}

void MCPResourceService::setListChangedCallback(std::function<void()> callback)
{
    m_notifier.setCallback(std::move(callback));
}

void MCPResourceService::notifyListChanged()
{
    m_notifier.notify();
}

}  // namespace MCP
