#pragma once

#include <stdexcept>
#include <string>

namespace MCP {

// Raised by a typed access of a JSONValue that holds another kind ("JSON value is a Number,
// not a String"). The text is the engine's own, so the -32603 answer a route gives for it
// does not depend on the standard library's wording.
class JSONTypeError : public std::runtime_error {
public:
    JSONTypeError(const char *wanted, const char *held)
        : std::runtime_error(std::string("JSON value is ") + article(held) + held + ", not " + article(wanted) + wanted)
    {
    }

private:
    static const char *article(const char *kind) { return kind[0] == 'A' || kind[0] == 'O' ? "an " : "a "; }
};

}  // namespace MCP
