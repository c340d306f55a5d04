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

namespace MCP {

std::string MCPServerMessage::notificationLine(std::string_view method, const JSONValue &params)
{
    return requestLine(RequestId(), method, params);
}

std::string MCPServerMessage::requestLine(const RequestId &id, std::string_view method, const JSONValue &params)
{
    std::string text;
    params.appendTo(text, 0);
    // The layout breaks lines only between tokens (a line feed inside a string is written
    // as \n), so dropping each break with the indentation after it leaves the same JSON.
    std::string line = R"({"jsonrpc":"2.0",)";
    if (id.present()) {
        line += R"("id":)";
        id.appendTo(line);
        line += ',';
    }
    line += R"("method":")";
    JSONValue::appendEscaped(line, method);
    line += R"(","params":)";
    line.reserve(line.size() + text.size() + 1);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n') {
            line += text[i];
            continue;
        }
        while (i + 1 < text.size() && text[i + 1] == ' ')
            ++i;
    }
    line += '}';
    return line;
}

}  // namespace MCP
