#pragma once

#include "engine/IMCPPromptService.h"
#include "engine/Registry.h"

namespace MCP {

// The prompt registry. Renderers run under the lock; failures come back as the text.
class MCPPromptService : public IMCPPromptService {
public:
    void registerPrompt(const PromptDefinition &definition) override { m_prompts.put(definition); }
    void unregisterPrompt(const std::string &name) override { m_prompts.remove(name); }
    void clearPrompts() override { m_prompts.clear(); }
    std::string renderPrompt(const std::string &name, const JSONValue &params) override;
    std::optional<PromptDefinition> findPrompt(const std::string &name) override { return m_prompts.find(name); }
    std::vector<PromptDefinition> listPrompts() override { return m_prompts.list(); }
    void setListChangedCallback(std::function<void()> callback) override
    {
        m_prompts.setListChangedCallback(std::move(callback));
    }
    void notifyListChanged() override { m_prompts.notifyListChanged(); }

    void setMainQueuePoster(MainQueuePoster poster) { m_prompts.setMainQueuePoster(std::move(poster)); }
    // Told of every change on the changing thread, beside the callback (the server's own).
    void setListObserver(std::function<void()> observer) { m_prompts.setListObserver(std::move(observer)); }
    size_t count() { return m_prompts.count(); }
    uint64_t revision() const { return m_prompts.revision(); }

private:
    Registry<PromptDefinition, &PromptDefinition::name> m_prompts;
};

}  // namespace MCP
