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

// Why a record failed to decode; empty when it decoded.
template <class Decoded>
QString failureOf(const Result<Decoded> &decoded)
{
    return decoded ? QString() : decoded.error().description;
}

}  // namespace

TEST(ConfigRecords, ToolFileDecodesWithItemsByTheirType)
{
    const auto config = JSONToolConfig::fromJson(parse(kTool));
    ASSERT_TRUE(config.ok()) << failureOf(config).toStdString();
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
    EXPECT_EQ(failureOf(JSONToolConfig::fromJson(noName)), QStringLiteral("The key 'name' is missing."));

    QJsonObject badProperty = parse(kTool);
    QJsonObject input = badProperty.value(QStringLiteral("inputSchema")).toObject();
    QJsonObject props = input.value(QStringLiteral("properties")).toObject();
    QJsonObject tags = props.value(QStringLiteral("tags")).toObject();
    tags.insert(QStringLiteral("items"), QJsonObject{{QStringLiteral("type"), QStringLiteral("array")},
                                                    {QStringLiteral("content"), QStringLiteral("not an array")}});
    props.insert(QStringLiteral("tags"), tags);
    input.insert(QStringLiteral("properties"), props);
    badProperty.insert(QStringLiteral("inputSchema"), input);
    EXPECT_EQ(failureOf(JSONToolConfig::fromJson(badProperty)), QStringLiteral("The value of 'inputSchema.properties.tags.items.content' is not an array."));

    const QString invalid = failureOf(JSONToolConfig::fromJsonData("{\"name\": "));
    EXPECT_TRUE(invalid.startsWith(QStringLiteral("The file is no valid JSON"))) << invalid.toStdString();

    QJsonObject prompt = parse(R"({"name": "p", "description": "", "template": "",
                                  "arguments": [{"name": "a", "description": "", "required": "yes"}]})");
    EXPECT_EQ(failureOf(JSONPromptConfig::fromJson(prompt)), QStringLiteral("The value of 'arguments.0.required' is not a boolean."));

    QJsonObject resource = parse(R"({"uri": "file:///x", "name": "x", "description": "", "mimeType": "text/plain",
                                    "type": "file", "contextTags": "", "relatedResources": "",
                                    "annotations": {"audience": [], "priority": 1}})");
    EXPECT_EQ(failureOf(JSONResourceConfig::fromJson(resource)), QStringLiteral("The key 'annotations.lastModified' is missing."));
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
    ASSERT_TRUE(config.ok());
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

namespace {

const char *kWrittenSchema = R"({
  "$schema": "https://json-schema.org/draft/2020-12/schema",
  "type": "object",
  "$defs": {"address": {"type": "object", "properties": {"street": {"type": "string"}}, "required": ["street"]}},
  "properties": {
    "unit": {"type": "string", "enum": ["celsius", "fahrenheit"], "description": "Unit"},
    "count": {"type": "integer", "minimum": 1, "maximum": 10},
    "home": {"$ref": "#/$defs/address"},
    "tags": {"type": "array", "items": {"type": "string", "minLength": 1}, "minItems": 1}
  },
  "required": ["unit"],
  "additionalProperties": false
})";

QJsonObject toolWithSchema(const QJsonObject &schema)
{
    QJsonObject tool = parse(kTool);
    tool.insert(QStringLiteral("inputSchema"), schema);
    return tool;
}

}  // namespace

TEST(ConfigRecords, AWrittenSchemaIsKeptWholeAndEditedInPlace)
{
    const QJsonObject written = parse(kWrittenSchema);
    auto config = JSONToolConfig::fromJson(toolWithSchema(written));
    ASSERT_TRUE(config.ok()) << failureOf(config).toStdString();
    ASSERT_TRUE(config->inputSchema.document.has_value());
    EXPECT_EQ(config->toJson().value(QStringLiteral("inputSchema")).toObject(), written);
    // What the editor shows of it: a property without type or description reads as empty.
    const auto &props = config->inputSchema.properties;
    EXPECT_EQ(props.keys(), (QStringList{"count", "home", "tags", "unit"}));
    EXPECT_EQ(props.value(QStringLiteral("unit")).schemaDescription, QStringLiteral("Unit"));
    EXPECT_EQ(props.value(QStringLiteral("home")).type, QString());
    EXPECT_EQ(props.value(QStringLiteral("tags")).items->type, QStringLiteral("string"));
    // The engine gets the schema as written.
    const QString sent = config->toVariant().value(QStringLiteral("inputSchema")).toMap().value(QStringLiteral("document")).toString();
    EXPECT_EQ(QJsonDocument::fromJson(sent.toUtf8()).object(), written);

    // Edits change only what they touch: a description, a removed and an added property.
    config->inputSchema.properties[QStringLiteral("unit")].schemaDescription = QStringLiteral("Temperature unit");
    config->inputSchema.properties.remove(QStringLiteral("count"));
    config->inputSchema.properties.insert(QStringLiteral("city"), JSONToolSchemaProperty{QStringLiteral("string"), QStringLiteral("City"), {}, {}, {}});
    config->inputSchema.required = QStringList{QStringLiteral("unit"), QStringLiteral("city")};
    QJsonObject expected = written;
    QJsonObject expectedProps = expected.value(QStringLiteral("properties")).toObject();
    QJsonObject unit = expectedProps.value(QStringLiteral("unit")).toObject();
    unit.insert(QStringLiteral("description"), QStringLiteral("Temperature unit"));
    expectedProps.insert(QStringLiteral("unit"), unit);
    expectedProps.remove(QStringLiteral("count"));
    expectedProps.insert(QStringLiteral("city"), QJsonObject{{"type", "string"}, {"description", "City"}});
    expected.insert(QStringLiteral("properties"), expectedProps);
    expected.insert(QStringLiteral("required"), QJsonArray{"unit", "city"});
    EXPECT_EQ(config->inputSchema.toJson(), expected);

    // The record as a store gives it back (names filled in, empty defaults and item content)
    // reads as unedited.
    auto stored = JSONToolConfig::fromJson(toolWithSchema(written));
    for (auto &property : stored->inputSchema.properties) {
        property.name = QStringLiteral("x");
        property.defaultValue = QString();
        if (property.items)
            property.items->content = QString();
    }
    EXPECT_EQ(stored->inputSchema.toJson(), written);
}

TEST(ConfigRecords, SchemasInTheEditorsFormStayInIt)
{
    // Only the keys the editor writes: read as before, no document kept, and a property may
    // now go without a description.
    QJsonObject schema = parse(R"({"type": "object", "properties": {"a": {"type": "string"}}})");
    auto config = JSONToolConfig::fromJson(toolWithSchema(schema));
    ASSERT_TRUE(config.ok()) << failureOf(config).toStdString();
    EXPECT_FALSE(config->inputSchema.document.has_value());
    EXPECT_FALSE(config->toVariant().value(QStringLiteral("inputSchema")).toMap().contains(QStringLiteral("document")));
    // What would make a written schema no schema is still refused, with its path.
    QJsonObject broken = parse(kWrittenSchema);
    broken.insert(QStringLiteral("required"), QJsonArray{1});
    EXPECT_EQ(failureOf(JSONToolConfig::fromJson(toolWithSchema(broken))), QStringLiteral("The value of 'inputSchema.required' is not an array of strings."));
}

TEST(ConfigRecords, ToolHintsTravelWithTheAnnotations)
{
    QJsonObject tool = parse(kTool);
    QJsonObject annotations = tool.value(QStringLiteral("annotations")).toObject();
    annotations.insert(QStringLiteral("title"), QStringLiteral("Read file"));
    annotations.insert(QStringLiteral("readOnlyHint"), true);
    annotations.insert(QStringLiteral("destructiveHint"), false);
    tool.insert(QStringLiteral("annotations"), annotations);
    const auto config = JSONToolConfig::fromJson(tool);
    ASSERT_TRUE(config.ok()) << failureOf(config).toStdString();
    EXPECT_EQ(config->annotations.readOnlyHint, true);
    EXPECT_EQ(config->annotations.destructiveHint, false);
    EXPECT_FALSE(config->annotations.openWorldHint.has_value());
    EXPECT_EQ(config->toJson().value(QStringLiteral("annotations")).toObject(), annotations);
    EXPECT_EQ(config->annotations.hintsJson(),
              (QJsonObject{{"title", "Read file"}, {"readOnlyHint", true}, {"destructiveHint", false}}));
    JSONAnnotations copy;
    copy.setHints(config->annotations.hintsJson());
    EXPECT_EQ(copy.hintsJson(), config->annotations.hintsJson());

    annotations.insert(QStringLiteral("idempotentHint"), QStringLiteral("yes"));
    tool.insert(QStringLiteral("annotations"), annotations);
    EXPECT_EQ(failureOf(JSONToolConfig::fromJson(tool)), QStringLiteral("The value of 'annotations.idempotentHint' is not a boolean."));
}

TEST(ConfigRecords, CompletionValuesAreOptionalAndTyped)
{
    const QJsonObject templated = parse(R"({"uri": "test://t/{id}", "name": "t", "description": "", "mimeType": "text/plain",
        "type": "template", "contextTags": "", "relatedResources": "",
        "annotations": {"audience": [], "priority": 1, "lastModified": ""}, "values": {"id": ["1", "2"]}})");
    const auto resource = JSONResourceConfig::fromJson(templated);
    ASSERT_TRUE(resource.ok()) << failureOf(resource).toStdString();
    EXPECT_EQ(resource->toJson(), templated);
    EXPECT_EQ(resource->toVariant().value(QStringLiteral("values")).toMap().value(QStringLiteral("id")).toStringList(),
              (QStringList{"1", "2"}));
    QJsonObject bad = templated;
    bad.insert(QStringLiteral("values"), QJsonObject{{"id", QJsonArray{1}}});
    EXPECT_EQ(failureOf(JSONResourceConfig::fromJson(bad)), QStringLiteral("The value of 'values.id' is not an array of strings."));
    QJsonObject without = templated;
    without.remove(QStringLiteral("values"));
    EXPECT_FALSE(JSONResourceConfig::fromJson(without)->toJson().contains(QStringLiteral("values")));

    const QJsonObject prompt = parse(R"({"name": "p", "description": "", "template": "{{a}}",
        "arguments": [{"name": "a", "description": "", "required": false, "values": ["x", "y"]},
                      {"name": "b", "description": "", "required": false}]})");
    const auto config = JSONPromptConfig::fromJson(prompt);
    ASSERT_TRUE(config.ok()) << failureOf(config).toStdString();
    EXPECT_EQ(config->toJson(), prompt);
    EXPECT_EQ(config->arguments[0].values, (QStringList{"x", "y"}));
    EXPECT_FALSE(config->arguments[1].values.has_value());
}
