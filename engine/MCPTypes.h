#pragma once

#include "engine/JSONValue.h"
#include "engine/ToolCallContext.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// The definition records that the three services hold, and their JSON forms as clients
// see them in "tools/list", "resources/list" and "prompts/list".
namespace MCP {

// Serves tools and resources alike.
struct ToolAnnotations {
    std::vector<std::string> audience;
    double priority = 0.0;
    std::string lastModified;
    // What clients use to decide whether to ask before a call; each is sent only when set
    // (a resource sets none of them).
    std::optional<std::string> title;
    std::optional<bool> readOnlyHint;
    std::optional<bool> destructiveHint;
    std::optional<bool> idempotentHint;
    std::optional<bool> openWorldHint;

    JSONValue toJSON() const;
};

struct ToolSchemaPropertyItems {
    std::string type;
    std::optional<std::string> properties;  // JSON text of an object

    JSONValue toJSON() const;
};

struct ToolSchemaProperty {
    std::string type;
    std::string description;
    std::optional<std::string> defaultValue;
    std::optional<std::string> name;
    std::optional<ToolSchemaPropertyItems> items;

    JSONValue toJSON() const;
};

struct ToolSchema {
    std::string type = "object";
    std::map<std::string, ToolSchemaProperty> properties;
    std::optional<std::vector<std::string>> required;
    // The whole JSON Schema as its author wrote it; when set it is what clients see and
    // what a call's arguments are checked against, and the fields above are not used.
    std::optional<JSONValue> document;

    JSONValue toJSON() const;
};

// Runs a tool: takes the client's arguments (an Object) as they came and the call's context,
// and gives the result value, or nothing when the tool produced none.
using ToolHandler = std::function<std::optional<JSONValue>(const JSONValue &arguments, const ToolCallContext &call)>;

struct ToolDefinition {
    std::string name;
    std::optional<std::string> title;
    std::string description;
    std::string execHandler;
    std::string execMethod;
    std::string pluginName;
    std::string toolType;
    std::string scriptName;
    ToolAnnotations annotations;
    ToolSchema inputSchema;
    ToolSchema outputSchema;
    ToolHandler handler;

    JSONValue toJSON() const;
};

struct ResourceMetadata {
    std::string created;
    std::string modified;
    std::string author;
    std::string version;
};

struct RelatedResource {
    std::string resourceId;
    std::string resourceType;
    std::string uri;
};

struct ResourceData {
    std::string content;
    std::string format;
    std::string createdAt;
    std::string updatedAt;
    std::string size;
    std::string blob;   // base64 of binary content; then `content` is empty
    std::string error;  // why the content could not be read; the read answers an error
};

struct ResourceDefinition;
// Fills in a resource's content: takes the registered definition, gives it back with
// `data` set.
using ResourceProvider = std::function<ResourceDefinition(const ResourceDefinition &)>;
// Completion values made on request: the argument's (or variable's) name, what was typed and
// the other arguments the client gave (its `context.arguments`, or null). The server then
// filters them by what was typed, as it does a fixed list.
using CompletionSource =
    std::function<std::vector<std::string>(const std::string &argument, const std::string &typed, const JSONValue &context)>;

struct ResourceDefinition {
    std::string uri;
    std::string name;
    std::string description;
    std::string mimeType;
    std::string type;  // "template": `uri` is a URI template, listed by resources/templates/list
    // A read through a template: the template the URI matched (`uri` is then the URI read)
    // and the values of its variables.
    std::string uriTemplate;
    std::map<std::string, std::string> variables;
    // Values offered by completion/complete, per template variable.
    std::map<std::string, std::vector<std::string>> completions;
    // When set, asked for every variable instead of `completions`.
    CompletionSource valuesSource;
    ResourceMetadata metadata;
    std::vector<std::string> contextTags;
    std::vector<RelatedResource> relatedResources;
    ToolAnnotations annotations;
    ResourceProvider provider;
    ResourceData data;

    JSONValue toJSON() const;
    // The entry of resources/templates/list.
    JSONValue templateJSON() const;
};

struct PromptArgument {
    std::string name;
    std::string description;
    bool required = false;
    std::vector<std::string> values;  // offered by completion/complete
    CompletionSource valuesSource;    // when set, asked instead of `values`
};

// Renders a prompt from the request's params.
using PromptRenderer = std::function<std::string(const JSONValue &params)>;

struct PromptDefinition {
    std::string name;
    std::string description;
    std::vector<PromptArgument> arguments;
    std::string template_;  // `template` on the wire
    // Messages as the protocol sends them ({role, content}), with {{argument}} placeholders
    // in texts and resource URIs; an Array, or null for a prompt of the template alone.
    JSONValue messages;
    PromptRenderer renderer;

    JSONValue toJSON() const;
};

}  // namespace MCP
