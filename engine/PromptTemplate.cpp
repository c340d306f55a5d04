#include "engine/PromptTemplate.h"

namespace MCP {

namespace {

const JSONValue *valueOf(const JSONValue &values, const std::string &name)
{
    if (!values.isObject() || !values.contains(name))
        return nullptr;
    const JSONValue &value = values.at(name);
    return value.isNull() ? nullptr : &value;
}

void replaceAll(std::string &text, const std::string &placeholder, const std::string &value)
{
    size_t at = 0;
    while ((at = text.find(placeholder, at)) != std::string::npos) {
        text.replace(at, placeholder.size(), value);
        at += value.size();
    }
}

bool blank(std::string_view name)
{
    return name.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

}  // namespace

std::string PromptTemplate::render(std::string_view text, const std::vector<PromptArgument> &arguments, const JSONValue &values)
{
    std::string out(text);
    for (const PromptArgument &argument : arguments) {
        if (blank(argument.name))
            continue;
        std::string value;
        if (const JSONValue *given = valueOf(values, argument.name))
            value = given->isString() ? given->asString() : given->toString(0);
        // Double braces first, so that "{{name}}" does not leave "{" and "}" behind.
        replaceAll(out, "{{" + argument.name + "}}", value);
        replaceAll(out, "{" + argument.name + "}", value);
    }
    return out;
}

JSONValue PromptTemplate::renderMessages(const JSONValue &messages, const std::vector<PromptArgument> &arguments,
                                         const JSONValue &values)
{
    JSONValue::ArrayType out;
    if (!messages.isArray())
        return JSONValue(std::move(out));
    auto fill = [&](JSONValue &object, const char *key) {
        if (object.isObject() && object.contains(key) && object.at(key).isString())
            object[key] = JSONValue(render(object.at(key).asString(), arguments, values));
    };
    for (const JSONValue &message : messages.asArray()) {
        if (!message.isObject() || !message.contains("content") || !message.at("content").isObject())
            continue;
        JSONValue copy = message;
        JSONValue &content = copy["content"];
        fill(content, "text");
        if (content.contains("resource") && content.at("resource").isObject()) {
            fill(content["resource"], "uri");
            fill(content["resource"], "text");
        }
        out.push_back(std::move(copy));
    }
    return JSONValue(std::move(out));
}

std::optional<std::string> PromptTemplate::missingRequired(const std::vector<PromptArgument> &arguments, const JSONValue &values)
{
    for (const PromptArgument &argument : arguments) {
        if (!argument.required || blank(argument.name))
            continue;
        const JSONValue *given = valueOf(values, argument.name);
        if (!given || (given->isString() && given->asString().empty()))
            return argument.name;
    }
    return std::nullopt;
}

}  // namespace MCP
