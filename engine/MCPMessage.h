#pragma once

#include "engine/JSONValue.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace MCP {

// One JSON-RPC 2.0 message. Held by shared pointer and never changed once handed on,
// so that several threads (the worker, the log callback) may read it at once.
class MCPMessage {
public:
    enum class MessageType : int32_t { Request = 0, Response = 1, Notification = 2, Error = 3 };

    MessageType type = MessageType::Request;
    std::string method;
    uint64_t id = 0;
    JSONValue params;
    JSONValue result;
    std::optional<std::string> errorMessage;
    int32_t errorCode = 0;
    // A response's result already in its serial form (as result.appendTo at level 2 writes
    // it), shared between responses: toString writes it in place of `result`.
    std::shared_ptr<const std::string> resultText;

    MCPMessage() = default;
    virtual ~MCPMessage() = default;

    // A request parsed from a body, or an empty pointer when the text is not a JSON
    // document, is valid JSON but not an Object, or holds a `method` that is not a
    // String. Every parsed message is a Request: notifications are told apart by name.
    //
    // The id is read from the number's literal: a non-negative integer keeps all of its
    // 64 bits (values beyond 2^64-1 saturate); a fraction or exponent form is truncated
    // toward zero; a negative number, a string, a bool or null gives 0, since the id
    // model has no place for them.
    static std::shared_ptr<MCPMessage> parse(std::string_view text);

    // The envelope's fixed text layout.
    std::string toString() const;

    // Reads a JSON number literal as an unsigned 64-bit id, as described above.
    static uint64_t idFromLiteral(std::string_view literal);
};

}  // namespace MCP
