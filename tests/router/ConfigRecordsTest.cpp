#include "tools/router/JSONPromptConfig.h"
#include "tools/router/JSONResourceConfig.h"
#include "tools/router/JSONToolConfig.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

QJsonObject parse(const char *json)
{
    return QJsonDocument::fromJson(QByteArray(json)).object();
}

const char *kTool = R"({
  "annotations": {"audience": ["user"], "lastModified": "2025-01-02T03:04:05.678Z", "priority": 0.5},
  "description": "Reads", "execHandler": "FileAccessHandler", "execMethod": "readFile",
  "inputSchema": {"type": "object", "required": ["file_path"], "properties": {
    "file_path": {"type": "string", "description": "Path", "name": "ignored"},
    "tags": {"type": "array", "description": "", "items": {"type": "array", "content": [1, "two", null, {"x": true}]}},
    "options": {"type": "object", "description": "", "items": {"type": "object", "properties": {}}},
    "names": {"type": "array", "description": "", "defaultValue": "a, b", "items": {"type": "string", "content": "kept"}}}},
  "name": "read_file", "outputSchema": {"type": "object", "properties": {}},
  "pluginName": "", "scriptName": "", "toolType": "BuiltinTool"
})";

}  // namespace

TEST(ConfigRecords, ToolFileDecodesWithItemsByTheirType)
{
    QString error;
    const auto config = JSONToolConfig::fromJson(parse(kTool), &error);
    ASSERT_TRUE(config.has_value()) << error.toStdString();
    EXPECT_FALSE(config->title.has_value());
    EXPECT_EQ(config->toolDescription, QStringLiteral("Reads"));
    EXPECT_EQ(config->inputSchema.required, QStringList{QStringLiteral("file_path")});
    const auto &props = config->inputSchema.properties;
    EXPECT_FALSE(props.value(QStringLiteral("file_path")).name.has_value());
    EXPECT_EQ(props.value(QStringLiteral("tags")).items->content, QStringLiteral("[1,\"two\",null,{\"x\":true}]"));
    // An empty object of properties is no content at all.
    EXPECT_FALSE(props.value(QStringLiteral("options")).items->content.has_value());
    EXPECT_EQ(props.value(QStringLiteral("names")).items->content, QStringLiteral("kept"));
    EXPECT_EQ(props.value(QStringLiteral("names")).defaultValue, QStringLiteral("a, b"));
    EXPECT_FALSE(config->outputSchema.required.has_value());
}

TEST(ConfigRecords, AMissingKeyOrAWrongTypeFailsTheWholeFile)
{
    QJsonObject noName = parse(kTool);
    noName.remove(QStringLiteral("name"));
    QString error;
    EXPECT_FALSE(JSONToolConfig::fromJson(noName, &error).has_value());
    EXPECT_EQ(error, QStringLiteral("The key 'name' is missing."));

    QJsonObject badProperty = parse(kTool);
    QJsonObject input = badProperty.value(QStringLiteral("inputSchema")).toObject();
    QJsonObject props = input.value(QStringLiteral("properties")).toObject();
    QJsonObject tags = props.value(QStringLiteral("tags")).toObject();
    tags.insert(QStringLiteral("items"), QJsonObject{{QStringLiteral("type"), QStringLiteral("array")},
                                                    {QStringLiteral("content"), QStringLiteral("not an array")}});
    props.insert(QStringLiteral("tags"), tags);
    input.insert(QStringLiteral("properties"), props);
    badProperty.insert(QStringLiteral("inputSchema"), input);
    EXPECT_FALSE(JSONToolConfig::fromJson(badProperty, &error).has_value());
    EXPECT_EQ(error, QStringLiteral("The value of 'inputSchema.properties.tags.items.content' is not an array."));

    EXPECT_FALSE(JSONToolConfig::fromJsonData("{\"name\": ", &error).has_value());
    EXPECT_TRUE(error.startsWith(QStringLiteral("The file is no valid JSON"))) << error.toStdString();

    QJsonObject prompt = parse(R"({"name": "p", "description": "", "template": "",
                                  "arguments": [{"name": "a", "description": "", "required": "yes"}]})");
    EXPECT_FALSE(JSONPromptConfig::fromJson(prompt, &error).has_value());
    EXPECT_EQ(error, QStringLiteral("The value of 'arguments.0.required' is not a boolean."));

    QJsonObject resource = parse(R"({"uri": "file:///x", "name": "x", "description": "", "mimeType": "text/plain",
                                    "type": "file", "contextTags": "", "relatedResources": "",
                                    "annotations": {"audience": [], "priority": 1}})");
    EXPECT_FALSE(JSONResourceConfig::fromJson(resource, &error).has_value());
    EXPECT_EQ(error, QStringLiteral("The key 'annotations.lastModified' is missing."));
}

TEST(ConfigRecords, ItemsAreWrittenUnderTheKeyOfTheirType)
{
    auto items = [](const char *type, const char *content) {
        return JSONToolSchemaPropertyItems{QString::fromLatin1(type),
                                           content ? std::optional<QString>(QString::fromLatin1(content)) : std::nullopt}
            .toJson();
    };
    EXPECT_EQ(items("array", "[1, {\"a\": 2}]"),
              (QJsonObject{{QStringLiteral("type"), QStringLiteral("array")},
                           {QStringLiteral("content"), QJsonArray{1, QJsonObject{{QStringLiteral("a"), 2}}}}}));
    // Non-array content: the type alone.
    EXPECT_EQ(items("array", "{\"a\": 2}"), (QJsonObject{{QStringLiteral("type"), QStringLiteral("array")}}));
    EXPECT_EQ(items("array", "  "), (QJsonObject{{QStringLiteral("type"), QStringLiteral("array")}}));
    // An object always has its properties, empty when the content is no object.
    EXPECT_EQ(items("object", "{\"a\": {\"type\": \"string\"}}"),
              (QJsonObject{{QStringLiteral("type"), QStringLiteral("object")},
                           {QStringLiteral("properties"),
                            QJsonObject{{QStringLiteral("a"), QJsonObject{{QStringLiteral("type"), QStringLiteral("string")}}}}}}));
    for (const char *content : {"[1, 2]", "not json", "", "42"})
        EXPECT_EQ(items("object", content), (QJsonObject{{QStringLiteral("type"), QStringLiteral("object")},
                                                        {QStringLiteral("properties"), QJsonObject()}}))
            << content;
    EXPECT_EQ(items("object", nullptr), (QJsonObject{{QStringLiteral("type"), QStringLiteral("object")},
                                                    {QStringLiteral("properties"), QJsonObject()}}));
    // A primitive type never writes its content.
    EXPECT_EQ(items("string", "\"x\""), (QJsonObject{{QStringLiteral("type"), QStringLiteral("string")}}));
}

TEST(ConfigRecords, BridgeKeysUseTheFileNames)
{
    auto config = JSONToolConfig::fromJson(parse(kTool));
    ASSERT_TRUE(config.has_value());
    EXPECT_EQ(config->value(QStringLiteral("description")).toString(), QStringLiteral("Reads"));
    EXPECT_FALSE(config->value(QStringLiteral("title")).isValid());
    EXPECT_FALSE(config->value(QStringLiteral("toolDescription")).isValid());
    config->title = QStringLiteral("Read a file");
    EXPECT_EQ(config->value(QStringLiteral("title")).toString(), QStringLiteral("Read a file"));
    EXPECT_EQ(config->toJson().value(QStringLiteral("title")).toString(), QStringLiteral("Read a file"));

    // The bridge reads items content as JSON text.
    const QVariantMap tags = config->toVariant()
                                 .value(QStringLiteral("inputSchema")).toMap()
                                 .value(QStringLiteral("properties")).toMap()
                                 .value(QStringLiteral("tags")).toMap()
                                 .value(QStringLiteral("items")).toMap();
    EXPECT_EQ(tags.value(QStringLiteral("content")).toString(), QStringLiteral("[1,\"two\",null,{\"x\":true}]"));

    JSONPromptConfig prompt;
    prompt.promptDescription = QStringLiteral("Says hello");
    prompt.arguments.append({QStringLiteral("who"), QStringLiteral("Whom to greet"), true});
    EXPECT_EQ(prompt.value(QStringLiteral("description")).toString(), QStringLiteral("Says hello"));
    EXPECT_EQ(prompt.toJson().value(QStringLiteral("arguments")).toArray().first().toObject(),
              (QJsonObject{{QStringLiteral("name"), QStringLiteral("who")},
                           {QStringLiteral("description"), QStringLiteral("Whom to greet")},
                           {QStringLiteral("required"), true}}));
}
