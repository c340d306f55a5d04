#include "engine/UriTemplate.h"

namespace MCP {

namespace {

struct Part {
    bool expression = false;
    bool reserved = false;  // {+var}
    std::string text;       // the literal, or the variable's name
};

// The template in literal and expression parts, or nothing when it is malformed or uses an
// operator beyond {+}.
std::optional<std::vector<Part>> parse(std::string_view text)
{
    std::vector<Part> parts;
    size_t at = 0;
    while (at < text.size()) {
        const size_t open = text.find('{', at);
        if (open == std::string_view::npos) {
            parts.push_back({false, false, std::string(text.substr(at))});
            break;
        }
        if (open > at)
            parts.push_back({false, false, std::string(text.substr(at, open - at))});
        const size_t close = text.find('}', open);
        if (close == std::string_view::npos)
            return std::nullopt;
        std::string_view name = text.substr(open + 1, close - open - 1);
        Part part{true, false, {}};
        if (name.starts_with('+')) {
            part.reserved = true;
            name.remove_prefix(1);
        }
        if (name.empty() || name.find_first_of("{+#./;?&=,!@|:*") != std::string_view::npos)
            return std::nullopt;
        part.text = std::string(name);
        parts.push_back(std::move(part));
        at = close + 1;
    }
    return parts;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::string percentDecoded(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

// Matches parts[index...] against uri[at...], filling values; backtracks over the lengths an
// expression may take.
bool matchFrom(const std::vector<Part> &parts, size_t index, std::string_view uri, size_t at,
               std::map<std::string, std::string> &values)
{
    if (index == parts.size())
        return at == uri.size();
    const Part &part = parts[index];
    if (!part.expression) {
        if (uri.substr(at, part.text.size()) != part.text)
            return false;
        return matchFrom(parts, index + 1, uri, at + part.text.size(), values);
    }
    size_t end = at;
    while (end < uri.size() && (part.reserved || (uri[end] != '/' && uri[end] != '?' && uri[end] != '#')))
        ++end;
    // Longest first, so that a last expression takes the rest; at least one character.
    for (size_t stop = end; stop > at; --stop) {
        if (matchFrom(parts, index + 1, uri, stop, values)) {
            const std::string_view raw = uri.substr(at, stop - at);
            values[part.text] = part.reserved ? std::string(raw) : percentDecoded(raw);
            return true;
        }
    }
    return false;
}

}  // namespace

bool UriTemplate::isTemplate(std::string_view text)
{
    const auto parts = parse(text);
    if (!parts)
        return false;
    for (const Part &part : *parts)
        if (part.expression)
            return true;
    return false;
}

std::optional<std::map<std::string, std::string>> UriTemplate::match(std::string_view templateText, std::string_view uri)
{
    const auto parts = parse(templateText);
    if (!parts)
        return std::nullopt;
    std::map<std::string, std::string> values;
    if (!matchFrom(*parts, 0, uri, 0, values))
        return std::nullopt;
    return values;
}

std::vector<std::string> UriTemplate::variables(std::string_view templateText)
{
    std::vector<std::string> names;
    if (const auto parts = parse(templateText))
        for (const Part &part : *parts)
            if (part.expression)
                names.push_back(part.text);
    return names;
}

}  // namespace MCP
