#include "engine/JSONSchemaValidator.h"

#include <algorithm>
#include <cmath>
#include <regex>

namespace MCP {

namespace {

// Deeper than any hand-written schema; a $ref cycle that consumes no input ends here.
constexpr int maxDepth = 64;

const JSONValue *member(const JSONValue::ObjectType &object, std::string_view key)
{
    auto it = object.find(key);
    return it == object.end() ? nullptr : &it->second;
}

bool isInteger(const JSONValue &value)
{
    return value.isNumber() && std::isfinite(value.asNumber()) && std::floor(value.asNumber()) == value.asNumber();
}

bool hasType(const JSONValue &instance, const std::string &type)
{
    if (type == "integer")
        return isInteger(instance);
    if (type == "number")
        return instance.isNumber();
    if (type == "string")
        return instance.isString();
    if (type == "boolean")
        return instance.isBool();
    if (type == "object")
        return instance.isObject();
    if (type == "array")
        return instance.isArray();
    if (type == "null")
        return instance.isNull();
    return false;
}

size_t codePoints(const std::string &text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(),
                                             [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// A pattern that does not compile matches nothing, so a value is never let through by it.
bool matches(const std::string &pattern, const std::string &text)
{
    try {
        return std::regex_search(text, std::regex(pattern, std::regex::ECMAScript));
    } catch (const std::regex_error &) {
        return false;
    }
}

void appendCompact(std::string &out, const JSONValue &value)
{
    if (value.isArray()) {
        out += '[';
        for (size_t i = 0; i < value.asArray().size(); ++i) {
            if (i > 0)
                out += ',';
            appendCompact(out, value.asArray()[i]);
        }
        out += ']';
    } else if (value.isObject()) {
        out += '{';
        bool first = true;
        for (const auto &[key, member] : value.asObject()) {
            if (!first)
                out += ',';
            first = false;
            JSONValue(key).appendTo(out, 0);
            out += ':';
            appendCompact(out, member);
        }
        out += '}';
    } else {
        value.appendTo(out, 0);
    }
}

// The value on one line, cut short when long: error messages quote what was wrong.
std::string shortText(const JSONValue &value)
{
    std::string text;
    appendCompact(text, value);
    if (text.size() > 80)
        text = text.substr(0, 77) + "...";
    return text;
}

std::string numberText(double value)
{
    std::string text;
    JSONValue::appendNumber(text, value);
    return text;
}

std::string percentDecoded(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            const std::string hex(text.substr(i + 1, 2));
            char *end = nullptr;
            const long byte = std::strtol(hex.c_str(), &end, 16);
            if (end == hex.c_str() + 2) {
                out += static_cast<char>(byte);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

}  // namespace

std::string JSONSchemaValidator::escapedToken(std::string_view token)
{
    std::string out;
    for (char c : token) {
        if (c == '~')
            out += "~0";
        else if (c == '/')
            out += "~1";
        else
            out += c;
    }
    return out;
}

std::optional<JSONSchemaValidator::Failure> JSONSchemaValidator::validate(const JSONValue &instance) const
{
    Failure failure;
    if (check(m_root, instance, "", &failure, 0))
        return std::nullopt;
    return failure;
}

const JSONValue *JSONSchemaValidator::resolve(std::string_view reference) const
{
    if (reference.empty() || reference.front() != '#')
        return nullptr;
    const std::string pointer = percentDecoded(reference.substr(1));
    if (pointer.empty())
        return &m_root;
    if (pointer.front() != '/')
        return nullptr;
    const JSONValue *at = &m_root;
    size_t start = 1;
    while (true) {
        const size_t slash = pointer.find('/', start);
        std::string token = pointer.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        std::string unescaped;
        for (size_t i = 0; i < token.size(); ++i) {
            if (token[i] == '~' && i + 1 < token.size() && (token[i + 1] == '0' || token[i + 1] == '1')) {
                unescaped += token[i + 1] == '0' ? '~' : '/';
                ++i;
            } else {
                unescaped += token[i];
            }
        }
        if (at->isObject()) {
            at = member(at->asObject(), unescaped);
        } else if (at->isArray()) {
            char *end = nullptr;
            const unsigned long index = std::strtoul(unescaped.c_str(), &end, 10);
            at = !unescaped.empty() && *end == '\0' && index < at->asArray().size() ? &at->asArray()[index] : nullptr;
        } else {
            at = nullptr;
        }
        if (!at || slash == std::string::npos)
            return at;
        start = slash + 1;
    }
}

bool JSONSchemaValidator::check(const JSONValue &schema, const JSONValue &instance, const std::string &path,
                                Failure *failure, int depth) const
{
    auto fail = [&](std::string message) {
        if (failure)
            *failure = {path, std::move(message)};
        return false;
    };
    if (depth > maxDepth)
        return fail("the schema nests deeper than " + std::to_string(maxDepth) + " levels");
    if (schema.isBool())
        return schema.asBool() ? true : fail("no value is allowed here");
    if (!schema.isObject())
        return true;  // not a schema; nothing to hold the value to
    return checkObject(schema.asObject(), instance, path, failure, depth);
}

bool JSONSchemaValidator::checkObject(const JSONValue::ObjectType &schema, const JSONValue &instance,
                                      const std::string &path, Failure *failure, int depth) const
{
    auto fail = [&](std::string message) {
        if (failure)
            *failure = {path, std::move(message)};
        return false;
    };
    auto sub = [&](const JSONValue &subschema, const JSONValue &value, const std::string &where, Failure *out) {
        return check(subschema, value, where, out, depth + 1);
    };

    if (const JSONValue *ref = member(schema, "$ref"); ref && ref->isString()) {
        const JSONValue *target = resolve(ref->asString());
        if (!target)
            return fail("the schema refers to '" + ref->asString() + "', which it does not define");
        if (!sub(*target, instance, path, failure))
            return false;
    }

    if (const JSONValue *type = member(schema, "type")) {
        bool ok = false;
        std::string names;
        if (type->isString()) {
            ok = hasType(instance, type->asString());
            names = type->asString();
        } else if (type->isArray()) {
            for (const JSONValue &entry : type->asArray()) {
                if (!entry.isString())
                    continue;
                ok = ok || hasType(instance, entry.asString());
                names += (names.empty() ? "" : " or ") + entry.asString();
            }
        } else {
            ok = true;
        }
        if (!ok)
            return fail("expected " + names + ", got " + shortText(instance));
    }
    if (const JSONValue *values = member(schema, "enum"); values && values->isArray()) {
        const auto &list = values->asArray();
        if (std::find(list.begin(), list.end(), instance) == list.end())
            return fail("must be one of " + shortText(*values));
    }
    if (const JSONValue *constant = member(schema, "const"); constant && !(*constant == instance))
        return fail("must be " + shortText(*constant));

    if (instance.isNumber()) {
        const double x = instance.asNumber();
        auto bound = [&](const char *key, auto violates, const char *words) -> std::optional<bool> {
            const JSONValue *limit = member(schema, key);
            if (limit && limit->isNumber() && violates(x, limit->asNumber()))
                return fail(std::string(words) + " " + numberText(limit->asNumber()));
            return std::nullopt;
        };
        if (auto r = bound("minimum", [](double v, double l) { return v < l; }, "must be at least"))
            return *r;
        if (auto r = bound("maximum", [](double v, double l) { return v > l; }, "must be at most"))
            return *r;
        if (auto r = bound("exclusiveMinimum", [](double v, double l) { return v <= l; }, "must be greater than"))
            return *r;
        if (auto r = bound("exclusiveMaximum", [](double v, double l) { return v >= l; }, "must be less than"))
            return *r;
        if (const JSONValue *step = member(schema, "multipleOf"); step && step->isNumber() && step->asNumber() > 0) {
            const double quotient = x / step->asNumber();
            // Decimal steps such as 0.01 are not exact in binary: a quotient within rounding
            // distance of a whole number counts as whole.
            if (!std::isfinite(quotient) ||
                std::fabs(quotient - std::round(quotient)) > 1e-9 * std::max(1.0, std::fabs(quotient)))
                return fail("must be a multiple of " + numberText(step->asNumber()));
        }
    }

    if (instance.isString()) {
        const size_t length = codePoints(instance.asString());
        if (const JSONValue *min = member(schema, "minLength"); min && min->isNumber() && length < min->asNumber())
            return fail("must be at least " + numberText(min->asNumber()) + " characters long");
        if (const JSONValue *max = member(schema, "maxLength"); max && max->isNumber() && length > max->asNumber())
            return fail("must be at most " + numberText(max->asNumber()) + " characters long");
        if (const JSONValue *pattern = member(schema, "pattern"); pattern && pattern->isString() &&
                                                                  !matches(pattern->asString(), instance.asString()))
            return fail("must match the pattern " + shortText(*pattern));
    }

    if (instance.isObject()) {
        const auto &object = instance.asObject();
        if (const JSONValue *required = member(schema, "required"); required && required->isArray()) {
            for (const JSONValue &name : required->asArray())
                if (name.isString() && !object.contains(name.asString()))
                    return fail("the member '" + name.asString() + "' is required");
        }
        if (const JSONValue *min = member(schema, "minProperties"); min && min->isNumber() && object.size() < min->asNumber())
            return fail("must have at least " + numberText(min->asNumber()) + " members");
        if (const JSONValue *max = member(schema, "maxProperties"); max && max->isNumber() && object.size() > max->asNumber())
            return fail("must have at most " + numberText(max->asNumber()) + " members");
        if (const JSONValue *dependent = member(schema, "dependentRequired"); dependent && dependent->isObject()) {
            for (const auto &[name, needed] : dependent->asObject()) {
                if (!object.contains(name) || !needed.isArray())
                    continue;
                for (const JSONValue &other : needed.asArray())
                    if (other.isString() && !object.contains(other.asString()))
                        return fail("the member '" + other.asString() + "' is required with '" + name + "'");
            }
        }
        if (const JSONValue *dependent = member(schema, "dependentSchemas"); dependent && dependent->isObject()) {
            for (const auto &[name, subschema] : dependent->asObject())
                if (object.contains(name) && !sub(subschema, instance, path, failure))
                    return false;
        }
        const JSONValue *properties = member(schema, "properties");
        const JSONValue *patterns = member(schema, "patternProperties");
        const JSONValue *additional = member(schema, "additionalProperties");
        const JSONValue *names = member(schema, "propertyNames");
        for (const auto &[key, value] : object) {
            const std::string where = path + "/" + escapedToken(key);
            if (names && !sub(*names, JSONValue(key), where, failure)) {
                if (failure)
                    failure->message = "the member name is not allowed: " + failure->message;
                return false;
            }
            bool covered = false;
            if (properties && properties->isObject()) {
                if (const JSONValue *subschema = member(properties->asObject(), key)) {
                    covered = true;
                    if (!sub(*subschema, value, where, failure))
                        return false;
                }
            }
            if (patterns && patterns->isObject()) {
                for (const auto &[pattern, subschema] : patterns->asObject()) {
                    if (!matches(pattern, key))
                        continue;
                    covered = true;
                    if (!sub(subschema, value, where, failure))
                        return false;
                }
            }
            if (!covered && additional) {
                Failure inner;
                if (!sub(*additional, value, where, failure ? &inner : nullptr)) {
                    if (failure)
                        *failure = {where, additional->isBool() ? "the member '" + key + "' is not allowed"
                                                                : inner.message};
                    return false;
                }
            }
        }
    }

    if (instance.isArray()) {
        const auto &items = instance.asArray();
        if (const JSONValue *min = member(schema, "minItems"); min && min->isNumber() && items.size() < min->asNumber())
            return fail("must have at least " + numberText(min->asNumber()) + " items");
        if (const JSONValue *max = member(schema, "maxItems"); max && max->isNumber() && items.size() > max->asNumber())
            return fail("must have at most " + numberText(max->asNumber()) + " items");
        if (const JSONValue *unique = member(schema, "uniqueItems"); unique && unique->isBool() && unique->asBool()) {
            for (size_t i = 0; i < items.size(); ++i)
                for (size_t j = i + 1; j < items.size(); ++j)
                    if (items[i] == items[j])
                        return fail("items " + std::to_string(i) + " and " + std::to_string(j) + " are equal");
        }
        size_t prefixed = 0;
        if (const JSONValue *prefix = member(schema, "prefixItems"); prefix && prefix->isArray()) {
            prefixed = std::min(prefix->asArray().size(), items.size());
            for (size_t i = 0; i < prefixed; ++i)
                if (!sub(prefix->asArray()[i], items[i], path + "/" + std::to_string(i), failure))
                    return false;
        }
        if (const JSONValue *rest = member(schema, "items")) {
            for (size_t i = prefixed; i < items.size(); ++i)
                if (!sub(*rest, items[i], path + "/" + std::to_string(i), failure))
                    return false;
        }
        if (const JSONValue *contains = member(schema, "contains")) {
            size_t count = 0;
            for (const JSONValue &item : items)
                count += sub(*contains, item, path, nullptr) ? 1 : 0;
            double least = 1;
            if (const JSONValue *min = member(schema, "minContains"); min && min->isNumber())
                least = min->asNumber();
            if (count < least)
                return fail(count == 0 ? "no item matches what the list must contain"
                                       : "too few items match what the list must contain");
            if (const JSONValue *max = member(schema, "maxContains"); max && max->isNumber() && count > max->asNumber())
                return fail("too many items match what the list must contain");
        }
    }

    if (const JSONValue *all = member(schema, "allOf"); all && all->isArray()) {
        for (const JSONValue &subschema : all->asArray())
            if (!sub(subschema, instance, path, failure))
                return false;
    }
    if (const JSONValue *any = member(schema, "anyOf"); any && any->isArray()) {
        const auto &list = any->asArray();
        if (std::none_of(list.begin(), list.end(), [&](const JSONValue &s) { return sub(s, instance, path, nullptr); }))
            return fail("matches none of the allowed forms");
    }
    if (const JSONValue *one = member(schema, "oneOf"); one && one->isArray()) {
        const auto &list = one->asArray();
        const auto count =
            std::count_if(list.begin(), list.end(), [&](const JSONValue &s) { return sub(s, instance, path, nullptr); });
        if (count != 1)
            return fail(count == 0 ? "matches none of the allowed forms" : "matches more than one of the exclusive forms");
    }
    if (const JSONValue *negated = member(schema, "not"); negated && sub(*negated, instance, path, nullptr))
        return fail("matches a form that is not allowed");
    if (const JSONValue *condition = member(schema, "if")) {
        const bool holds = sub(*condition, instance, path, nullptr);
        const JSONValue *branch = member(schema, holds ? "then" : "else");
        if (branch && !sub(*branch, instance, path, failure))
            return false;
    }
    return true;
}

}  // namespace MCP
