#pragma once

#include "engine/IMCPPromptService.h"
#include "engine/ListChangedNotifier.h"

#include <atomic>
#include <map>
#include <mutex>

namespace MCP {

// The prompt registry. Renderers run under the lock; failures come back as the text.
class MCPPromptService : public IMCPPromptService {
public:
    void registerPrompt(const PromptDefinition &definition) override;
    void unregisterPrompt(const std::string &name) override;
    void clearPrompts() override;
    std::string renderPrompt(const std::string &name, const JSONValue &params) override;
    std::optional<PromptDefinition> findPrompt(const std::string &name) override;
    std::vector<PromptDefinition> listPrompts() override;
    void setListChangedCallback(std::function<void()> callback) override;
    void notifyListChanged() override;

    void setMainQueuePoster(MainQueuePoster poster) { m_notifier.setMainQueuePoster(std::move(poster)); }
    size_t count();

    // Changes with every registration, removal and clearing: a list built at one revision
    // is the list for as long as the revision stays.
    uint64_t revision() const { return m_revision.load(); }

private:
    std::map<std::string, PromptDefinition> m_prompts;
    ListChangedNotifier m_notifier;
    std::mutex m_mutex;
    std::atomic<uint64_t> m_revision{0};
};

}  // namespace MCP
