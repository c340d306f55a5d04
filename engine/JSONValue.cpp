#include "engine/JSONValue.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace MCP {

JSONValue::JSONValue(JSONValue &&other) noexcept : m_value(std::move(other.m_value))
{
    other.m_value.emplace<std::monostate>();
}

JSONValue &JSONValue::operator=(JSONValue &&other) noexcept
{
    if (this != &other) {
        m_value = std::move(other.m_value);
        other.m_value.emplace<std::monostate>();
    }
    return *this;
}

const char *JSONValue::typeName(Type type)
{
    static const char *const names[] = {"Null", "Bool", "Number", "String", "Array", "Object"};
    return names[static_cast<int>(type)];
}

bool JSONValue::contains(std::string_view key) const
{
    const auto *object = std::get_if<ObjectType>(&m_value);
    return object && object->find(key) != object->end();
}

const JSONValue &JSONValue::at(std::string_view key) const
{
    const auto &object = asObject();
    auto it = object.find(key);
    if (it == object.end())
        throw std::out_of_range("map::at:  key not found");
    return it->second;
}

JSONValue &JSONValue::at(std::string_view key)
{
    auto &object = asObject();
    auto it = object.find(key);
    if (it == object.end())
        throw std::out_of_range("map::at:  key not found");
    return it->second;
}

JSONValue &JSONValue::operator[](std::string_view key)
{
    if (!isObject())
        m_value.emplace<ObjectType>();
    auto &object = std::get<ObjectType>(m_value);
    auto it = object.find(key);
    if (it == object.end())
        it = object.emplace(std::string(key), JSONValue()).first;
    return it->second;
}

bool JSONValue::isEmpty() const
{
    switch (type()) {
    case Type::Null:
    case Type::Bool:
        return true;
    case Type::Number:
        return false;
    case Type::String:
        return asString().empty();
    case Type::Array:
        return asArray().empty();
    case Type::Object:
        return asObject().empty();
    }
    return true;
}

void JSONValue::appendEscaped(std::string &out, std::string_view text)
{
    static const char hex[] = "0123456789abcdef";
    size_t runStart = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x20 && byte != '"' && byte != '\\')
            continue;
        out.append(text.data() + runStart, i - runStart);
        runStart = i + 1;
        switch (byte) {
        case 0x08: out += "\\b"; break;
        case 0x09: out += "\\t"; break;
        case 0x0A: out += "\\n"; break;
        case 0x0C: out += "\\f"; break;
        case 0x0D: out += "\\r"; break;
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        default: {
            const char escaped[6] = {'\\', 'u', '0', '0', hex[byte >> 4], hex[byte & 0xF]};
            out.append(escaped, 6);
        }
        }
    }
    out.append(text.data() + runStart, text.size() - runStart);
}

static int32_t saturatingInt32(double value)
{
    if (std::isnan(value))
        return 0;
    if (value >= static_cast<double>(std::numeric_limits<int32_t>::max()))
        return std::numeric_limits<int32_t>::max();
    if (value <= static_cast<double>(std::numeric_limits<int32_t>::min()))
        return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);  // truncates toward zero
}

void JSONValue::appendNumber(std::string &out, double value)
{
    char buffer[64];
    const int32_t integral = saturatingInt32(value);
    std::to_chars_result result;
    if (static_cast<double>(integral) == value) {
        // Negative zero compares equal to 0 and so prints as 0.
        result = std::to_chars(buffer, buffer + sizeof buffer, integral);
    } else {
        // to_chars is locale-independent (the Qt application sets LC_NUMERIC from the
        // environment) and gives what a default text stream would: %g with 6 digits.
        result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    }
    out.append(buffer, result.ptr);
}

void JSONValue::appendTo(std::string &out, int level) const
{
    switch (type()) {
    case Type::Null:
        out += "null";
        return;
    case Type::Bool:
        out += asBool() ? "true" : "false";
        return;
    case Type::Number:
        appendNumber(out, asNumber());
        return;
    case Type::String:
        out += '"';
        appendEscaped(out, asString());
        out += '"';
        return;
    case Type::Array: {
        const auto &array = asArray();
        if (array.empty()) {
            out += "[]";
            return;
        }
        out += "[\n";
        const size_t inner = 2 * static_cast<size_t>(level + 1);
        for (size_t i = 0; i < array.size(); ++i) {
            out.append(inner, ' ');
            array[i].appendTo(out, level + 1);
            if (i + 1 < array.size())
                out += ',';
            out += '\n';
        }
        out.append(2 * static_cast<size_t>(level), ' ');
        out += ']';
        return;
    }
    case Type::Object: {
        const auto &object = asObject();
        if (object.empty()) {
            out += "{}";
            return;
        }
        out += "{\n";
        const size_t inner = 2 * static_cast<size_t>(level + 1);
        size_t remaining = object.size();
        for (const auto &[key, member] : object) {
            out.append(inner, ' ');
            out += '"';
            appendEscaped(out, key);
            out += "\": ";
            member.appendTo(out, level + 1);
            if (--remaining > 0)
                out += ',';
            out += '\n';
        }
        out.append(2 * static_cast<size_t>(level), ' ');
        out += '}';
        return;
    }
    }
}

std::string JSONValue::toString(int level) const
{
    std::string out;
    appendTo(out, level);
    return out;
}

}  // namespace MCP
