#include "tests/config/ConfigTestFixture.h"

#include "base/UserDefaults.h"
#include "engine/IMCPResourceService.h"
#include "engine/IMCPPromptService.h"
#include "engine/JSONParser.h"
#include "engine/MCPMessage.h"
#include "engine/MCPServer.h"
#include "store/PromptQueryService.h"
#include "store/ResourceQueryService.h"
#include "store/ToolsQueryService.h"

#include <QJsonArray>

#include <cstdio>
#include <set>
#include <thread>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Param = ConfigTestParam;

TEST_F(ConfigTestFixture, AnEmptyStoreExportsThreeEmptyFoldersAndAnEmptyRegistry)
{
    // Whatever was registered before is gone after the export.
    bridge.registerPrompt(QVariantMap{{"name", "old"}}, {});
    const ExportResult result = exportOrFail();
    EXPECT_EQ(result.exportedTools + result.exportedResources + result.exportedPrompts, 0);
    EXPECT_FALSE(result.hasErrors());
    EXPECT_EQ(entries(exportRoot), (QStringList{"Prompts", "Resources", "Tools"}));
    for (const char *folder : {"Tools", "Resources", "Prompts"})
        EXPECT_TRUE(entries(exportRoot + u'/' + QLatin1String(folder)).isEmpty()) << folder;
    EXPECT_TRUE(bridge.listTools().isEmpty());
    EXPECT_TRUE(bridge.listResources().isEmpty());
    EXPECT_TRUE(bridge.listPrompts().isEmpty());
}

TEST_F(ConfigTestFixture, StaleFilesVanishAndNamesFollowTheNineCharacterRule)
{
    writeFile(bundleFile(u"Tools"_s, u"deleted_tool.json"_s), "{}");
    writeFile(bundleFile(u"Tools"_s, u"sub/deep.json"_s), "{}");
    writeFile(bundleFile(u"Prompts"_s, u"old.json"_s), "{}");

    const QString name = u"A/b\\C:d*E?f\"G<h>I|j Kl.m"_s;
    addTool(name);
    addResource(std::nullopt, u"file:///tmp/x.txt"_s, u"file"_s);
    addPrompt(std::nullopt);
    save();
    const ExportResult result = exportOrFail();
    EXPECT_EQ(result.exportedTools, 1);
    EXPECT_EQ(result.exportedResources, 1);
    EXPECT_EQ(result.exportedPrompts, 1);
    EXPECT_EQ(entries(exportRoot + u"/Tools"_s), QStringList{"a_b_c_d_e_f_g_h_i_j kl.m.json"});
    EXPECT_EQ(entries(exportRoot + u"/Resources"_s), QStringList{"resource.json"});
    EXPECT_EQ(entries(exportRoot + u"/Prompts"_s), QStringList{"prompt.json"});
    // Every record is registered, and the registrations lead to the router.
    EXPECT_EQ(bridge.listTools(), QStringList{name});
    EXPECT_EQ(bridge.listResources(), QStringList{"file:///tmp/x.txt"});
    EXPECT_EQ(bridge.listPrompts(), QStringList{QString()});
}

TEST_F(ConfigTestFixture, ToolFilesMergeTheirSchemasAndWriteItemsByType)
{
    // Two input schemas: parameters gather, a later `required` replaces an earlier one, and
    // its blank part stays as written.
    addTool(u"merge"_s,
            {{Param{"path", "string", "", {}, "Where"}, Param{"list", "array", "array", R"({"not": "array"})"}},
             {Param{"shape", "object", "object", "[1, 2]"}, Param{"tags", "array", "array", R"(["a", 1])", {}, "a, b"},
              Param{"mode", "string", "string", "\"fast\""}}},
            {}, {u"path"_s, u" shape , ,tags "_s});
    save();
    exportOrFail();

    const QJsonObject tool = readJson(bundleFile(u"Tools"_s, u"merge.json"_s));
    EXPECT_FALSE(tool.contains(u"title"_s));
    EXPECT_EQ(tool["execMethod"].toString(), "readFile");
    EXPECT_EQ(tool["scriptName"].toString(), QString());
    EXPECT_EQ(tool["annotations"]["priority"].toDouble(), 0.9);
    EXPECT_TRUE(tool["annotations"]["lastModified"].toString().endsWith(u'Z'));

    const QJsonObject input = tool["inputSchema"].toObject();
    EXPECT_EQ(input["type"].toString(), "object");
    EXPECT_EQ(input["required"].toArray(), (QJsonArray{"shape", "", "tags"}));
    const QJsonObject props = input["properties"].toObject();
    EXPECT_EQ(props.keys(), (QStringList{"list", "mode", "path", "shape", "tags"}));
    EXPECT_EQ(props["path"].toObject(), (QJsonObject{{"type", "string"}, {"description", "Where"}, {"name", "path"}}));
    const std::pair<const char *, QJsonObject> items[] = {
        {"list", {{"type", "array"}}},
        {"shape", {{"type", "object"}, {"properties", QJsonObject()}}},
        {"tags", {{"type", "array"}, {"content", QJsonArray{"a", 1}}}},
        {"mode", {{"type", "string"}}},
    };
    for (const auto &[name, expected] : items)
        EXPECT_EQ(props[QLatin1String(name)]["items"].toObject(), expected) << name;
    EXPECT_EQ(props["tags"]["defaultValue"].toString(), "a, b");
    // No output schema at all: an empty object schema without `required`.
    EXPECT_EQ(tool["outputSchema"].toObject(), (QJsonObject{{"type", "object"}, {"properties", QJsonObject()}}));

    // The file is pretty-printed with sorted keys.
    QFile file(bundleFile(u"Tools"_s, u"merge.json"_s));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(text.contains(u'\n'));
    EXPECT_LT(text.indexOf(u"\"annotations\""_s), text.indexOf(u"\"description\""_s));
    EXPECT_LT(text.indexOf(u"\"outputSchema\""_s), text.indexOf(u"\"toolType\""_s));
}

TEST_F(ConfigTestFixture, AToolExportedAndImportedHasOneInputAndOneOutputSchema)
{
    addTool(u"none"_s);
    addTool(u"several"_s, {{Param{"a"}}, {Param{"b", "array", "array", "[1]"}}},
            {{Param{"x", "integer"}}, {Param{"y", "boolean"}}}, {u"a"_s, u"b, a"_s});
    save();
    exportOrFail();

    PersistenceController other(root + u"/Other.sqlite"_s);
    ConfigurationController importer(other.viewContext(), router.get(), QString(), QString());
    const auto imported = importer.importConfiguration(exportRoot);
    ASSERT_TRUE(imported.ok()) << imported.error().description;
    EXPECT_EQ(imported->importedTools, 2);
    EXPECT_FALSE(imported->hasErrors()) << imported->allErrors().join(u'\n');

    const QList<ToolsConfig *> tools = ToolsQueryService::fetchTools(other.viewContext()).valueOr({});
    ASSERT_EQ(tools.size(), 2);
    for (ToolsConfig *tool : tools) {
        EXPECT_EQ(tool->inputSchemas().size(), 1) << *tool->name();
        EXPECT_EQ(tool->outputSchmas().size(), 1) << *tool->name();
        EXPECT_FALSE(tool->title().has_value());
        EXPECT_EQ(tool->handlerName(), "FileAccessHandler");
    }
    ToolsConfig *none = tools[0]->name() == u"none"_s ? tools[0] : tools[1];
    ToolsConfig *several = tools[0] == none ? tools[1] : tools[0];
    EXPECT_TRUE(none->inputSchemas().first()->properties().isEmpty());
    EXPECT_FALSE(none->inputSchemas().first()->requiredParams().has_value());

    ToolInputSchema *input = several->inputSchemas().first();
    EXPECT_EQ(input->requiredParams(), "b, a");
    QStringList params;  // name, item type, items, default value
    for (ToolInSchemaParams *p : ToolsQueryService::sortedProperties(input)) {
        for (const std::optional<QString> &field : {p->parameterName(), p->itemType(), p->items(), p->defaultValue()})
            params.append(field.value_or(u"<missing>"_s));
    }
    EXPECT_EQ(params, (QStringList{"a", "null", "", "", "b", "array", "[1]", ""}));
    EXPECT_EQ(ToolsQueryService::sortedProperties(several->outputSchmas().first()).size(), 2);
}

TEST_F(ConfigTestFixture, ResourcesAndPromptsRoundTrip)
{
    addResource(u"Notes"_s, u"file:///tmp/notes.txt"_s, u"file"_s);
    addPrompt(u"Greeting"_s);
    save();
    exportOrFail();

    const QJsonObject resource = readJson(bundleFile(u"Resources"_s, u"notes.json"_s));
    EXPECT_EQ(resource["uri"].toString(), "file:///tmp/notes.txt");
    EXPECT_EQ(resource["contextTags"].toString(), "a,b");
    EXPECT_EQ(resource["annotations"]["audience"].toArray(), (QJsonArray{"user", "assistant"}));
    EXPECT_EQ(resource["annotations"]["priority"].toDouble(), 0.25);

    const QJsonObject prompt = readJson(bundleFile(u"Prompts"_s, u"greeting.json"_s));
    // Arguments by name in code-point order: "How" before "who".
    EXPECT_EQ(prompt["arguments"].toArray(),
              (QJsonArray{QJsonObject{{"name", "How"}, {"description", "about How"}, {"required", false}},
                          QJsonObject{{"name", "who"}, {"description", "about who"}, {"required", true}}}));
    EXPECT_EQ(prompt["template"].toString(), "Hello {who}");

    // An unparsable uri comes in missing and goes out empty.
    QJsonObject broken = resource;
    broken.insert(u"uri"_s, u"not a uri with blanks"_s);
    writeFile(root + u"/In/Resources/broken.json"_s, QJsonDocument(broken).toJson());
    const auto imported = controller->importConfiguration(root + u"/In"_s);
    ASSERT_TRUE(imported.ok());
    EXPECT_EQ(imported->importedResources, 1);
    ResourceConfig *copy = nullptr;
    for (ResourceConfig *r : ResourceQueryService::fetchResourceConfigs(context).valueOr({}))
        if (!r->uri())
            copy = r;
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->annAudience(), "user, assistant");
    EXPECT_EQ(copy->annPriority(), 0.25);
    EXPECT_EQ(ConfigurationController::resourceConfig(copy).uri, QString());
}

TEST_F(ConfigTestFixture, ImportSkipsCapitalExtensionsAndReportsMissingFoldersAndBadFiles)
{
    const QString bundle = root + u"/Bundle"_s;
    addTool(u"good"_s);
    save();
    exportOrFail();
    QDir().mkpath(bundle + u"/Tools"_s);
    QDir().mkpath(bundle + u"/Resources"_s);
    QFile::copy(bundleFile(u"Tools"_s, u"good.json"_s), bundle + u"/Tools/good.json"_s);
    QFile::copy(bundleFile(u"Tools"_s, u"good.json"_s), bundle + u"/Tools/Shouting.JSON"_s);
    writeFile(bundle + u"/Tools/broken.json"_s, "{\"name\": \"broken\"}");
    writeFile(bundle + u"/Tools/notes.txt"_s, "not a tool");

    const auto imported = controller->importConfiguration(bundle);
    ASSERT_TRUE(imported.ok()) << imported.error().description;
    EXPECT_EQ(imported->importedTools, 1);
    const QString brokenLine = u"Failed to import tool from 'broken.json': Decoding Failed: The key 'description' is missing."_s;
    EXPECT_EQ(imported->toolsErrors, QStringList{brokenLine});
    EXPECT_TRUE(log.contains(brokenLine));
    EXPECT_EQ(imported->importedResources, 0);
    EXPECT_TRUE(imported->resourcesErrors.isEmpty());
    EXPECT_EQ(imported->importedPrompts, 0);
    EXPECT_EQ(imported->promptsErrors,
              QStringList{"Prompts directory not found: " + QUrl::fromLocalFile(bundle + u"/Prompts/"_s).toString()});

    // The same folder again doubles the records: names equal, ids differ.
    ASSERT_TRUE(controller->importConfiguration(bundle).ok());
    QList<ToolsConfig *> goods;
    for (ToolsConfig *tool : ToolsQueryService::fetchTools(context).valueOr({}))
        if (tool->name() == u"good"_s)
            goods.append(tool);
    ASSERT_EQ(goods.size(), 3);  // the original and two imports
    EXPECT_NE(goods[1]->id(), goods[2]->id());
}

TEST_F(ConfigTestFixture, ImportReportsFilesItCannotOrMustNotReadByName)
{
    const QString prompts = root + u"/Odd/Prompts"_s;
    QDir().mkpath(prompts);
    // A FIFO named like a bundle file would block the import for ever if it were opened.
    ASSERT_EQ(::mkfifo(QFile::encodeName(prompts + u"/pipe.json"_s).constData(), 0600), 0);
    // A name that is not UTF-8 cannot even be listed by name.
    const QByteArray latin1 = QFile::encodeName(prompts) + "/caf\xe9.json";
    {
        FILE *file = std::fopen(latin1.constData(), "w");
        ASSERT_NE(file, nullptr);
        std::fputs("{}", file);
        std::fclose(file);
    }
    UserDefaults::standard()->setValue(ConfigurationController::maxImportFileBytesKey, 80);
    writeFile(prompts + u"/huge.json"_s, QByteArray(81, ' '));
    writeFile(prompts + u"/fine.json"_s,
              R"({"name": "fine", "description": "d", "template": "t", "arguments": []})");

    const auto imported = controller->importConfiguration(root + u"/Odd"_s);
    UserDefaults::standard()->remove(ConfigurationController::maxImportFileBytesKey);
    ::unlink(latin1.constData());  // a name Qt cannot give back would keep the folder from going
    ASSERT_TRUE(imported.ok()) << imported.error().description;
    EXPECT_EQ(imported->importedPrompts, 1);
    EXPECT_EQ(imported->promptsErrors,
              (QStringList{u"Failed to import prompt from 'caf\ufffd.json': the file name is not valid UTF-8; rename the file to import it"_s,
                           u"Failed to import prompt from 'huge.json': Read Failed: The file is larger than 80 bytes, the limit of mcp.import.maxFileBytes"_s,
                           u"Failed to import prompt from 'pipe.json': Read Failed: Not a regular file (a FIFO, a device or a socket)"_s}));
}

TEST_F(ConfigTestFixture, OneFailingToolStopsOnlyItself)
{
    addTool(u"bad"_s, {{Param{QString()}}});
    addTool(u"bad output"_s, {}, {{Param{std::nullopt}}});
    addTool(u"fine"_s);
    addPrompt(u"p"_s);
    save();
    const ExportResult result = exportOrFail();
    EXPECT_EQ(result.exportedTools, 1);
    EXPECT_EQ(result.exportedPrompts, 1);
    const QString bad = u"Failed to export tool 'bad': Invalid configuration: Parameter input schema name missing."_s;
    EXPECT_EQ(result.toolsErrors,
              (QStringList{bad, "Failed to export tool 'bad output': Invalid configuration: Parameter output schema name missing."}));
    EXPECT_TRUE(log.contains(bad));
    EXPECT_EQ(entries(exportRoot + u"/Tools"_s), QStringList{"fine.json"});
    EXPECT_EQ(bridge.listTools(), QStringList{"fine"});
}

TEST_F(ConfigTestFixture, TheBuiltInBundleImportsAndExportsWithoutErrors)
{
    const auto imported = controller->importBuiltinConfiguration();
    ASSERT_TRUE(imported.ok()) << imported.error().description;
    EXPECT_FALSE(imported->hasErrors()) << imported->allErrors().join(u'\n');
    EXPECT_GE(imported->importedTools, 4);
    EXPECT_GE(imported->importedResources, 1);
    EXPECT_GE(imported->importedPrompts, 1);

    const ExportResult exported = exportOrFail();
    EXPECT_FALSE(exported.hasErrors()) << exported.allErrors().join(u'\n');
    EXPECT_EQ(exported.exportedTools, imported->importedTools);

    // What clients see of the built-in resources: tags as lists, URIs in their normal form.
    for (const MCP::ResourceDefinition &resource : bridge.server().getResourceService()->listResources()) {
        EXPECT_FALSE(resource.contextTags.empty()) << resource.uri;
        EXPECT_EQ(resource.uri, MCP::IMCPResourceService::normalisedUri(resource.uri));
    }
}

TEST_F(ConfigTestFixture, TheBuiltInBundleWhereMissingAddsEachRecordOnceByNameAndKind)
{
    using Mode = ConfigurationController::ImportMode;
    EXPECT_TRUE(controller->holdsNoRecords());
    // A tool of the user's with a built-in name is kept as it is; a prompt that shares a
    // built-in tool's name does not keep that tool out.
    addTool(u"write_file"_s)->setToolDescription(u"mine"_s);
    addPrompt(u"read_file"_s);
    save();
    EXPECT_FALSE(controller->holdsNoRecords());

    const auto first = controller->importBuiltinConfiguration(nullptr, Mode::onlyMissing);
    ASSERT_TRUE(first.ok()) << first.error().description;
    EXPECT_FALSE(first->hasErrors()) << first->allErrors().join(u'\n');
    const int bundleTools = int(QDir(AppPaths::builtinConfigurationDir() + u"/Tools"_s).entryList({u"*.json"_s}).size());
    EXPECT_EQ(first->importedTools, bundleTools - 1);

    auto named = [this](const QString &name) {
        QList<ToolsConfig *> found;
        for (ToolsConfig *tool : ToolsQueryService::fetchTools(context).valueOr({}))
            if (tool->name() == name)
                found.append(tool);
        return found;
    };
    ASSERT_EQ(named(u"write_file"_s).size(), 1);
    EXPECT_EQ(named(u"write_file"_s).first()->toolDescription().value_or(QString()), u"mine"_s);
    EXPECT_EQ(named(u"read_file"_s).size(), 1);

    // Twice more: nothing is added, nothing is an error.
    const qsizetype tools = ToolsQueryService::fetchTools(context).valueOr({}).size();
    const qsizetype resources = ResourceQueryService::fetchResourceConfigs(context).valueOr({}).size();
    const qsizetype prompts = PromptQueryService::fetchPrompts(context).valueOr({}).size();
    for (int run = 0; run < 2; ++run) {
        const auto again = controller->importBuiltinConfiguration(nullptr, Mode::onlyMissing);
        ASSERT_TRUE(again.ok()) << again.error().description;
        EXPECT_EQ(again->importedTools + again->importedResources + again->importedPrompts, 0);
        EXPECT_FALSE(again->hasErrors()) << again->allErrors().join(u'\n');
    }
    EXPECT_EQ(ToolsQueryService::fetchTools(context).valueOr({}).size(), tools);
    EXPECT_EQ(ResourceQueryService::fetchResourceConfigs(context).valueOr({}).size(), resources);
    EXPECT_EQ(PromptQueryService::fetchPrompts(context).valueOr({}).size(), prompts);

    // The plain import still appends, and the mode does not stick to the controller.
    const auto appended = controller->importBuiltinConfiguration();
    ASSERT_TRUE(appended.ok());
    EXPECT_EQ(appended->importedTools, bundleTools);
    EXPECT_EQ(named(u"read_file"_s).size(), 2);
}

TEST_F(ConfigTestFixture, ExportWithoutARootFailsBeforeTouchingTheRegistry)
{
    bridge.registerPrompt(QVariantMap{{"name", "kept"}}, {});
    ConfigurationController rootless(context, router.get(), QString(), QString());
    const auto exported = rootless.exportConfiguration();
    ASSERT_FALSE(exported.ok());
    EXPECT_EQ(exported.error().description, "Invalid Path: Unable to get app sandbox library directory");
    EXPECT_TRUE(TransferError::is(exported.error(), TransferError::Kind::invalidPath));
    EXPECT_EQ(bridge.listPrompts(), QStringList{"kept"});

    // The other error texts; "Decoding Failed" shows up above, the import summary in the
    // Import from Folder command's test and end to end.
    EXPECT_EQ(TransferError::writeFailed(u"x"_s).description(), "Write Failed: x");
    EXPECT_EQ(TransferError::unknown(u"x"_s).description(), "Unknown Error: x");
    EXPECT_EQ(TransferError::saveFailed(u"x"_s).description(), "Save Failed: x");
}

TEST_F(ConfigTestFixture, LongNamesAndNamesThatDifferInCaseEachKeepAFileAndComeBack)
{
    const QString longName = QString(u"t"_s).repeated(300);
    const QString wide = QString(u"ü"_s).repeated(150);  // 300 bytes in UTF-8
    addTool(longName);
    addTool(wide);
    addTool(u"Dup_Name"_s);
    addTool(u"dup_name"_s);
    addPrompt(u"Greeting"_s);
    addPrompt(u"greeting"_s);
    save();
    const ExportResult result = exportOrFail();
    EXPECT_FALSE(result.hasErrors()) << result.allErrors().join(u'\n').toStdString();
    EXPECT_EQ(result.exportedTools, 4);
    EXPECT_EQ(result.exportedPrompts, 2);
    const QStringList tools = entries(exportRoot + u"/Tools"_s);
    ASSERT_EQ(tools.size(), 4) << tools.join(u' ').toStdString();
    for (const QString &file : tools)
        EXPECT_LE(file.toUtf8().size(), 255) << file.toStdString();
    EXPECT_TRUE(tools.contains(u"dup_name.json"_s));
    EXPECT_EQ(entries(exportRoot + u"/Prompts"_s).size(), 2);

    // The same store exports to the same files every time.
    exportOrFail();
    EXPECT_EQ(entries(exportRoot + u"/Tools"_s), tools);

    // Every record comes back from the bundle with its exact name.
    PersistenceController other(root + u"/Other.sqlite"_s);
    ConfigurationController importer(other.viewContext(), router.get(), QString(), QString());
    const auto imported = importer.importConfiguration(exportRoot);
    ASSERT_TRUE(imported.ok()) << imported.error().description;
    QStringList names;
    for (ToolsConfig *tool : ToolsQueryService::fetchTools(other.viewContext()).valueOr({}))
        names.append(*tool->name());
    names.sort();
    QStringList expected{longName, wide, u"Dup_Name"_s, u"dup_name"_s};
    expected.sort();
    EXPECT_EQ(names, expected);
}

TEST_F(ConfigTestFixture, AWrittenSchemaAndToolHintsRoundTripThroughTheStore)
{
    const QByteArray schemaText = R"({
        "$schema": "https://json-schema.org/draft/2020-12/schema", "type": "object",
        "$defs": {"place": {"type": "object", "properties": {"zip": {"type": "string", "pattern": "^[0-9]{5}$"}}}},
        "properties": {"unit": {"type": "string", "enum": ["C", "F"], "description": "Unit"},
                       "where": {"$ref": "#/$defs/place"}, "days": {"type": "integer", "minimum": 1}},
        "required": ["unit"], "additionalProperties": false})";
    const QJsonObject schema = QJsonDocument::fromJson(schemaText).object();
    ASSERT_FALSE(schema.isEmpty());
    const QJsonObject hints{{"title", "Weather"}, {"readOnlyHint", true}, {"openWorldHint", true}};
    QJsonObject annotations{{"audience", QJsonArray{"user"}}, {"priority", 0.5}, {"lastModified", "2025-01-01T00:00:00.000Z"}};
    for (auto it = hints.begin(); it != hints.end(); ++it)
        annotations.insert(it.key(), it.value());
    const QJsonObject tool{{"name", "weather"}, {"description", "Forecast"}, {"execHandler", "FileAccessHandler"},
                           {"execMethod", "readFile"}, {"pluginName", ""}, {"scriptName", ""}, {"toolType", "BuiltinTool"},
                           {"annotations", annotations}, {"inputSchema", schema},
                           {"outputSchema", QJsonObject{{"type", "object"}, {"properties", QJsonObject()}}}};
    const QString in = root + u"/In"_s;
    writeFile(in + u"/Tools/weather.json"_s, QJsonDocument(tool).toJson());
    const auto imported = controller->importConfiguration(in);
    ASSERT_TRUE(imported.ok()) << (imported ? QString() : imported.error().description).toStdString();
    ASSERT_EQ(imported->importedTools, 1) << imported->allErrors().join(u'\n');

    // A later session: the store opened afresh, the description edited and saved.
    controller.reset();
    store.reset();
    store = std::make_unique<PersistenceController>(root + u"/Kelvara.sqlite"_s);
    context = store->viewContext();
    controller = std::make_unique<ConfigurationController>(context, router.get(), exportRoot, QString());
    const QList<ToolsConfig *> tools = ToolsQueryService::fetchTools(context).valueOr({});
    ASSERT_EQ(tools.size(), 1);
    tools.first()->setToolDescription(u"Forecast for a place"_s);
    save();
    exportOrFail();

    const QJsonObject exported = readJson(bundleFile(u"Tools"_s, u"weather.json"_s));
    EXPECT_EQ(exported["description"].toString(), "Forecast for a place");
    EXPECT_EQ(QJsonDocument(exported["inputSchema"].toObject()).toJson(), QJsonDocument(schema).toJson());
    for (auto it = hints.begin(); it != hints.end(); ++it)
        EXPECT_EQ(exported["annotations"][it.key()], it.value()) << it.key().toStdString();
    EXPECT_FALSE(exported["annotations"].toObject().contains(u"destructiveHint"_s));

    // Clients see the schema as written and the hints beside it.
    const auto registered = bridge.server().getToolService()->findTool("weather");
    ASSERT_TRUE(registered.has_value());
    EXPECT_EQ(QJsonDocument::fromJson(QByteArray::fromStdString(registered->inputSchema.toJSON().toString(0))).object(), schema);
    EXPECT_EQ(registered->annotations.title, "Weather");
    EXPECT_EQ(registered->annotations.readOnlyHint, true);
    EXPECT_FALSE(registered->annotations.destructiveHint.has_value());
}

TEST_F(ConfigTestFixture, EveryBuiltInToolSaysWhetherItChangesAnything)
{
    ASSERT_TRUE(controller->importBuiltinConfiguration().ok());
    exportOrFail();
    for (const MCP::ToolDefinition &tool : bridge.server().getToolService()->listTools()) {
        ASSERT_TRUE(tool.annotations.readOnlyHint.has_value()) << tool.name;
        EXPECT_TRUE(tool.annotations.title.has_value()) << tool.name;
        EXPECT_TRUE(tool.annotations.openWorldHint.has_value()) << tool.name;
        if (!*tool.annotations.readOnlyHint) {
            EXPECT_TRUE(tool.annotations.destructiveHint.has_value()) << tool.name;
        }
        const bool deletes = tool.name.starts_with("delete_") || tool.name == "write_file";
        if (deletes) {
            EXPECT_EQ(tool.annotations.destructiveHint, true) << tool.name;
        }
        if (tool.name == "read_file") {
            EXPECT_EQ(tool.annotations.readOnlyHint, true);
        }
        if (tool.name == "fetch_json") {
            EXPECT_EQ(tool.annotations.openWorldHint, true);
        }
        // Each audience name once.
        std::set<std::string> names(tool.annotations.audience.begin(), tool.annotations.audience.end());
        EXPECT_EQ(names.size(), tool.annotations.audience.size()) << tool.name;
    }
}

TEST_F(ConfigTestFixture, TemplatesKeepTheirUriAndCompletionValuesThroughTheStore)
{
    const QJsonObject annotations{{"audience", QJsonArray{"user"}}, {"priority", 0.5}, {"lastModified", ""}};
    const QJsonObject resource{{"uri", "test://template/{id}/data{+rest}"}, {"name", "item"}, {"description", ""},
                               {"mimeType", "application/json"}, {"type", "template"}, {"contextTags", ""},
                               {"relatedResources", ""}, {"annotations", annotations},
                               {"values", QJsonObject{{"id", QJsonArray{"123", "124"}}}}};
    const QJsonObject prompt{{"name", "city"}, {"description", ""}, {"template", "{{name}}"},
                             {"arguments", QJsonArray{QJsonObject{{"name", "name"}, {"description", ""}, {"required", true},
                                                                  {"values", QJsonArray{"Paris", "Parma"}}}}}};
    const QString in = root + u"/In"_s;
    writeFile(in + u"/Resources/item.json"_s, QJsonDocument(resource).toJson());
    writeFile(in + u"/Prompts/city.json"_s, QJsonDocument(prompt).toJson());
    const auto imported = controller->importConfiguration(in);
    ASSERT_TRUE(imported.ok()) << (imported ? QString() : imported.error().description).toStdString();
    ASSERT_EQ(imported->importedResources + imported->importedPrompts, 2) << imported->allErrors().join(u'\n');
    exportOrFail();

    const QJsonObject exported = readJson(bundleFile(u"Resources"_s, u"item.json"_s));
    EXPECT_EQ(exported["uri"].toString(), "test://template/{id}/data{+rest}");
    EXPECT_EQ(exported["values"].toObject(), resource["values"].toObject());
    EXPECT_EQ(readJson(bundleFile(u"Prompts"_s, u"city.json"_s))["arguments"][0]["values"].toArray(),
              (QJsonArray{"Paris", "Parma"}));
    // The engine lists it as a template and offers the values.
    const auto registered = bridge.server().getResourceService()->findResource("test://template/{id}/data{+rest}");
    ASSERT_TRUE(registered.has_value());
    EXPECT_EQ(registered->completions.at("id"), (std::vector<std::string>{"123", "124"}));
    const auto promptDefinition = bridge.server().getPromptService()->findPrompt("city");
    ASSERT_TRUE(promptDefinition.has_value());
    EXPECT_EQ(promptDefinition->arguments.at(0).values, (std::vector<std::string>{"Paris", "Parma"}));
}

TEST_F(ConfigTestFixture, PromptMessagesRoundTripThroughTheStoreAndReachTheEngine)
{
    const QJsonArray messages{
        QJsonObject{{"role", "user"}, {"content", QJsonObject{{"type", "text"}, {"text", "Read {{uri}}"}}}},
        QJsonObject{{"role", "assistant"},
                    {"content", QJsonObject{{"type", "image"}, {"data", "iVBORw0KGgo="}, {"mimeType", "image/png"}}}},
        QJsonObject{{"role", "user"},
                    {"content", QJsonObject{{"type", "resource"},
                                            {"resource", QJsonObject{{"uri", "{{uri}}"}, {"text", "body"},
                                                                     {"mimeType", "text/plain"}}}}}}};
    const QJsonObject prompt{{"name", "rich"}, {"description", "d"}, {"arguments", QJsonArray{}}, {"messages", messages}};
    const QString in = root + u"/In"_s;
    writeFile(in + u"/Prompts/rich.json"_s, QJsonDocument(prompt).toJson());
    // A message the protocol could not carry keeps its file out, saying where.
    QJsonObject bad = prompt;
    bad.insert(u"name"_s, u"bad"_s);
    bad.insert(u"messages"_s, QJsonArray{QJsonObject{{"role", "user"},
                                                     {"content", QJsonObject{{"type", "image"}, {"data", "iVBORw0KGgo="}}}}});
    writeFile(in + u"/Prompts/bad.json"_s, QJsonDocument(bad).toJson());
    const auto imported = controller->importConfiguration(in);
    ASSERT_TRUE(imported.ok());
    EXPECT_EQ(imported->importedPrompts, 1);
    EXPECT_EQ(imported->promptsErrors,
              QStringList{u"Failed to import prompt from 'bad.json': Decoding Failed: The key 'messages.0.content.mimeType' is missing."_s});
    exportOrFail();

    // The template left out comes back empty beside the messages, which come back as written.
    const QJsonObject exported = readJson(bundleFile(u"Prompts"_s, u"rich.json"_s));
    EXPECT_EQ(exported["messages"].toArray(), messages);
    EXPECT_EQ(exported["template"].toString(), QString());
    const auto definition = bridge.server().getPromptService()->findPrompt("rich");
    ASSERT_TRUE(definition.has_value());
    ASSERT_TRUE(definition->messages.isArray());
    EXPECT_EQ(definition->messages.asArray().size(), 3u);
    EXPECT_EQ(definition->messages.asArray().at(2).at("content").at("resource").at("uri").asString(), "{{uri}}");

    // A prompt of the template alone is written as before, without the key; messages typed
    // on the screen that are not valid yet keep their prompt out of the bundle, saying why.
    addPrompt(u"Plain"_s);
    addPrompt(u"Typing"_s)->setMessagesJson(u"[{\"role\": \"user\""_s);
    save();
    const ExportResult again = exportOrFail();
    EXPECT_FALSE(readJson(bundleFile(u"Prompts"_s, u"plain.json"_s)).contains(u"messages"_s));
    ASSERT_EQ(again.promptsErrors.size(), 1);
    EXPECT_TRUE(again.promptsErrors.first().startsWith(u"Failed to export prompt 'Typing': "_s)) << again.promptsErrors.first().toStdString();
    EXPECT_TRUE(again.promptsErrors.first().contains(u"The messages are no valid JSON"_s));
    EXPECT_FALSE(QFile::exists(bundleFile(u"Prompts"_s, u"typing.json"_s)));
}

// A template read by a script gets its variables as arguments; completions come from the
// script a template or a prompt argument names, given what was typed and the arguments so
// far, filtered by the prefix. The script names travel with the bundle, found beside it.
TEST_F(ConfigTestFixture, ScriptsReadTemplatesAndOfferCompletions)
{
    const QString in = root + u"/In"_s;
    writeFile(in + u"/Scripts/weather.js"_s, R"JS(
function toolEntry(sid, handlerName, jsonParams) {
    var p = JSON.parse(jsonParams);
    if (handlerName === 'readResource')
        return JSON.stringify({text: 'Weather in ' + p.city + ', ' + p.unit});
    if (handlerName === 'complete') {
        var offered = p.argument === 'unit' ? ['C', 'F'] : ['Paris', 'Parma', 'Rome', 'P-' + (p.arguments.unit || '')];
        return JSON.stringify({text: JSON.stringify(offered)});
    }
    throw new Error('unexpected ' + handlerName);
})JS");
    const QJsonObject annotations{{"audience", QJsonArray{"user"}}, {"priority", 0.5}, {"lastModified", ""}};
    const QJsonObject resource{{"uri", "weather://forecast/{city}/{unit}"}, {"name", "weather"}, {"description", ""},
                               {"mimeType", "text/plain"}, {"type", "template"}, {"contextTags", ""},
                               {"relatedResources", ""}, {"annotations", annotations},
                               {"script", "Scripts/weather.js"}, {"valuesScript", "Scripts/weather.js"}};
    const QJsonObject prompt{{"name", "trip"}, {"description", ""}, {"template", "{{city}}"},
                             {"arguments", QJsonArray{QJsonObject{{"name", "city"}, {"description", ""}, {"required", true},
                                                                  {"valuesScript", "Scripts/weather.js"}}}}};
    writeFile(in + u"/Resources/weather.json"_s, QJsonDocument(resource).toJson());
    writeFile(in + u"/Prompts/trip.json"_s, QJsonDocument(prompt).toJson());
    const auto imported = controller->importConfiguration(in);
    ASSERT_TRUE(imported.ok()) << (imported ? QString() : imported.error().description).toStdString();
    ASSERT_EQ(imported->importedResources + imported->importedPrompts, 2) << imported->allErrors().join(u'\n');
    exportOrFail();
    const QString script = QDir::cleanPath(in + u"/Scripts/weather.js"_s);
    const QJsonObject exported = readJson(bundleFile(u"Resources"_s, u"weather.json"_s));
    EXPECT_EQ(exported["script"].toString(), script);
    EXPECT_EQ(exported["valuesScript"].toString(), script);
    EXPECT_EQ(readJson(bundleFile(u"Prompts"_s, u"trip.json"_s))["arguments"][0]["valuesScript"].toString(), script);

    // Asked as a client asks, on a worker as the engine does.
    auto ask = [&](const std::string &body) {
        MCP::JSONValue result;
        std::thread worker([&] {
            auto response = bridge.server().process("sid-1", MCP::MCPMessage::parse(body));
            std::string error;
            auto document = response ? MCP::JSONParser::parseDocument(response->toString(), &error) : std::nullopt;
            if (document)
                result = *document;
        });
        worker.join();
        return result;
    };
    const MCP::JSONValue read =
        ask(R"({"jsonrpc":"2.0","id":1,"method":"resources/read","params":{"uri":"weather://forecast/Paris/C"}})");
    ASSERT_TRUE(read.contains("result")) << read.toString(0);
    EXPECT_EQ(read.at("result").at("contents").asArray().at(0).at("text").asString(), "Weather in Paris, C");

    const std::string byResource =
        R"({"jsonrpc":"2.0","id":2,"method":"completion/complete","params":{"ref":{"type":"ref/resource","uri":"weather://forecast/{city}/{unit}"},)";
    const auto values = [&](const std::string &body) { return ask(body).at("result").at("completion").at("values"); };
    const auto list = [](const char *text) { return *MCP::JSONParser::parseDocument(text); };
    EXPECT_EQ(values(byResource + R"("argument":{"name":"city","value":"p"},"context":{"arguments":{"unit":"F"}}}})"),
              list(R"(["Paris","Parma","P-F"])"));
    EXPECT_EQ(values(byResource + R"("argument":{"name":"unit","value":""}}})"), list(R"(["C","F"])"));
    EXPECT_EQ(values(R"({"jsonrpc":"2.0","id":3,"method":"completion/complete","params":{"ref":{"type":"ref/prompt","name":"trip"},"argument":{"name":"city","value":"r"}}})"),
              list(R"(["Rome"])"));
}
