#include "engine/MCPServerMessage.h"

namespace MCP {

std::shared_ptr<MCPServerMessage> MCPServerMessage::createResponse(const MCPMessage &request, JSONValue result)
{
    auto message = std::make_shared<MCPServerMessage>();
    message->type = MessageType::Response;
    message->method = request.method;
    message->id = request.id;
    message->result = std::move(result);
    return message;
}

std::shared_ptr<MCPServerMessage> MCPServerMessage::createError(RequestId id, std::string text, int32_t code, JSONValue data)
{
    auto message = std::make_shared<MCPServerMessage>();
    message->type = MessageType::Error;
    message->id = std::move(id);
    message->errorMessage = std::move(text);
    message->errorCode = code;
    message->errorData = std::move(data);
    return message;
}

}  // namespace MCP
