#include "engine/MCPTypes.h"

#include <gtest/gtest.h>

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
    const JSONValue array = property("array", R"(["a", "b"])").toJSON();
    ASSERT_TRUE(array.at("default").isArray());
    ASSERT_EQ(array.at("default").asArray().size(), 2u);
    EXPECT_EQ(array.at("default").asArray()[0].asString(), "a");
    EXPECT_EQ(array.at("default").asArray()[1].asString(), "b");

    EXPECT_TRUE(property("array", "[]").toJSON().at("default").asArray().empty());
    EXPECT_EQ(property("array", " x ,, y ").toJSON().at("default").asArray().size(), 2u);

    // Numbers and booleans stay Strings.
    EXPECT_EQ(property("number", "5").toJSON().at("default").asString(), "5");
    EXPECT_EQ(property("boolean", "true").toJSON().at("default").asString(), "true");
    EXPECT_EQ(property("bool", "false").toJSON().at("default").asString(), "false");
    EXPECT_EQ(property("string", "").toJSON().at("default").asString(), "");
    EXPECT_FALSE(property("integer", "3").toJSON().contains("default"));
    EXPECT_FALSE(property("string", std::nullopt).toJSON().contains("default"));
}

TEST(MCPTypesTest, PropertyMembersAppearOnlyWhenSet)
{
    ToolSchemaProperty p = property("string", std::nullopt);
    EXPECT_EQ(p.toJSON().toString(0), "{\n  \"type\": \"string\"\n}");
    p.description = "d";
    p.name = "n";
    p.items = ToolSchemaPropertyItems{"string", R"({"ignored": 1})"};
    const JSONValue json = p.toJSON();
    EXPECT_EQ(json.at("description").asString(), "d");
    EXPECT_EQ(json.at("name").asString(), "n");
    // Only object items carry properties.
    EXPECT_EQ(json.at("items").toString(0), "{\n  \"type\": \"string\"\n}");
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
    const JSONValue json = schema.toJSON();
    EXPECT_EQ(json.at("required").asArray().at(0).asString(), "text");
    EXPECT_TRUE(json.at("properties").contains("text"));

    ToolAnnotations annotations;
    EXPECT_EQ(annotations.toJSON().toString(0), "{\n  \"audience\": [],\n  \"priority\": 0\n}");
    annotations.priority = 0.9;
    annotations.lastModified = "2025-01-02T03:04:05.678Z";
    EXPECT_EQ(annotations.toJSON().at("lastModified").asString(), "2025-01-02T03:04:05.678Z");
    EXPECT_EQ(annotations.toJSON().toString(0).find("\"priority\": 0.9") != std::string::npos, true);
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
    ResourceDefinition resource;
    resource.uri = "file:///a";
    resource.contextTags = {"x"};
    resource.relatedResources = {{"1", "doc", "file:///b"}};
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
