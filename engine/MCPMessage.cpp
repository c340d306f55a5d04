#include "engine/MCPMessage.h"

#include "engine/JSONParser.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace MCP {

std::shared_ptr<MCPMessage> MCPMessage::parse(std::string_view text)
{
    JSONParser parser(text);
    parser.captureTopLevelNumber("id");
    JSONValue document;
    if (!parser.parse(document) || !document.isObject())
        return nullptr;

    auto message = std::make_shared<MCPMessage>();
    message->type = MessageType::Request;
    auto &object = document.asObject();
    if (auto it = object.find("method"); it != object.end()) {
        if (!it->second.isString())
            return nullptr;
        message->method = std::move(it->second.asString());
    }
    if (auto it = object.find("id"); it != object.end())
        message->id = RequestId::fromJSON(it->second, parser.capturedNumber().value_or(std::string_view()));
    if (auto it = object.find("params"); it != object.end())
        message->params = std::move(it->second);
    if (message->method.empty() && (object.count("result") || object.count("error"))) {
        message->type = MessageType::Response;
        // The client's answer to a request of the server's: kept for the request's waiter.
        if (auto it = object.find("result"); it != object.end())
            message->result = std::move(it->second);
        if (auto it = object.find("error"); it != object.end()) {
            const JSONValue &error = it->second;
            const bool hasText = error.isObject() && error.contains("message") && error.at("message").isString();
            message->errorMessage = hasText ? error.at("message").asString() : std::string("error without a message");
            if (error.isObject() && error.contains("code") && error.at("code").isNumber()) {
                const double code = error.at("code").asNumber();
                if (code >= std::numeric_limits<int32_t>::min() && code <= std::numeric_limits<int32_t>::max())
                    message->errorCode = int32_t(code);
            }
            if (error.isObject() && error.contains("data"))
                message->errorData = error.at("data");
        }
    }
    else if (!message->method.empty() && (!message->id.present() || message->method.rfind("notifications/", 0) == 0))
        message->type = MessageType::Notification;
    return message;
}

bool MCPMessage::envelopeAroundResultText(std::string &before, std::string &after) const
{
    if (type != MessageType::Response || !resultText)
        return false;
    before = "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": ";
    id.appendTo(before);
    before += ",\n  \"result\": ";
    after = "\n}";
    return true;
}

std::string MCPMessage::toString() const
{
    std::string out;
    out.reserve(256);
    out += "{\n  \"jsonrpc\": \"2.0\"";
    if (id.present() || type == MessageType::Response || type == MessageType::Error) {
        out += ",\n  \"id\": ";
        id.appendTo(out);
    }
    const bool requestLike = type == MessageType::Request || type == MessageType::Notification;
    if (requestLike) {
        out += ",\n  \"method\": \"";
        JSONValue::appendEscaped(out, method);
        out += '"';
        if (!params.isEmpty()) {
            out += ",\n  \"params\": ";
            params.appendTo(out, 2);
        }
    }
    if (type == MessageType::Response && resultText) {
        out += ",\n  \"result\": ";
        out += *resultText;
    } else if (type == MessageType::Response && !result.isNull()) {
        out += ",\n  \"result\": ";
        result.appendTo(out, 2);
    }
    if (type == MessageType::Error && errorMessage) {
        out += ",\n  \"error\": {\n    \"code\": ";
        out += std::to_string(errorCode);
        out += ",\n    \"message\": \"";
        JSONValue::appendEscaped(out, *errorMessage);
        out += '"';
        if (!errorData.isNull()) {
            out += ",\n    \"data\": ";
            errorData.appendTo(out, 2);
        }
        out += "\n  }";
    }
    out += "\n}";
    return out;
}

}  // namespace MCP
