#pragma once

#include "engine/JSONValue.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace MCP {

// A JSON-RPC request id as the client sent it, so that the answer echoes it exactly: a
// string, or an integer kept as its literal (negative and beyond 64 bits included). A
// message without one is a notification. Anything else the client put there (a fraction,
// an object, null) is `invalid`: such a request is answered with -32600 and "id": null.
class RequestId {
public:
    enum class Kind { absent, number, string, invalid };

    RequestId() = default;
    // An integer id of the server's own making (and the tests').
    RequestId(uint64_t number);  // NOLINT: implicit on purpose, an id is often a plain number

    // The id member of a message: its JSON value, and for a number the literal as written.
    static RequestId fromJSON(const JSONValue &value, std::string_view numberLiteral = {});

    Kind kind() const { return m_kind; }
    bool present() const { return m_kind != Kind::absent; }
    bool isValid() const { return m_kind == Kind::number || m_kind == Kind::string; }
    // The digits of a number, or the text of a string.
    const std::string &text() const { return m_text; }

    // The id as JSON ("42", "\"abc\""); null when absent or invalid.
    void appendTo(std::string &out) const;
    std::string toJSON() const;
    // A key that tells a number from a string of the same digits: for maps of running calls.
    std::string key() const;

    bool operator==(const RequestId &other) const = default;
    bool operator==(uint64_t number) const { return *this == RequestId(number); }

private:
    Kind m_kind = Kind::absent;
    std::string m_text;
};

}  // namespace MCP
