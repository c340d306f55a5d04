#pragma once

#include "engine/JSONValue.h"
#include "engine/MCPTypes.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MCP {

// Fills a prompt's template with the arguments of a prompts/get request. For each declared
// argument with a name, every "{{name}}" and then every "{name}" is replaced by the value
// given, or by nothing when none was given. The match is exact: "{{ name }}" stays, and so
// does a placeholder of an argument the prompt does not declare.
class PromptTemplate {
public:
    // values: the request's "arguments" object (anything else counts as no values). A
    // string value goes in as it is, any other as its JSON text.
    static std::string render(std::string_view text, const std::vector<PromptArgument> &arguments, const JSONValue &values);
    // A copy of the prompt's messages with every text, resource URI and resource text
    // filled in as render does; anything that is no message object is left out.
    static JSONValue renderMessages(const JSONValue &messages, const std::vector<PromptArgument> &arguments,
                                    const JSONValue &values);
    // The first required argument without a value (absent, null or an empty string).
    static std::optional<std::string> missingRequired(const std::vector<PromptArgument> &arguments, const JSONValue &values);
};

}  // namespace MCP
