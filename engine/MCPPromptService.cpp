#include "engine/MCPPromptService.h"

namespace MCP {

void MCPPromptService::registerPrompt(const PromptDefinition &definition)
{
    {
        std::lock_guard lock(m_mutex);
        m_prompts.insert_or_assign(definition.name, definition);
        ++m_revision;
    }
    notifyListChanged();
}

void MCPPromptService::unregisterPrompt(const std::string &name)
{
    {
        std::lock_guard lock(m_mutex);
        m_prompts.erase(name);
        ++m_revision;
    }
    notifyListChanged();
}

void MCPPromptService::clearPrompts()
{
    {
        std::lock_guard lock(m_mutex);
        m_prompts.clear();
        ++m_revision;
    }
    notifyListChanged();
}

std::string MCPPromptService::renderPrompt(const std::string &name, const JSONValue &params)
{
    std::lock_guard lock(m_mutex);
    auto it = m_prompts.find(name);
    if (it == m_prompts.end())
        return "Prompt not found: " + name;
    try {
        if (!it->second.renderer)
            return {};
        return it->second.renderer(params);
    } catch (const std::exception &e) {
        return std::string("Error rendering prompt: ") + e.what();
    }
}

std::optional<PromptDefinition> MCPPromptService::findPrompt(const std::string &name)
{
    std::lock_guard lock(m_mutex);
    auto it = m_prompts.find(name);
    if (it == m_prompts.end())
        return std::nullopt;
    return it->second;
}

std::vector<PromptDefinition> MCPPromptService::listPrompts()
{
    std::lock_guard lock(m_mutex);
    std::vector<PromptDefinition> prompts;
    prompts.reserve(m_prompts.size());
    for (const auto &[name, definition] : m_prompts)
        prompts.push_back(definition);
    return prompts;
}

size_t MCPPromptService::count()
{
    std::lock_guard lock(m_mutex);
    return m_prompts.size();
}

void MCPPromptService::setListChangedCallback(std::function<void()> callback)
{
    m_notifier.setCallback(std::move(callback));
}

void MCPPromptService::notifyListChanged()
{
    m_notifier.notify();
}

}  // namespace MCP
