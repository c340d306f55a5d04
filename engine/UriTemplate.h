#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MCP {

// A URI template of RFC 6570 level 1 ({var}) and reserved expansion ({+var}), matched
// against a URI to recover its variables. {var} stands for one or more characters up to the
// next "/", "?" or "#" (percent-decoded in the result); {+var} for any characters, the
// reserved ones included. Literal parts must match exactly.
class UriTemplate {
public:
    // Whether the text holds at least one expression; a URI without one is no template.
    static bool isTemplate(std::string_view text);
    // The variables of a URI that matches the template, or nothing. A template with an
    // expression of another operator ({?q}, {#f}, ...) or an unclosed brace matches nothing.
    static std::optional<std::map<std::string, std::string>> match(std::string_view templateText, std::string_view uri);
    // The variable names in order of appearance.
    static std::vector<std::string> variables(std::string_view templateText);
};

}  // namespace MCP
