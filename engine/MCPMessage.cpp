#include "engine/MCPMessage.h"

#include "engine/JSONParser.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace MCP {

uint64_t MCPMessage::idFromLiteral(std::string_view literal)
{
    if (literal.empty() || literal.front() == '-')
        return 0;
    const bool integral = literal.find_first_of(".eE") == std::string_view::npos;
    if (integral) {
        uint64_t value = 0;
        const auto result = std::from_chars(literal.data(), literal.data() + literal.size(), value);
        if (result.ec == std::errc::result_out_of_range)
            return std::numeric_limits<uint64_t>::max();
        return result.ec == std::errc() ? value : 0;
    }
    double value = 0;
    const auto result = std::from_chars(literal.data(), literal.data() + literal.size(), value);
    if (result.ec != std::errc() || !(value >= 0))
        return 0;
    if (value >= 18446744073709551615.0)
        return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(std::trunc(value));
}

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
    if (auto literal = parser.capturedNumber())
        message->id = idFromLiteral(*literal);
    if (auto it = object.find("params"); it != object.end())
        message->params = std::move(it->second);
    return message;
}

std::string MCPMessage::toString() const
{
    std::string out;
    out.reserve(256);
    out += "{\n  \"jsonrpc\": \"2.0\"";
    if (id != 0 || type == MessageType::Response || type == MessageType::Error) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, id).ptr;
        out += ",\n  \"id\": ";
        out.append(digits, end);
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
        out += "\"\n  }";
    }
    out += "\n}";
    return out;
}

}  // namespace MCP
