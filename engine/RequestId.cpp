#include "engine/RequestId.h"

#include <charconv>

namespace MCP {

namespace {

// An integer as JSON writes one: an optional minus, then 0 or digits without a leading 0.
bool isIntegerLiteral(std::string_view text)
{
    if (!text.empty() && text.front() == '-')
        text.remove_prefix(1);
    if (text.empty() || (text.size() > 1 && text.front() == '0'))
        return false;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

}  // namespace

RequestId::RequestId(uint64_t number) : m_kind(Kind::number)
{
    char digits[24];
    m_text.assign(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

RequestId RequestId::fromJSON(const JSONValue &value, std::string_view numberLiteral)
{
    RequestId id;
    if (value.isString()) {
        id.m_kind = Kind::string;
        id.m_text = value.asString();
    } else if (value.isNumber() && isIntegerLiteral(numberLiteral)) {
        id.m_kind = Kind::number;
        id.m_text = std::string(numberLiteral);
    } else {
        id.m_kind = Kind::invalid;
    }
    return id;
}

void RequestId::appendTo(std::string &out) const
{
    switch (m_kind) {
    case Kind::number:
        out += m_text;
        return;
    case Kind::string:
        out += '"';
        JSONValue::appendEscaped(out, m_text);
        out += '"';
        return;
    case Kind::absent:
    case Kind::invalid:
        out += "null";
        return;
    }
}

std::string RequestId::toJSON() const
{
    std::string out;
    appendTo(out);
    return out;
}

std::string RequestId::key() const
{
    return (m_kind == Kind::string ? "s:" : "n:") + m_text;
}

}  // namespace MCP
