#pragma once

#include "engine/MCPTypes.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace MCP {

// The registry of prompts, keyed by name. Every operation may be called from any thread,
// also while the server runs. Registering a name that is already there replaces it; each
// change calls the list-changed callback. renderPrompt calls the renderer under the
// registry's lock; an unknown name or a renderer that throws gives a text that says so.
class IMCPPromptService {
public:
    virtual ~IMCPPromptService() = default;
    virtual void registerPrompt(const PromptDefinition &definition) = 0;
    virtual void unregisterPrompt(const std::string &name) = 0;
    virtual void clearPrompts() = 0;
    virtual std::string renderPrompt(const std::string &name, const JSONValue &params) = 0;
    virtual std::optional<PromptDefinition> findPrompt(const std::string &name) = 0;
    virtual std::vector<PromptDefinition> listPrompts() = 0;
    virtual void setListChangedCallback(std::function<void()> callback) = 0;
    virtual void notifyListChanged() = 0;
};

}  // namespace MCP
