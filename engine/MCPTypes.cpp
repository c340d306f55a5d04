#include "engine/MCPTypes.h"

#include "engine/JSONParser.h"
#include "engine/PlatformLog.h"

namespace MCP {

namespace {

JSONValue stringArray(const std::vector<std::string> &items)
{
    JSONValue::ArrayType array;
    array.reserve(items.size());
    for (const auto &item : items)
        array.emplace_back(item);
    return JSONValue(std::move(array));
}

// An array default arrives as loosely written text such as ["a", "b"] or a, b.
JSONValue arrayDefault(const std::string &text)
{
    std::string cleaned;
    cleaned.reserve(text.size());
    for (char c : text) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f' || c == '[' || c == ']')
            continue;
        cleaned += c;
    }
    std::erase(cleaned, '"');
    JSONValue::ArrayType array;
    size_t start = 0;
    while (start <= cleaned.size()) {
        size_t comma = cleaned.find(',', start);
        if (comma == std::string::npos)
            comma = cleaned.size();
        if (comma > start)
            array.emplace_back(cleaned.substr(start, comma - start));
        start = comma + 1;
    }
    return JSONValue(std::move(array));
}

bool isValidUtf8(std::string_view text)
{
    // A string value that holds the text parses only when the text is valid UTF-8.
    std::string quoted = "\"";
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            quoted += c;
    quoted += '"';
    return JSONParser::parseDocument(quoted).has_value();
}

}  // namespace

JSONValue ToolAnnotations::toJSON() const
{
    JSONValue json;
    json["audience"] = stringArray(audience);
    json["priority"] = JSONValue(priority);
    if (!lastModified.empty())
        json["lastModified"] = JSONValue(lastModified);
    if (title)
        json["title"] = JSONValue(*title);
    const std::pair<const char *, const std::optional<bool> *> hints[] = {{"readOnlyHint", &readOnlyHint},
                                                                          {"destructiveHint", &destructiveHint},
                                                                          {"idempotentHint", &idempotentHint},
                                                                          {"openWorldHint", &openWorldHint}};
    for (const auto &[key, hint] : hints)
        if (*hint)
            json[key] = JSONValue(**hint);
    return json;
}

JSONValue ToolSchemaPropertyItems::toJSON() const
{
    JSONValue json;
    json["type"] = JSONValue(type);
    if (type == "object" && properties && !properties->empty()) {
        if (!isValidUtf8(*properties)) {
            PlatformLog::write("[MCPTypes] (ToolSchemaPropertyItems::toJSON) Unable to get JSON data object.");
            return json;
        }
        std::string error;
        auto parsed = JSONParser::parseDocument(*properties, &error);
        if (!parsed) {
            PlatformLog::write("[MCPTypes] (ToolSchemaPropertyItems::toJSON) Unable to create JSON object. error: " + error);
            return json;
        }
        if (!parsed->isObject()) {
            PlatformLog::write("[MCPTypes] (ToolSchemaPropertyItems::toJSON) Unable to convert schema property object.");
            return json;
        }
        json["properties"] = std::move(*parsed);
    }
    return json;
}

JSONValue ToolSchemaProperty::toJSON() const
{
    JSONValue json;
    json["type"] = JSONValue(type);
    if (!description.empty())
        json["description"] = JSONValue(description);
    if (defaultValue) {
        if (type == "array")
            json["default"] = arrayDefault(*defaultValue);
        else if (type == "string" || type == "number" || type == "boolean" || type == "bool")
            json["default"] = JSONValue(*defaultValue);
    }
    if (name)
        json["name"] = JSONValue(*name);
    if (items)
        json["items"] = items->toJSON();
    return json;
}

JSONValue ToolSchema::toJSON() const
{
    if (document)
        return *document;
    JSONValue json;
    json["type"] = JSONValue(type);
    if (!properties.empty()) {
        JSONValue props;
        for (const auto &[key, property] : properties)
            props[key] = property.toJSON();
        json["properties"] = std::move(props);
    }
    if (required && !required->empty())
        json["required"] = stringArray(*required);
    return json;
}

JSONValue ToolDefinition::toJSON() const
{
    JSONValue json;
    json["name"] = JSONValue(name);
    if (title)
        json["title"] = JSONValue(*title);
    json["description"] = JSONValue(description);
    json["execHandler"] = JSONValue(execHandler);
    json["execMethod"] = JSONValue(execMethod);
    json["pluginName"] = JSONValue(pluginName);
    json["toolType"] = JSONValue(toolType);
    json["scriptName"] = JSONValue(scriptName);
    json["annotations"] = annotations.toJSON();
    json["inputSchema"] = inputSchema.toJSON();
    json["outputSchema"] = outputSchema.toJSON();
    return json;
}

JSONValue ResourceDefinition::toJSON() const
{
    JSONValue json;
    json["uri"] = JSONValue(uri);
    json["name"] = JSONValue(name);
    json["description"] = JSONValue(description);
    json["mimeType"] = JSONValue(mimeType);
    json["type"] = JSONValue(type);

    JSONValue context;
    context["contextTags"] = stringArray(contextTags);
    JSONValue::ArrayType related;
    for (const auto &entry : relatedResources) {
        JSONValue item;
        item["resourceId"] = JSONValue(entry.resourceId);
        item["resourceType"] = JSONValue(entry.resourceType);
        item["uri"] = JSONValue(entry.uri);
        related.push_back(std::move(item));
    }
    context["relatedResources"] = JSONValue(std::move(related));
    JSONValue meta;
    meta["created"] = JSONValue(metadata.created);
    meta["modified"] = JSONValue(metadata.modified);
    meta["author"] = JSONValue(metadata.author);
    meta["version"] = JSONValue(metadata.version);
    context["metadata"] = std::move(meta);
    json["context"] = std::move(context);

    json["annotations"] = annotations.toJSON();

    JSONValue content;
    content["content"] = JSONValue(data.content);
    content["format"] = JSONValue(data.format);
    content["size"] = JSONValue(data.size);
    content["created_at"] = JSONValue(data.createdAt);
    content["updated_at"] = JSONValue(data.updatedAt);
    json["data"] = std::move(content);
    if (!variables.empty()) {
        JSONValue values{JSONValue::ObjectType{}};
        for (const auto &[name, value] : variables)
            values[name] = JSONValue(value);
        json["variables"] = std::move(values);
        json["uriTemplate"] = JSONValue(uriTemplate);
    }
    return json;
}

JSONValue ResourceDefinition::templateJSON() const
{
    JSONValue json;
    json["uriTemplate"] = JSONValue(uri);
    json["name"] = JSONValue(name);
    if (!description.empty())
        json["description"] = JSONValue(description);
    if (!mimeType.empty())
        json["mimeType"] = JSONValue(mimeType);
    json["annotations"] = annotations.toJSON();
    return json;
}

JSONValue PromptDefinition::toJSON() const
{
    JSONValue json;
    json["name"] = JSONValue(name);
    json["description"] = JSONValue(description);
    JSONValue::ArrayType args;
    for (const auto &argument : arguments) {
        JSONValue item;
        item["name"] = JSONValue(argument.name);
        item["description"] = JSONValue(argument.description);
        item["required"] = JSONValue(argument.required);
        args.push_back(std::move(item));
    }
    json["arguments"] = JSONValue(std::move(args));
    json["template"] = JSONValue(template_);
    return json;
}

}  // namespace MCP
