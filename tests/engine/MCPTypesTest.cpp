#include "engine/JSONParser.h"
#include "engine/MCPTypes.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace MCP;

namespace {

ToolSchemaProperty property(std::string type, std::optional<std::string> defaultValue)
{
    ToolSchemaProperty p;
    p.type = std::move(type);
    p.defaultValue = std::move(defaultValue);
    return p;
}

}  // namespace

TEST(MCPTypesTest, DefaultsFollowThePropertyType)
{
    // Numbers and booleans stay Strings; an integer property carries no default.
    using Case = std::tuple<std::string, std::optional<std::string>, std::string>;
    for (const auto &[type, value, printed] : std::vector<Case>{
             {"array", R"(["a", "b"])", "[\n  \"a\",\n  \"b\"\n]"}, {"array", "[]", "[]"},
             {"array", " x ,, y ", "[\n  \"x\",\n  \"y\"\n]"}, {"number", "5", "\"5\""}, {"boolean", "true", "\"true\""},
             {"bool", "false", "\"false\""}, {"string", "", "\"\""}, {"integer", "3", "-"}, {"string", std::nullopt, "-"}}) {
        const JSONValue json = property(type, value).toJSON();
        EXPECT_EQ(json.contains("default") ? json.at("default").toString(0) : "-", printed) << type << value.value_or("");
    }
}

TEST(MCPTypesTest, PropertyMembersAppearOnlyWhenSet)
{
    ToolSchemaProperty p = property("string", std::nullopt);
    EXPECT_EQ(p.toJSON().toString(0), "{\n  \"type\": \"string\"\n}");
    p.description = "d";
    p.name = "n";
    p.items = ToolSchemaPropertyItems{"string", R"({"ignored": 1})"};  // only object items carry properties
    EXPECT_EQ(p.toJSON(), *JSONParser::parseDocument(R"({"type": "string", "description": "d", "name": "n",
                                                         "items": {"type": "string"}})"));
}

TEST(MCPTypesTest, ObjectItemsParseTheirPropertiesText)
{
    ToolSchemaPropertyItems items{"object", R"({"path": {"type": "string"}})"};
    EXPECT_EQ(items.toJSON().at("properties").at("path").at("type").asString(), "string");

    for (const char *bad : {"not json", "[1, 2]", "\xff"}) {
        ToolSchemaPropertyItems broken{"object", std::string(bad)};
        const JSONValue json = broken.toJSON();
        EXPECT_FALSE(json.contains("properties")) << bad;
        EXPECT_EQ(json.at("type").asString(), "object");
    }
    EXPECT_FALSE(ToolSchemaPropertyItems({"object", std::string()}).toJSON().contains("properties"));
}

TEST(MCPTypesTest, SchemaAndAnnotationsOmitEmptyParts)
{
    ToolSchema schema;
    schema.required = std::vector<std::string>{};
    EXPECT_EQ(schema.toJSON().toString(0), "{\n  \"type\": \"object\"\n}");
    schema.required->push_back("text");
    schema.properties["text"] = property("string", std::nullopt);
    EXPECT_EQ(schema.toJSON(), *JSONParser::parseDocument(
                                   R"({"type": "object", "required": ["text"], "properties": {"text": {"type": "string"}}})"));

    ToolAnnotations annotations;
    EXPECT_EQ(annotations.toJSON().toString(0), "{\n  \"audience\": [],\n  \"priority\": 0\n}");
    annotations.priority = 0.9;
    annotations.lastModified = "2025-01-02T03:04:05.678Z";
    EXPECT_EQ(annotations.toJSON(), *JSONParser::parseDocument(
                                        R"({"audience": [], "priority": 0.9, "lastModified": "2025-01-02T03:04:05.678Z"})"));
    // A hint set to false is sent: clients take a missing destructiveHint as true.
    annotations.title = "Delete file";
    annotations.destructiveHint = false;
    annotations.openWorldHint = true;
    EXPECT_EQ(annotations.toJSON(), *JSONParser::parseDocument(R"({"audience": [], "priority": 0.9,
        "lastModified": "2025-01-02T03:04:05.678Z", "title": "Delete file", "destructiveHint": false, "openWorldHint": true})"));
}

TEST(MCPTypesTest, ToolObjectListsExecutionFieldsEvenWhenEmpty)
{
    ToolDefinition tool;
    tool.name = "t";
    JSONValue json = tool.toJSON();
    for (const char *key : {"description", "execHandler", "execMethod", "pluginName", "toolType", "scriptName"})
        EXPECT_EQ(json.at(key).asString(), "") << key;
    EXPECT_FALSE(json.contains("title"));
    tool.title = "";
    EXPECT_TRUE(tool.toJSON().contains("title"));
}

TEST(MCPTypesTest, ResourceObjectShape)
{
    ResourceDefinition resource{.uri = "file:///a", .contextTags = {"x"}, .relatedResources = {{"1", "doc", "file:///b"}}};
    resource.data.createdAt = "c";
    resource.data.updatedAt = "u";
    const JSONValue json = resource.toJSON();
    EXPECT_EQ(json.at("context").at("contextTags").asArray().at(0).asString(), "x");
    EXPECT_EQ(json.at("context").at("relatedResources").asArray().at(0).at("uri").asString(), "file:///b");
    EXPECT_TRUE(json.at("context").at("metadata").contains("author"));
    EXPECT_EQ(json.at("data").at("created_at").asString(), "c");
    EXPECT_EQ(json.at("data").at("updated_at").asString(), "u");
    EXPECT_TRUE(json.at("data").at("size").isString());
}
