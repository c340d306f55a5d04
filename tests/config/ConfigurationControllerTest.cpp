#include "tests/config/ConfigTestFixture.h"

#include "engine/MCPServer.h"
#include "engine/bridge/VariantJSON.h"
#include "store/PromptQueryService.h"
#include "store/ResourceQueryService.h"
#include "store/ToolsQueryService.h"

#include <QJsonArray>

using Param = ConfigTestParam;

TEST_F(ConfigTestFixture, AnEmptyStoreExportsThreeEmptyFoldersAndAnEmptyRegistry)
{
    // Whatever was registered before is gone after the export.
    bridge.registerPrompt(QVariantMap{{QStringLiteral("name"), QStringLiteral("old")}}, {});
    const ExportResult result = exportOrFail();
    EXPECT_EQ(result.exportedTools + result.exportedResources + result.exportedPrompts, 0);
    EXPECT_FALSE(result.hasErrors());
    EXPECT_EQ(entries(exportRoot), (QStringList{QStringLiteral("Prompts"), QStringLiteral("Resources"), QStringLiteral("Tools")}));
    for (const char *folder : {"Tools", "Resources", "Prompts"})
        EXPECT_TRUE(entries(exportRoot + QLatin1Char('/') + QLatin1String(folder)).isEmpty()) << folder;
    EXPECT_TRUE(bridge.listTools().isEmpty());
    EXPECT_TRUE(bridge.listResources().isEmpty());
    EXPECT_TRUE(bridge.listPrompts().isEmpty());
}

TEST_F(ConfigTestFixture, StaleFilesVanishAndNamesFollowTheNineCharacterRule)
{
    writeFile(bundleFile(QStringLiteral("Tools"), QStringLiteral("deleted_tool.json")), "{}");
    writeFile(bundleFile(QStringLiteral("Tools"), QStringLiteral("sub/deep.json")), "{}");
    writeFile(bundleFile(QStringLiteral("Prompts"), QStringLiteral("old.json")), "{}");

    addTool(QStringLiteral("A/b\\C:d*E?f\"G<h>I|j Kl.m"));
    addResource(std::nullopt, QStringLiteral("file:///tmp/x.txt"), QStringLiteral("file"));
    addPrompt(std::nullopt);
    save();
    const ExportResult result = exportOrFail();
    EXPECT_EQ(result.exportedTools, 1);
    EXPECT_EQ(result.exportedResources, 1);
    EXPECT_EQ(result.exportedPrompts, 1);
    EXPECT_EQ(entries(exportRoot + QStringLiteral("/Tools")), QStringList{QStringLiteral("a_b_c_d_e_f_g_h_i_j kl.m.json")});
    EXPECT_EQ(entries(exportRoot + QStringLiteral("/Resources")), QStringList{QStringLiteral("resource.json")});
    EXPECT_EQ(entries(exportRoot + QStringLiteral("/Prompts")), QStringList{QStringLiteral("prompt.json")});
    // Every record is registered, and the registrations lead to the router.
    EXPECT_EQ(bridge.listTools(), QStringList{QStringLiteral("A/b\\C:d*E?f\"G<h>I|j Kl.m")});
    EXPECT_EQ(bridge.listResources(), QStringList{QStringLiteral("file:///tmp/x.txt")});
    EXPECT_EQ(bridge.listPrompts(), QStringList{QString()});
}

TEST_F(ConfigTestFixture, ToolFilesMergeTheirSchemasAndWriteItemsByType)
{
    // Two input schemas: parameters gather, a later `required` replaces an earlier one.
    addTool(QStringLiteral("merge"),
            {{Param{QStringLiteral("path"), QStringLiteral("string"), QStringLiteral(""), QString(), QStringLiteral("Where")},
              Param{QStringLiteral("list"), QStringLiteral("array"), QStringLiteral("array"), QStringLiteral("{\"not\": \"array\"}")}},
             {Param{QStringLiteral("shape"), QStringLiteral("object"), QStringLiteral("object"), QStringLiteral("[1, 2]")},
              Param{QStringLiteral("tags"), QStringLiteral("array"), QStringLiteral("array"), QStringLiteral("[\"a\", 1]"), QString(), QStringLiteral("a, b")},
              Param{QStringLiteral("mode"), QStringLiteral("string"), QStringLiteral("string"), QStringLiteral("\"fast\"")}}},
            {}, {QStringLiteral("path"), QStringLiteral(" shape , ,tags ")});
    save();
    exportOrFail();

    const QJsonObject tool = readJson(bundleFile(QStringLiteral("Tools"), QStringLiteral("merge.json")));
    EXPECT_FALSE(tool.contains(QStringLiteral("title")));
    EXPECT_EQ(tool.value(QStringLiteral("execMethod")).toString(), QStringLiteral("readFile"));
    EXPECT_EQ(tool.value(QStringLiteral("scriptName")).toString(), QString());
    const QJsonObject annotations = tool.value(QStringLiteral("annotations")).toObject();
    EXPECT_EQ(annotations.value(QStringLiteral("priority")).toDouble(), 0.9);
    EXPECT_TRUE(annotations.value(QStringLiteral("lastModified")).toString().endsWith(QLatin1Char('Z')));

    const QJsonObject input = tool.value(QStringLiteral("inputSchema")).toObject();
    EXPECT_EQ(input.value(QStringLiteral("type")).toString(), QStringLiteral("object"));
    EXPECT_EQ(input.value(QStringLiteral("required")).toArray(), (QJsonArray{QStringLiteral("shape"), QStringLiteral("tags")}));
    const QJsonObject props = input.value(QStringLiteral("properties")).toObject();
    EXPECT_EQ(props.keys(), (QStringList{QStringLiteral("list"), QStringLiteral("mode"), QStringLiteral("path"),
                                         QStringLiteral("shape"), QStringLiteral("tags")}));
    EXPECT_EQ(props.value(QStringLiteral("path")).toObject(),
              (QJsonObject{{QStringLiteral("type"), QStringLiteral("string")},
                           {QStringLiteral("description"), QStringLiteral("Where")},
                           {QStringLiteral("name"), QStringLiteral("path")}}));
    auto itemsOf = [&](const char *name) {
        return props.value(QLatin1String(name)).toObject().value(QStringLiteral("items")).toObject();
    };
    EXPECT_EQ(itemsOf("list"), (QJsonObject{{QStringLiteral("type"), QStringLiteral("array")}}));
    EXPECT_EQ(itemsOf("shape"), (QJsonObject{{QStringLiteral("type"), QStringLiteral("object")},
                                            {QStringLiteral("properties"), QJsonObject()}}));
    EXPECT_EQ(itemsOf("tags"), (QJsonObject{{QStringLiteral("type"), QStringLiteral("array")},
                                           {QStringLiteral("content"), QJsonArray{QStringLiteral("a"), 1}}}));
    EXPECT_EQ(itemsOf("mode"), (QJsonObject{{QStringLiteral("type"), QStringLiteral("string")}}));
    EXPECT_EQ(props.value(QStringLiteral("tags")).toObject().value(QStringLiteral("defaultValue")).toString(),
              QStringLiteral("a, b"));

    // No output schema at all: an empty object schema without `required`.
    EXPECT_EQ(tool.value(QStringLiteral("outputSchema")).toObject(),
              (QJsonObject{{QStringLiteral("type"), QStringLiteral("object")}, {QStringLiteral("properties"), QJsonObject()}}));

    // The file is pretty-printed with sorted keys.
    QFile file(bundleFile(QStringLiteral("Tools"), QStringLiteral("merge.json")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(text.contains(QLatin1Char('\n')));
    EXPECT_LT(text.indexOf(QStringLiteral("\"annotations\"")), text.indexOf(QStringLiteral("\"description\"")));
    EXPECT_LT(text.indexOf(QStringLiteral("\"outputSchema\"")), text.indexOf(QStringLiteral("\"toolType\"")));
}

TEST_F(ConfigTestFixture, AToolExportedAndImportedHasOneInputAndOneOutputSchema)
{
    addTool(QStringLiteral("none"));
    addTool(QStringLiteral("several"),
            {{Param{QStringLiteral("a")}}, {Param{QStringLiteral("b"), QStringLiteral("array"), QStringLiteral("array"), QStringLiteral("[1]")}}},
            {{Param{QStringLiteral("x"), QStringLiteral("integer")}}, {Param{QStringLiteral("y"), QStringLiteral("boolean")}}},
            {QStringLiteral("a"), QStringLiteral("b, a")});
    save();
    exportOrFail();

    PersistenceController other(root + QStringLiteral("/Other.sqlite"));
    ConfigurationController importer(other.viewContext(), router.get(), QString(), QString());
    ImportError error;
    const std::optional<ImportResult> imported = importer.importConfiguration(exportRoot, nullptr, &error);
    ASSERT_TRUE(imported.has_value()) << error.description().toStdString();
    EXPECT_EQ(imported->importedTools, 2);
    EXPECT_FALSE(imported->hasErrors()) << imported->allErrors().join(QLatin1Char('\n')).toStdString();

    const QList<ToolsConfig *> tools = ToolsQueryService::fetchTools(other.viewContext());
    ASSERT_EQ(tools.size(), 2);
    for (ToolsConfig *tool : tools) {
        EXPECT_EQ(tool->inputSchemas().size(), 1) << tool->name()->toStdString();
        EXPECT_EQ(tool->outputSchmas().size(), 1) << tool->name()->toStdString();
        EXPECT_FALSE(tool->title().has_value());
        EXPECT_EQ(tool->handlerName(), QStringLiteral("FileAccessHandler"));
    }
    ToolsConfig *none = tools[0]->name() == QStringLiteral("none") ? tools[0] : tools[1];
    ToolsConfig *several = tools[0] == none ? tools[1] : tools[0];
    EXPECT_TRUE(none->inputSchemas().first()->properties().isEmpty());
    EXPECT_FALSE(none->inputSchemas().first()->requiredParams().has_value());

    ToolInputSchema *input = several->inputSchemas().first();
    EXPECT_EQ(input->requiredParams(), QStringLiteral("b, a"));
    const QList<ToolInSchemaParams *> params = ToolsQueryService::sortedProperties(input);
    ASSERT_EQ(params.size(), 2);
    EXPECT_EQ(params[0]->parameterName(), QStringLiteral("a"));
    EXPECT_EQ(params[0]->itemType(), QStringLiteral("null"));
    EXPECT_EQ(params[0]->items(), QString());
    EXPECT_EQ(params[0]->defaultValue(), QString());
    EXPECT_EQ(params[1]->itemType(), QStringLiteral("array"));
    EXPECT_EQ(params[1]->items(), QStringLiteral("[1]"));
    EXPECT_EQ(ToolsQueryService::sortedProperties(several->outputSchmas().first()).size(), 2);
}

TEST_F(ConfigTestFixture, ResourcesAndPromptsRoundTrip)
{
    addResource(QStringLiteral("Notes"), QStringLiteral("file:///tmp/notes.txt"), QStringLiteral("file"));
    addPrompt(QStringLiteral("Greeting"));
    save();
    exportOrFail();

    const QJsonObject resource = readJson(bundleFile(QStringLiteral("Resources"), QStringLiteral("notes.json")));
    EXPECT_EQ(resource.value(QStringLiteral("uri")).toString(), QStringLiteral("file:///tmp/notes.txt"));
    EXPECT_EQ(resource.value(QStringLiteral("contextTags")).toString(), QStringLiteral("a,b"));
    const QJsonObject annotations = resource.value(QStringLiteral("annotations")).toObject();
    EXPECT_EQ(annotations.value(QStringLiteral("audience")).toArray(),
              (QJsonArray{QStringLiteral("user"), QStringLiteral("assistant")}));
    EXPECT_EQ(annotations.value(QStringLiteral("priority")).toDouble(), 0.25);

    const QJsonObject prompt = readJson(bundleFile(QStringLiteral("Prompts"), QStringLiteral("greeting.json")));
    // Arguments by name in code-point order: "How" before "who".
    const QJsonArray arguments = prompt.value(QStringLiteral("arguments")).toArray();
    ASSERT_EQ(arguments.size(), 2);
    EXPECT_EQ(arguments[0].toObject().value(QStringLiteral("name")).toString(), QStringLiteral("How"));
    EXPECT_EQ(arguments[1].toObject(), (QJsonObject{{QStringLiteral("name"), QStringLiteral("who")},
                                                    {QStringLiteral("description"), QStringLiteral("about who")},
                                                    {QStringLiteral("required"), true}}));
    EXPECT_EQ(prompt.value(QStringLiteral("template")).toString(), QStringLiteral("Hello {who}"));

    // An unparsable uri comes in missing and goes out empty.
    QJsonObject broken = resource;
    broken.insert(QStringLiteral("uri"), QStringLiteral("not a uri with blanks"));
    writeFile(root + QStringLiteral("/In/Resources/broken.json"), QJsonDocument(broken).toJson());
    ImportError error;
    const auto imported = controller->importConfiguration(root + QStringLiteral("/In"), nullptr, &error);
    ASSERT_TRUE(imported.has_value());
    EXPECT_EQ(imported->importedResources, 1);
    ResourceConfig *copy = nullptr;
    for (ResourceConfig *r : ResourceQueryService::fetchResourceConfigs(context))
        if (!r->uri())
            copy = r;
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->annAudience(), QStringLiteral("user, assistant"));
    EXPECT_EQ(copy->annPriority(), 0.25);
    EXPECT_EQ(ConfigurationController::resourceConfig(copy).uri, QString());
}

TEST_F(ConfigTestFixture, ImportSkipsCapitalExtensionsAndReportsMissingFoldersAndBadFiles)
{
    const QString bundle = root + QStringLiteral("/Bundle");
    addTool(QStringLiteral("good"));
    save();
    exportOrFail();
    QDir().mkpath(bundle + QStringLiteral("/Tools"));
    QFile::copy(bundleFile(QStringLiteral("Tools"), QStringLiteral("good.json")), bundle + QStringLiteral("/Tools/good.json"));
    QFile::copy(bundleFile(QStringLiteral("Tools"), QStringLiteral("good.json")), bundle + QStringLiteral("/Tools/Shouting.JSON"));
    writeFile(bundle + QStringLiteral("/Tools/broken.json"), "{\"name\": \"broken\"}");
    writeFile(bundle + QStringLiteral("/Tools/notes.txt"), "not a tool");
    QDir().mkpath(bundle + QStringLiteral("/Resources"));

    ImportError error;
    const auto imported = controller->importConfiguration(bundle, nullptr, &error);
    ASSERT_TRUE(imported.has_value()) << error.description().toStdString();
    EXPECT_EQ(imported->importedTools, 1);
    const QString brokenLine = QStringLiteral(
        "Failed to import tool from 'broken.json': Decoding Failed: The key 'description' is missing.");
    EXPECT_EQ(imported->toolsErrors, QStringList{brokenLine});
    EXPECT_TRUE(logged(brokenLine));
    EXPECT_EQ(imported->importedResources, 0);
    EXPECT_TRUE(imported->resourcesErrors.isEmpty());
    EXPECT_EQ(imported->importedPrompts, 0);
    EXPECT_EQ(imported->promptsErrors,
              QStringList{QStringLiteral("Prompts directory not found: ") +
                          QUrl::fromLocalFile(bundle + QStringLiteral("/Prompts/")).toString()});

    // The same folder again doubles the records: names equal, ids differ.
    controller->importConfiguration(bundle);
    QList<ToolsConfig *> goods;
    for (ToolsConfig *tool : ToolsQueryService::fetchTools(context))
        if (tool->name() == QStringLiteral("good"))
            goods.append(tool);
    ASSERT_EQ(goods.size(), 3);  // the original and two imports
    EXPECT_NE(goods[1]->id(), goods[2]->id());
}

TEST_F(ConfigTestFixture, OneFailingToolStopsOnlyItself)
{
    addTool(QStringLiteral("bad"), {{Param{QString()}}});
    addTool(QStringLiteral("bad output"), {}, {{Param{std::nullopt}}});
    addTool(QStringLiteral("fine"));
    addPrompt(QStringLiteral("p"));
    save();
    const ExportResult result = exportOrFail();
    EXPECT_EQ(result.exportedTools, 1);
    EXPECT_EQ(result.exportedPrompts, 1);
    const QString bad = QStringLiteral("Failed to export tool 'bad': Invalid configuration: Parameter input schema name missing.");
    EXPECT_EQ(result.toolsErrors,
              (QStringList{bad, QStringLiteral("Failed to export tool 'bad output': Invalid configuration: Parameter "
                                               "output schema name missing.")}));
    EXPECT_TRUE(logged(bad));
    EXPECT_EQ(entries(exportRoot + QStringLiteral("/Tools")), QStringList{QStringLiteral("fine.json")});
    EXPECT_EQ(bridge.listTools(), QStringList{QStringLiteral("fine")});
}

TEST_F(ConfigTestFixture, RegisteredRecordsAnswerThroughTheRouter)
{
    const QString notes = root + QStringLiteral("/notes.txt");
    writeFile(notes, "remember");
    addTool(QStringLiteral("reader"), {{Param{QStringLiteral("file_path")}}}, {{Param{QStringLiteral("size"), QStringLiteral("integer")}}},
            {QStringLiteral("file_path")});
    addResource(QStringLiteral("Notes"), QUrl::fromLocalFile(notes).toString(), QStringLiteral("file"));
    addPrompt(QStringLiteral("hello"));
    save();
    exportOrFail();

    QVariantMap arguments{{QStringLiteral("sessionId"), QStringLiteral("s")},
                          {QStringLiteral("name"), QStringLiteral("reader")},
                          {QStringLiteral("toolType"), QStringLiteral("BuiltinTool")},
                          {QStringLiteral("execHandler"), QStringLiteral("FileAccessHandler")},
                          {QStringLiteral("execMethod"), QStringLiteral("readFile")},
                          {QStringLiteral("file_path"), notes}};
    const QVariantMap answer =
        VariantJSON::toVariantMap(bridge.server().getToolService()->callTool("reader", VariantJSON::fromVariantMap(arguments)));
    const QVariantMap structured = answer.value(QStringLiteral("structuredContent")).toMap();
    EXPECT_EQ(structured.value(QStringLiteral("content")).toString(), QStringLiteral("remember"));
    EXPECT_EQ(structured.value(QStringLiteral("size")).toInt(), 8);

    const auto definition = bridge.server().getResourceService()->findResource(QUrl::fromLocalFile(notes).toString().toStdString());
    ASSERT_TRUE(definition.has_value());
    EXPECT_EQ(bridge.server().getResourceService()->readResource(*definition).data.content, "remember");
}

TEST_F(ConfigTestFixture, TheBuiltInBundleImportsAndExportsWithoutErrors)
{
    ImportError error;
    const auto imported = controller->importBuiltinConfiguration(nullptr, &error);
    ASSERT_TRUE(imported.has_value()) << error.description().toStdString();
    EXPECT_FALSE(imported->hasErrors()) << imported->allErrors().join(QLatin1Char('\n')).toStdString();
    EXPECT_GE(imported->importedTools, 4);
    EXPECT_GE(imported->importedResources, 1);
    EXPECT_GE(imported->importedPrompts, 1);

    // A script named relative to the bundle is found beside it.
    bool sawScript = false;
    for (ToolsConfig *tool : ToolsQueryService::fetchTools(context)) {
        if (tool->toolType() != QStringLiteral("ScriptTool"))
            continue;
        sawScript = true;
        EXPECT_TRUE(QDir::isAbsolutePath(*tool->scriptFileName())) << tool->scriptFileName()->toStdString();
        EXPECT_TRUE(QFileInfo::exists(*tool->scriptFileName())) << tool->scriptFileName()->toStdString();
    }
    EXPECT_TRUE(sawScript);

    const ExportResult exported = exportOrFail();
    EXPECT_FALSE(exported.hasErrors()) << exported.allErrors().join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(exported.exportedTools, imported->importedTools);
}

TEST(ConfigurationTexts, ErrorDescriptionsAndSummaries)
{
    EXPECT_EQ(ExportError::invalidPath(QStringLiteral("x")).description(), QStringLiteral("Invalid Path: x"));
    EXPECT_EQ(ExportError::writeFailed(QStringLiteral("x")).description(), QStringLiteral("Write Failed: x"));
    EXPECT_EQ(ExportError::unknown(QStringLiteral("x")).description(), QStringLiteral("Unknown Error: x"));
    EXPECT_EQ(ImportError::decodingFailed(QStringLiteral("x")).description(), QStringLiteral("Decoding Failed: x"));
    EXPECT_EQ(ImportError::saveFailed(QStringLiteral("x")).description(), QStringLiteral("Save Failed: x"));
    ImportResult result;
    result.importedTools = 2;
    result.importedResources = 1;
    EXPECT_EQ(ConfigurationController::importSummary(result),
              QStringLiteral("Import complete \u2014 2 tools, 1 resources, 0 prompts imported."));
    EXPECT_EQ(ConfigurationController::fileName(std::nullopt, QStringLiteral("Resource")), QStringLiteral("resource.json"));
}

TEST_F(ConfigTestFixture, ExportWithoutARootFailsBeforeTouchingTheRegistry)
{
    bridge.registerPrompt(QVariantMap{{QStringLiteral("name"), QStringLiteral("kept")}}, {});
    ConfigurationController rootless(context, router.get(), QString(), QString());
    ExportError error;
    EXPECT_FALSE(rootless.exportConfiguration(&error).has_value());
    EXPECT_EQ(error.description(), QStringLiteral("Invalid Path: Unable to get app sandbox library directory"));
    EXPECT_EQ(bridge.listPrompts(), QStringList{QStringLiteral("kept")});
}
