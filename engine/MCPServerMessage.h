#pragma once

#include "engine/MCPMessage.h"

namespace MCP {

// What the server produces: responses and errors. Adds no state to MCPMessage.
class MCPServerMessage : public MCPMessage {
public:
    static std::shared_ptr<MCPServerMessage> createResponse(const MCPMessage &request, JSONValue result);
    static std::shared_ptr<MCPServerMessage> createError(RequestId id, std::string message, int32_t code,
                                                         JSONValue data = JSONValue());
    // A notification of the server's as one line of JSON: {"jsonrpc":"2.0","method":…,"params":…}.
    static std::string notificationLine(std::string_view method, const JSONValue &params);
    // A request of the server's to the client, the same way: {"jsonrpc":"2.0","id":…,"method":…,"params":…}.
    static std::string requestLine(const RequestId &id, std::string_view method, const JSONValue &params);
};

}  // namespace MCP
