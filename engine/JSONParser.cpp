#include "engine/JSONParser.h"

#include <charconv>
#include <cmath>

namespace MCP {

std::optional<JSONValue> JSONParser::parseDocument(std::string_view text, std::string *error)
{
    JSONParser parser(text);
    JSONValue value;
    if (!parser.parse(value)) {
        if (error)
            *error = parser.errorDescription();
        return std::nullopt;
    }
    return value;
}

bool JSONParser::fail(const char *what)
{
    if (m_error.empty())
        m_error = std::string(what) + " at offset " + std::to_string(m_pos);
    return false;
}

void JSONParser::skipWhitespace()
{
    while (m_pos < m_text.size()) {
        const char c = m_text[m_pos];
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            return;
        ++m_pos;
    }
}

bool JSONParser::parse(JSONValue &out)
{
    m_pos = 0;
    m_error.clear();
    m_captured.reset();
    skipWhitespace();
    if (m_pos >= m_text.size())
        return fail("No JSON document");
    JSONValue value;
    if (!parseValue(value, 0))
        return false;
    skipWhitespace();
    if (m_pos != m_text.size())
        return fail("Garbage after the JSON document");
    out = std::move(value);
    return true;
}

bool JSONParser::parseValue(JSONValue &out, int depth)
{
    if (m_pos >= m_text.size())
        return fail("Unexpected end of text");
    switch (m_text[m_pos]) {
    case '{':
        return parseObject(out, depth + 1);
    case '[':
        return parseArray(out, depth + 1);
    case '"': {
        std::string text;
        if (!parseString(text))
            return false;
        out = JSONValue(std::move(text));
        return true;
    }
    case 't':
        if (!parseLiteral("true"))
            return false;
        out = JSONValue(true);
        return true;
    case 'f':
        if (!parseLiteral("false"))
            return false;
        out = JSONValue(false);
        return true;
    case 'n':
        if (!parseLiteral("null"))
            return false;
        out = JSONValue();
        return true;
    default:
        return parseNumber(out, nullptr);
    }
}

bool JSONParser::parseLiteral(std::string_view word)
{
    if (m_text.substr(m_pos, word.size()) != word)
        return fail("Invalid literal");
    m_pos += word.size();
    return true;
}

bool JSONParser::parseObject(JSONValue &out, int depth)
{
    if (depth > kMaxDepth)
        return fail("Nesting too deep");
    ++m_pos;  // '{'
    JSONValue::ObjectType object;
    skipWhitespace();
    if (m_pos < m_text.size() && m_text[m_pos] == '}') {
        ++m_pos;
        out = JSONValue(std::move(object));
        return true;
    }
    for (;;) {
        skipWhitespace();
        if (m_pos >= m_text.size() || m_text[m_pos] != '"')
            return fail("Expected a string key");
        std::string key;
        if (!parseString(key))
            return false;
        skipWhitespace();
        if (m_pos >= m_text.size() || m_text[m_pos] != ':')
            return fail("Expected ':'");
        ++m_pos;
        skipWhitespace();
        JSONValue member;
        if (depth == 1 && !m_captureKey.empty() && key == m_captureKey && m_pos < m_text.size()
            && (m_text[m_pos] == '-' || (m_text[m_pos] >= '0' && m_text[m_pos] <= '9'))) {
            std::string_view literal;
            if (!parseNumber(member, &literal))
                return false;
            m_captured = literal;
        } else if (!parseValue(member, depth)) {
            return false;
        }
        // A repeated key keeps its last value.
        object.insert_or_assign(std::move(key), std::move(member));
        skipWhitespace();
        if (m_pos >= m_text.size())
            return fail("Unterminated object");
        if (m_text[m_pos] == ',') {
            ++m_pos;
            continue;
        }
        if (m_text[m_pos] == '}') {
            ++m_pos;
            break;
        }
        return fail("Expected ',' or '}'");
    }
    out = JSONValue(std::move(object));
    return true;
}

bool JSONParser::parseArray(JSONValue &out, int depth)
{
    if (depth > kMaxDepth)
        return fail("Nesting too deep");
    ++m_pos;  // '['
    JSONValue::ArrayType array;
    skipWhitespace();
    if (m_pos < m_text.size() && m_text[m_pos] == ']') {
        ++m_pos;
        out = JSONValue(std::move(array));
        return true;
    }
    for (;;) {
        skipWhitespace();
        JSONValue element;
        if (!parseValue(element, depth))
            return false;
        array.push_back(std::move(element));
        skipWhitespace();
        if (m_pos >= m_text.size())
            return fail("Unterminated array");
        if (m_text[m_pos] == ',') {
            ++m_pos;
            continue;
        }
        if (m_text[m_pos] == ']') {
            ++m_pos;
            break;
        }
        return fail("Expected ',' or ']'");
    }
    out = JSONValue(std::move(array));
    return true;
}

bool JSONParser::parseHex4(unsigned &code)
{
    if (m_pos + 4 > m_text.size())
        return fail("Incomplete \\u escape");
    code = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = m_text[m_pos++];
        code <<= 4;
        if (c >= '0' && c <= '9')
            code |= static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f')
            code |= static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            code |= static_cast<unsigned>(c - 'A' + 10);
        else
            return fail("Invalid \\u escape");
    }
    return true;
}

static void appendUtf8(std::string &out, unsigned code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Length of the valid UTF-8 sequence starting at text[pos], or 0 when it is invalid
// (overlong forms, surrogates and code points above U+10FFFF included).
static size_t utf8SequenceLength(std::string_view text, size_t pos)
{
    const auto b0 = static_cast<unsigned char>(text[pos]);
    auto cont = [&](size_t i) {
        return pos + i < text.size() && (static_cast<unsigned char>(text[pos + i]) & 0xC0) == 0x80;
    };
    if (b0 >= 0xC2 && b0 <= 0xDF)
        return cont(1) ? 2 : 0;
    if (b0 >= 0xE0 && b0 <= 0xEF) {
        if (!cont(1) || !cont(2))
            return 0;
        const auto b1 = static_cast<unsigned char>(text[pos + 1]);
        if (b0 == 0xE0 && b1 < 0xA0)
            return 0;
        if (b0 == 0xED && b1 >= 0xA0)
            return 0;
        return 3;
    }
    if (b0 >= 0xF0 && b0 <= 0xF4) {
        if (!cont(1) || !cont(2) || !cont(3))
            return 0;
        const auto b1 = static_cast<unsigned char>(text[pos + 1]);
        if (b0 == 0xF0 && b1 < 0x90)
            return 0;
        if (b0 == 0xF4 && b1 >= 0x90)
            return 0;
        return 4;
    }
    return 0;
}

bool JSONParser::parseString(std::string &out)
{
    ++m_pos;  // opening quote
    bool cut = false;  // a NUL was seen: the value ends there, the syntax goes on
    for (;;) {
        // Copy plain runs in one go.
        size_t run = m_pos;
        while (run < m_text.size()) {
            const auto c = static_cast<unsigned char>(m_text[run]);
            if (c == '"' || c == '\\' || c < 0x20 || c >= 0x80)
                break;
            ++run;
        }
        if (!cut)
            out.append(m_text.data() + m_pos, run - m_pos);
        m_pos = run;
        if (m_pos >= m_text.size())
            return fail("Unterminated string");
        const auto c = static_cast<unsigned char>(m_text[m_pos]);
        if (c == '"') {
            ++m_pos;
            return true;
        }
        if (c < 0x20)
            return fail("Unescaped control character in string");
        if (c >= 0x80) {
            const size_t length = utf8SequenceLength(m_text, m_pos);
            if (length == 0)
                return fail("Invalid UTF-8");
            if (!cut)
                out.append(m_text.data() + m_pos, length);
            m_pos += length;
            continue;
        }
        // Backslash escape.
        ++m_pos;
        if (m_pos >= m_text.size())
            return fail("Unterminated string");
        const char e = m_text[m_pos++];
        unsigned code = 0;
        switch (e) {
        case '"': code = '"'; break;
        case '\\': code = '\\'; break;
        case '/': code = '/'; break;
        case 'b': code = 0x08; break;
        case 'f': code = 0x0C; break;
        case 'n': code = 0x0A; break;
        case 'r': code = 0x0D; break;
        case 't': code = 0x09; break;
        case 'u': {
            if (!parseHex4(code))
                return false;
            if (code >= 0xD800 && code <= 0xDBFF) {
                unsigned low = 0;
                if (m_text.substr(m_pos, 2) != "\\u")
                    return fail("Unpaired surrogate escape");
                m_pos += 2;
                if (!parseHex4(low))
                    return false;
                if (low < 0xDC00 || low > 0xDFFF)
                    return fail("Unpaired surrogate escape");
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            } else if (code >= 0xDC00 && code <= 0xDFFF) {
                return fail("Unpaired surrogate escape");
            }
            break;
        }
        default:
            return fail("Invalid escape");
        }
        if (code == 0)
            cut = true;
        else if (!cut)
            appendUtf8(out, code);
    }
}

bool JSONParser::parseNumber(JSONValue &out, std::string_view *literal)
{
    const size_t start = m_pos;
    auto digitAt = [&](size_t i) { return i < m_text.size() && m_text[i] >= '0' && m_text[i] <= '9'; };
    size_t p = m_pos;
    if (p < m_text.size() && m_text[p] == '-')
        ++p;
    if (!digitAt(p))
        return fail("Invalid value");
    if (m_text[p] == '0') {
        ++p;
        if (digitAt(p))
            return fail("Leading zero in number");
    } else {
        while (digitAt(p))
            ++p;
    }
    if (p < m_text.size() && m_text[p] == '.') {
        ++p;
        if (!digitAt(p))
            return fail("Invalid number");
        while (digitAt(p))
            ++p;
    }
    bool negativeExponent = false;
    bool hasExponent = false;
    if (p < m_text.size() && (m_text[p] == 'e' || m_text[p] == 'E')) {
        hasExponent = true;
        ++p;
        if (p < m_text.size() && (m_text[p] == '+' || m_text[p] == '-')) {
            negativeExponent = m_text[p] == '-';
            ++p;
        }
        if (!digitAt(p))
            return fail("Invalid number");
        while (digitAt(p))
            ++p;
    }
    const std::string_view text = m_text.substr(start, p - start);
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        // Too small to represent is zero; too large is refused rather than made infinite.
        const bool tiny = hasExponent ? negativeExponent : (text.starts_with("0.") || text.starts_with("-0."));
        if (!tiny)
            return fail("Number out of range");
        value = text.front() == '-' ? -0.0 : 0.0;
    } else if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        return fail("Invalid number");
    }
    m_pos = p;
    if (literal)
        *literal = text;
    out = JSONValue(value);
    return true;
}

}  // namespace MCP
