#include "engine/MCPPromptService.h"

namespace MCP {

std::string MCPPromptService::renderPrompt(const std::string &name, const JSONValue &params)
{
    return m_prompts.withLock([&](const auto &prompts) -> std::string {
        auto it = prompts.find(name);
        if (it == prompts.end())
            return "Prompt not found: " + name;
        try {
            if (!it->second.renderer)
                return {};
            return it->second.renderer(params);
        } catch (const std::exception &e) {
            return std::string("Error rendering prompt: ") + e.what();
        }
    });
}

}  // namespace MCP
