#pragma once

#include "engine/MCPTypes.h"

#include <functional>
#include <string>
#include <vector>

namespace MCP {

class IMCPPromptService {
public:
    virtual ~IMCPPromptService() = default;
    virtual void registerPrompt(const PromptDefinition &definition) = 0;
    virtual void unregisterPrompt(const std::string &name) = 0;
    virtual void clearPrompts() = 0;
    virtual std::string renderPrompt(const std::string &name, const JSONValue &params) = 0;
    virtual std::vector<PromptDefinition> listPrompts() = 0;
    virtual void setListChangedCallback(std::function<void()> callback) = 0;
    virtual void notifyListChanged() = 0;
};

}  // namespace MCP
