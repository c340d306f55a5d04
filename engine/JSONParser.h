#pragma once

#include "engine/JSONValue.h"

#include <optional>
#include <string>
#include <string_view>

namespace MCP {

// Strict JSON (RFC 8259) reader for the engine: one whole document of UTF-8 text, any
// value at the top (callers that need an Object check for it), no comments, no trailing
// commas, no leading zeros, no NaN. Invalid UTF-8 and unpaired surrogate escapes are
// refused. A string ends at its first NUL, as the conversion to JSONValue requires.
//
// The reader is recursive with a fixed depth limit: documents nested deeper than
// kMaxDepth arrays and objects are refused instead of exhausting the worker's stack.
class JSONParser {
public:
    static constexpr int kMaxDepth = 512;

    explicit JSONParser(std::string_view text) : m_text(text) {}

    // Also records the literal text of the number held by this member of the top-level
    // Object, so that ids can be read as 64-bit integers before any float conversion.
    void captureTopLevelNumber(std::string_view key) { m_captureKey = key; }

    bool parse(JSONValue &out);

    // Set after a failed parse: what was wrong and at which byte offset.
    const std::string &errorDescription() const { return m_error; }
    // The literal of the captured member when it held a number.
    std::optional<std::string_view> capturedNumber() const { return m_captured; }

    // One-call form; error receives the description on failure when given.
    static std::optional<JSONValue> parseDocument(std::string_view text, std::string *error = nullptr);

private:
    bool parseValue(JSONValue &out, int depth);
    bool parseObject(JSONValue &out, int depth);
    bool parseArray(JSONValue &out, int depth);
    bool parseString(std::string &out);
    bool parseNumber(JSONValue &out, std::string_view *literal);
    bool parseLiteral(std::string_view word);
    bool parseHex4(unsigned &code);
    void skipWhitespace();
    bool fail(const char *what);

    std::string_view m_text;
    size_t m_pos = 0;
    std::string m_error;
    std::string_view m_captureKey;
    std::optional<std::string_view> m_captured;
};

}  // namespace MCP
