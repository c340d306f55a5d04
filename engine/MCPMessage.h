#pragma once

#include "engine/JSONValue.h"
#include "engine/RequestId.h"

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
    RequestId id;
    JSONValue params;
    JSONValue result;
    std::optional<std::string> errorMessage;
    int32_t errorCode = 0;
    // An error's `data` member; left out while Null.
    JSONValue errorData;
    // A response's result already in its serial form (as result.appendTo at level 2 writes
    // it), shared between responses: toString writes it in place of `result`.
    std::shared_ptr<const std::string> resultText;
    // Set by the transport that received a request: whether a message of the server's can
    // reach the client before the answer (through IMCPTransport::notify). False for a
    // stateless HTTP request whose client takes only one JSON body.
    bool clientListens = false;
    // Set by the transport: the request belongs to a session (IMCPTransport::session finds
    // it). A stateless request costs no look-up.
    bool inSession = false;

    MCPMessage() = default;
    virtual ~MCPMessage() = default;

    // A message parsed from a body, or an empty pointer when the text is not a JSON
    // document, is valid JSON but not an Object, or holds a `method` that is not a String.
    // A message with a method is a Request when it carries an id and a Notification when
    // it has none (or when its method is a "notifications/…" one); one without a method
    // that carries `result` or `error` is the client's Response, with its result, or its
    // error in errorMessage, errorCode and errorData (the type stays Response). The id is
    // kept as sent (see RequestId).
    static std::shared_ptr<MCPMessage> parse(std::string_view text);

    // The envelope's fixed text layout.
    std::string toString() const;
    // For a response whose result is kept as text: the envelope before and after it, so
    // that before + *resultText + after == toString() and a large kept result is sent as it
    // is, without a copy. False (nothing written) for any other message.
    bool envelopeAroundResultText(std::string &before, std::string &after) const;

    // Whether the sender expects no answer: a notification, or a response of the client's.
    bool expectsNoAnswer() const { return type == MessageType::Notification || type == MessageType::Response; }
};

}  // namespace MCP
