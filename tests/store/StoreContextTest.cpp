#include "store/PersistenceController.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "store/ResourceQueryService.h"
#include "store/ServerConfig.h"
#include "store/ServerQueryService.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"
#include "tests/store/StoreTestUtil.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSignalSpy>

#include <memory>

using StoreTestUtil::freshStorePath;
using StoreTestUtil::rowCount;

namespace {

std::unique_ptr<PersistenceController> openStore(const QString &path)
{
    return std::make_unique<PersistenceController>(path);
}

// A tool with two input schemas (types "object" and "array", two parameters each) and
// one output schema, as a user would build it.
ToolsConfig *makeTool(StoreContext *context, const QString &name)
{
    ToolsConfig *tool = ToolsQueryService::createTool(context, 0);
    tool->setName(name);
    ToolInputSchema *first = ToolsQueryService::createInputSchema(context);
    first->properties().first()->setParameterName(QStringLiteral("path"));
    ToolInSchemaParams *extra = ToolsQueryService::createInSchemaParams(context);
    extra->setParameterName(QStringLiteral("depth"));
    first->addPropertiesObject(extra);
    ToolInputSchema *second = ToolsQueryService::createInputSchema(context);
    second->setType(QStringLiteral("array"));
    tool->addInputSchemasObject(first);
    tool->addInputSchemasObject(second);
    tool->addOutputSchmasObject(ToolsQueryService::createOutputSchema(context));
    return tool;
}

TEST(StoreContext, ReopenedStoreHoldsWhatWasSavedAndNothingRolledBack)
{
    const QString path = freshStorePath();
    {
        auto store = openStore(path);
        ASSERT_FALSE(store->loadError()) << store->loadError()->toStdString();
        StoreContext *context = store->viewContext();
        makeTool(context, QStringLiteral("reader"));
        ResourceConfig *resource = ResourceQueryService::createResourceConfig(context);
        resource->setAnnPriority(std::nullopt);
        PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
        PromptQueryService::createArgument(context, prompt)->setName(QStringLiteral("zeta"));
        PromptQueryService::createArgument(context, prompt)->setRequired(true);
        ServerQueryService::fetchOrCreateServerConfig(context)->setPort(9123);
        AppError error;
        ASSERT_TRUE(context->save(&error)) << error.description.toStdString();
        EXPECT_FALSE(context->hasChanges());

        // Pending work that must not survive.
        makeTool(context, QStringLiteral("discarded"));
        ToolsQueryService::fetchTools(context).first()->setToolDescription(QStringLiteral("edited"));
        resource->setName(QStringLiteral("renamed"));
        context->deleteObject(prompt);
        ASSERT_TRUE(context->hasChanges());
        context->rollback();
        EXPECT_FALSE(context->hasChanges());
        EXPECT_EQ(resource->name(), QStringLiteral("New Resource"));
        EXPECT_FALSE(prompt->isDeleted());
    }
    auto store = openStore(path);
    StoreContext *context = store->viewContext();
    const QList<ToolsConfig *> tools = ToolsQueryService::fetchTools(context);
    ASSERT_EQ(tools.size(), 1);
    ToolsConfig *tool = tools.first();
    EXPECT_EQ(tool->name(), QStringLiteral("reader"));
    EXPECT_EQ(tool->toolDescription(), QStringLiteral("Description for new tool"));
    EXPECT_EQ(tool->handlerName(), std::nullopt);  // missing stays missing
    EXPECT_EQ(tool->title(), std::nullopt);
    ASSERT_EQ(tool->inputSchemas().size(), 2);
    EXPECT_EQ(tool->inputSchemas()[0]->type(), QStringLiteral("object"));  // stored order, not sorted
    EXPECT_EQ(tool->inputSchemas()[1]->type(), QStringLiteral("array"));
    EXPECT_EQ(tool->inputSchemas()[0]->requiredParams(), QStringLiteral(""));  // present but empty
    EXPECT_EQ(tool->inputSchemas()[0]->toolConfig(), tool);
    QStringList names;
    for (auto *param : ToolsQueryService::sortedProperties(tool->inputSchemas()[0]))
        names.append(param->parameterName().value_or(QStringLiteral("?")));
    EXPECT_EQ(names, (QStringList{QStringLiteral("depth"), QStringLiteral("path")}));
    ASSERT_EQ(tool->outputSchmas().size(), 1);
    EXPECT_EQ(tool->outputSchmas()[0]->properties().size(), 1);
    EXPECT_EQ(tool->outputSchmas()[0]->properties()[0]->itemType(), QStringLiteral("string"));

    const QList<ResourceConfig *> resources = ResourceQueryService::fetchResourceConfigs(context);
    ASSERT_EQ(resources.size(), 1);
    EXPECT_EQ(resources[0]->uri(), QUrl(QStringLiteral("file:///anyfile.txt")));
    EXPECT_EQ(resources[0]->annPriority(), std::nullopt);
    EXPECT_EQ(resources[0]->relatedResources(), QStringLiteral(""));

    const QList<PromptConfig *> prompts = PromptQueryService::fetchPrompts(context);
    ASSERT_EQ(prompts.size(), 1);
    const QList<PromptArguments *> arguments = prompts[0]->arguments();
    ASSERT_EQ(arguments.size(), 3);  // insertion order kept
    EXPECT_EQ(arguments[0]->name(), QStringLiteral("New Argument 1"));
    EXPECT_EQ(arguments[1]->name(), QStringLiteral("zeta"));
    EXPECT_EQ(arguments[2]->name(), QStringLiteral("New Argument 3"));
    EXPECT_TRUE(arguments[2]->required());
    EXPECT_EQ(prompts[0]->templateText(), QStringLiteral("Create a text about {topic}"));

    ServerConfig *server = ServerQueryService::fetchServerConfig(context);
    ASSERT_NE(server, nullptr);
    EXPECT_EQ(server->port(), 9123);
    EXPECT_EQ(server->serverName(), QStringLiteral("tamsel_kelvara"));
    EXPECT_EQ(rowCount(path, QStringLiteral("ToolsConfig")), 1);
}

TEST(StoreContext, FileIsVersionedAndJournaled)
{
    const QString path = freshStorePath();
    auto store = openStore(path);
    ASSERT_FALSE(store->loadError());
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version")).toInt(),
              PersistenceController::schemaVersion);
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("PRAGMA journal_mode")).toString(), QStringLiteral("wal"));
}

TEST(StoreContext, DeletingCascadesDownAndNullifiesUp)
{
    const QString path = freshStorePath();
    auto store = openStore(path);
    StoreContext *context = store->viewContext();
    ToolsConfig *doomed = makeTool(context, QStringLiteral("doomed"));
    ToolsConfig *kept = makeTool(context, QStringLiteral("kept"));
    PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
    ASSERT_TRUE(context->save());
    // Saved before any fetch: reading the tables now must not bring the rows in twice.
    EXPECT_EQ(ToolsQueryService::fetchTools(context).size(), 2);
    EXPECT_EQ(kept->inputSchemas().size(), 2);
    EXPECT_EQ(kept->inputSchemas().first()->properties().size(), 2);
    ASSERT_EQ(rowCount(path, QStringLiteral("ToolInputSchema")), 4);
    ASSERT_EQ(rowCount(path, QStringLiteral("ToolInSchemaParams")), 6);

    ToolInputSchema *schema = doomed->inputSchemas().first();
    ToolInSchemaParams *param = schema->properties().first();
    context->deleteObject(doomed);
    EXPECT_TRUE(doomed->isDeleted());
    EXPECT_TRUE(schema->isDeleted());
    EXPECT_TRUE(param->isDeleted());
    EXPECT_EQ(ToolsQueryService::fetchTools(context), QList<ToolsConfig *>{kept});

    // Deleting a child takes it out of its owner's list at once.
    ToolInputSchema *keptSchema = kept->inputSchemas().last();
    context->deleteObject(keptSchema);
    EXPECT_EQ(kept->inputSchemas().size(), 1);
    EXPECT_EQ(keptSchema->toolConfig(), nullptr);
    context->deleteObject(prompt->arguments().first());
    EXPECT_TRUE(prompt->arguments().isEmpty());

    ASSERT_TRUE(context->save());
    EXPECT_TRUE(doomed->isDetached());
    EXPECT_EQ(doomed->context(), nullptr);
    EXPECT_EQ(doomed->name(), QStringLiteral("doomed"));  // still readable for whoever holds it
    EXPECT_EQ(rowCount(path, QStringLiteral("ToolsConfig")), 1);
    EXPECT_EQ(rowCount(path, QStringLiteral("ToolInputSchema")), 1);
    EXPECT_EQ(rowCount(path, QStringLiteral("ToolOutputSchema")), 1);
    EXPECT_EQ(rowCount(path, QStringLiteral("ToolInSchemaParams")), 2);  // kept's first schema
    EXPECT_EQ(rowCount(path, QStringLiteral("ToolOutSchemeParams")), 1);
    EXPECT_EQ(rowCount(path, QStringLiteral("PromptArguments")), 0);
}

TEST(StoreContext, RollbackUndoesDeletesAndMovesBetweenOwners)
{
    auto store = openStore(freshStorePath());
    StoreContext *context = store->viewContext();
    ToolsConfig *a = makeTool(context, QStringLiteral("a"));
    ToolsConfig *b = makeTool(context, QStringLiteral("b"));
    ASSERT_TRUE(context->save());
    const QList<ToolInputSchema *> aSchemas = a->inputSchemas();
    const QList<ToolInputSchema *> bSchemas = b->inputSchemas();

    aSchemas.first()->setToolConfig(b);  // moves it
    EXPECT_EQ(a->inputSchemas().size(), 1);
    EXPECT_EQ(b->inputSchemas().size(), 3);
    context->deleteObject(b->inputSchemas().first());
    ToolInputSchema *added = ToolsQueryService::createInputSchema(context);
    a->addInputSchemasObject(added);

    context->rollback();
    EXPECT_EQ(a->inputSchemas(), aSchemas);
    EXPECT_EQ(b->inputSchemas(), bSchemas);
    EXPECT_EQ(aSchemas.first()->toolConfig(), a);
    EXPECT_FALSE(bSchemas.first()->isDeleted());
    EXPECT_TRUE(added->isDetached());
    EXPECT_FALSE(added->properties().first()->context());
    a->addInputSchemasObject(added);  // a record that left the store is not linked back in
    EXPECT_EQ(a->inputSchemas(), aSchemas);
    EXPECT_FALSE(context->hasChanges());
}

TEST(StoreContext, SiblingsKeepTheirOrderWhenTheListChanges)
{
    const QString path = freshStorePath();
    {
        auto store = openStore(path);
        StoreContext *context = store->viewContext();
        PromptConfig *donor = PromptQueryService::createPrompt(context, 0);  // its argument has the lowest key
        PromptConfig *prompt = PromptQueryService::createPrompt(context, 1);
        PromptQueryService::createArgument(context, prompt)->setName(QStringLiteral("second"));
        ASSERT_TRUE(context->save());
        // The first argument goes; the donor's argument joins at the end. The remaining
        // one must move to the front on disk, or the older key would sort first.
        context->deleteObject(prompt->arguments().first());
        PromptArguments *moved = donor->arguments().first();
        moved->setName(QStringLiteral("moved"));
        moved->setPromptConfig(prompt);
        ASSERT_TRUE(context->save());
    }
    auto store = openStore(path);
    const QList<PromptConfig *> prompts = PromptQueryService::fetchPrompts(store->viewContext());
    ASSERT_EQ(prompts.size(), 2);
    QStringList names;
    for (auto *argument : prompts[1]->arguments())
        names.append(*argument->name());
    EXPECT_EQ(names, (QStringList{QStringLiteral("second"), QStringLiteral("moved")}));
    EXPECT_TRUE(prompts[0]->arguments().isEmpty());
}

TEST(StoreContext, TablesLoadLazilyAndRollbackKeepsLaterLoadedChildren)
{
    const QString path = freshStorePath();
    {
        auto store = openStore(path);
        makeTool(store->viewContext(), QStringLiteral("t"));
        ASSERT_TRUE(store->viewContext()->save());
    }
    auto store = openStore(path);
    StoreContext *context = store->viewContext();
    ToolsConfig *tool = context->fetch<ToolsConfig>(FetchRequest::forEntity(StoreEntity::ToolsConfig)).first();
    EXPECT_FALSE(context->isLoaded(StoreEntity::ToolInputSchema));
    tool->setName(QStringLiteral("edited before the schemas were read"));
    ASSERT_EQ(tool->inputSchemas().size(), 2);  // reads the table now
    EXPECT_FALSE(context->isLoaded(StoreEntity::ToolInSchemaParams));
    context->rollback();
    EXPECT_EQ(tool->name(), QStringLiteral("t"));
    EXPECT_EQ(tool->inputSchemas().size(), 2);
    EXPECT_EQ(tool->inputSchemas().first()->properties().size(), 2);

    ToolsQueryService::fetchTools(context);
    EXPECT_TRUE(context->isLoaded(StoreEntity::ToolOutputSchema));
}

TEST(StoreContext, FailedSaveWritesNothingAndKeepsChangesPending)
{
    const QString path = freshStorePath();
    auto store = openStore(path);
    StoreContext *context = store->viewContext();
    ResourceQueryService::createResourceConfig(context);
    ASSERT_TRUE(context->save());
    StoreTestUtil::sql(path, QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON ToolsConfig BEGIN "
                                            "SELECT RAISE(ABORT, 'tools are refused'); END"));

    ResourceConfig *resource = ResourceQueryService::fetchResourceConfigs(context).first();
    resource->setName(QStringLiteral("changed with the tool"));
    ResourceQueryService::createResourceConfig(context);
    makeTool(context, QStringLiteral("refused"));
    AppError error;
    EXPECT_FALSE(context->save(&error));
    EXPECT_EQ(error.domain, StoreContext::errorDomain);
    EXPECT_TRUE(error.description.contains(QStringLiteral("tools are refused"))) << error.description.toStdString();
    EXPECT_TRUE(context->hasChanges());
    EXPECT_EQ(rowCount(path, QStringLiteral("ResourceConfig")), 1);
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("SELECT name FROM ResourceConfig")).toString(),
              QStringLiteral("New Resource"));

    StoreTestUtil::sql(path, QStringLiteral("DROP TRIGGER refuse"));
    ASSERT_TRUE(context->save(&error)) << error.description.toStdString();
    EXPECT_EQ(rowCount(path, QStringLiteral("ResourceConfig")), 2);
    EXPECT_EQ(rowCount(path, QStringLiteral("ToolsConfig")), 1);
}

TEST(StoreContext, UnopenableStoreFailsEveryFetchAndSaveWithAMessage)
{
    const QString path = freshStorePath();
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4096, 'x'));
    }
    auto store = openStore(path);
    ASSERT_TRUE(store->loadError().has_value());
    StoreContext *context = store->viewContext();
    EXPECT_FALSE(context->isAvailable());

    AppError error;
    EXPECT_TRUE(ToolsQueryService::fetchTools(context, &error).isEmpty());
    EXPECT_EQ(error.code, StoreContext::StoreUnavailable);
    EXPECT_TRUE(error.description.startsWith(QStringLiteral("The configuration store could not be opened: ")));
    EXPECT_EQ(ServerQueryService::fetchOrCreateServerConfig(context), nullptr);

    ResourceQueryService::createResourceConfig(context);  // in memory only
    AppError saveError;
    EXPECT_FALSE(context->save(&saveError));
    EXPECT_EQ(saveError.code, StoreContext::StoreUnavailable);
    EXPECT_TRUE(context->hasChanges());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray(4096, 'x'));  // left as it was
}

TEST(StoreContext, StoreFromANewerVersionIsNotTouched)
{
    const QString path = freshStorePath();
    openStore(path);
    StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version = 99"));
    auto store = openStore(path);
    ASSERT_TRUE(store->loadError().has_value());
    EXPECT_TRUE(store->loadError()->contains(QStringLiteral("newer version")));
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version")).toInt(), 99);
}

TEST(StoreContext, RefreshTurnsOneRecordBack)
{
    auto store = openStore(freshStorePath());
    StoreContext *context = store->viewContext();
    ResourceConfig *first = ResourceQueryService::createResourceConfig(context);
    ResourceConfig *second = ResourceQueryService::createResourceConfig(context);
    ASSERT_TRUE(context->save());
    first->setName(QStringLiteral("one"));
    first->setUri(std::nullopt);
    second->setName(QStringLiteral("two"));
    context->refresh(first, true);  // merging keeps the edits
    EXPECT_EQ(first->name(), QStringLiteral("one"));
    context->refresh(first, false);
    EXPECT_EQ(first->name(), QStringLiteral("New Resource"));
    EXPECT_TRUE(first->uri().has_value());
    EXPECT_FALSE(first->isUpdated());
    EXPECT_TRUE(context->hasChanges());  // the other edit stays
    EXPECT_EQ(second->name(), QStringLiteral("two"));
}

TEST(StoreContext, EveryChangeIsAnnouncedButEqualValuesAreNoChange)
{
    auto store = openStore(freshStorePath());
    StoreContext *context = store->viewContext();
    QSignalSpy spy(context, &StoreContext::objectsDidChange);
    ResourceConfig *resource = context->insert<ResourceConfig>();
    EXPECT_EQ(spy.count(), 1);
    resource->setName(QStringLiteral("x"));
    EXPECT_EQ(spy.count(), 2);
    resource->setName(QStringLiteral("x"));
    EXPECT_EQ(spy.count(), 2);
    ASSERT_TRUE(context->save());
    EXPECT_EQ(spy.count(), 3);
    resource->setName(QStringLiteral("x"));
    EXPECT_FALSE(context->hasChanges());
    context->deleteObject(resource);
    EXPECT_EQ(spy.count(), 4);
    context->rollback();
    EXPECT_EQ(spy.count(), 5);
}

TEST(StoreContext, FetchOrCreateServerConfigInsertsWithoutSaving)
{
    const QString path = freshStorePath();
    {
        auto store = openStore(path);
        StoreContext *context = store->viewContext();
        EXPECT_EQ(ServerQueryService::fetchServerConfig(context), nullptr);
        ServerConfig *config = ServerQueryService::fetchOrCreateServerConfig(context);
        ASSERT_NE(config, nullptr);
        EXPECT_TRUE(config->isInserted());
        EXPECT_TRUE(context->hasChanges());
        EXPECT_EQ(config->serverName(), QStringLiteral("tamsel_kelvara"));
        EXPECT_EQ(config->serverTitle(), QStringLiteral("Kelvara"));
        EXPECT_EQ(config->serverVersion(), QStringLiteral("1.0.0"));
        EXPECT_EQ(config->instructions(), QStringLiteral("Kelvara - Message Context Protocol Server"));
        EXPECT_EQ(config->port(), 8888);
        EXPECT_EQ(ServerQueryService::fetchOrCreateServerConfig(context), config);
        EXPECT_EQ(rowCount(path, QStringLiteral("ServerConfig")), 0);
    }
    auto store = openStore(path);
    EXPECT_EQ(ServerQueryService::fetchServerConfig(store->viewContext()), nullptr);
}

TEST(StoreContext, SortingIsByCodePoint)
{
    auto store = openStore(freshStorePath());
    StoreContext *context = store->viewContext();
    for (const char *name : {"a", "B", "\xF0\x9F\x98\x80", "\xEF\xBC\xA1", "_"}) {
        ToolsQueryService::createTool(context, 0)->setName(QString::fromUtf8(name));
    }
    ToolsQueryService::createTool(context, 0)->setName(std::nullopt);
    QStringList order;
    for (ToolsConfig *tool : ToolsQueryService::fetchTools(context))
        order.append(tool->name().value_or(QStringLiteral("<missing>")));
    // U+FF21 sorts before U+1F600 by code point, though not by UTF-16 unit.
    EXPECT_EQ(order,
              (QStringList{QStringLiteral("<missing>"), QStringLiteral("B"), QStringLiteral("_"), QStringLiteral("a"),
                           QString::fromUtf8("\xEF\xBC\xA1"), QString::fromUtf8("\xF0\x9F\x98\x80")}));

    PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
    prompt->arguments().first()->setName(QStringLiteral("a"));
    PromptArguments *upper = PromptQueryService::createArgument(context, prompt);
    upper->setName(QStringLiteral("B"));
    PromptArguments *unnamed = PromptQueryService::createArgument(context, prompt);
    unnamed->setName(std::nullopt);
    unnamed->setRequired(true);
    QStringList arguments;
    for (auto *argument : PromptQueryService::sortedArguments(prompt))
        arguments.append(argument->name().value_or(QStringLiteral("<missing>")));
    EXPECT_EQ(arguments, (QStringList{QStringLiteral("<missing>"), QStringLiteral("B"), QStringLiteral("a")}));
    EXPECT_EQ(PromptQueryService::argumentsRequiredFirst(prompt),
              (QList<PromptArguments *>{unnamed, upper, prompt->arguments().first()}));
    EXPECT_TRUE(PromptQueryService::hasRequiredArguments(prompt));
    unnamed->setRequired(false);
    EXPECT_FALSE(PromptQueryService::hasRequiredArguments(prompt));

    // Schemas sort stably on type.
    ToolsConfig *tool = ToolsQueryService::createTool(context, 0);
    QList<ToolInputSchema *> schemas;
    for (const char *type : {"object", "array", "object"}) {
        schemas.append(ToolsQueryService::createInputSchema(context));
        schemas.last()->setType(QString::fromLatin1(type));
        tool->addInputSchemasObject(schemas.last());
    }
    EXPECT_EQ(ToolsQueryService::sortedInputSchemas(tool),
              (QList<ToolInputSchema *>{schemas[1], schemas[0], schemas[2]}));
    EXPECT_TRUE(ToolsQueryService::sortedOutputSchemas(tool).isEmpty());
}

TEST(StoreReadingRules, RequiredNamesAndItems)
{
    EXPECT_EQ(ToolsQueryService::requiredParamNames(QStringLiteral(" path ,  depth,,mode ")),
              (QStringList{QStringLiteral("path"), QStringLiteral("depth"), QStringLiteral("mode")}));
    EXPECT_TRUE(ToolsQueryService::requiredParamNames(std::nullopt).isEmpty());
    EXPECT_TRUE(ToolsQueryService::requiredParamNames(QStringLiteral(" , ")).isEmpty());
    EXPECT_TRUE(ToolsQueryService::hasItems(QStringLiteral("string")));
    EXPECT_FALSE(ToolsQueryService::hasItems(QStringLiteral("nullable")));
    EXPECT_FALSE(ToolsQueryService::hasItems(QStringLiteral("null")));
    EXPECT_FALSE(ToolsQueryService::hasItems(QStringLiteral("")));
    EXPECT_FALSE(ToolsQueryService::hasItems(std::nullopt));
}

TEST(StoreCreationDefaults, NewRecordsCarryTheirDefaults)
{
    auto store = openStore(freshStorePath());
    StoreContext *context = store->viewContext();
    ToolsConfig *tool = ToolsQueryService::createTool(context, 2);
    EXPECT_EQ(tool->name(), QStringLiteral("New Tool #3"));
    EXPECT_EQ(tool->toolType(), QStringLiteral("BuiltinTool"));
    EXPECT_EQ(tool->methodName(), QStringLiteral("listFiles"));
    EXPECT_FALSE(tool->handlerName().has_value());
    EXPECT_FALSE(tool->pluginName().has_value());
    EXPECT_TRUE(tool->id().has_value());
    EXPECT_TRUE(tool->inputSchemas().isEmpty());

    ToolOutputSchema *schema = ToolsQueryService::createOutputSchema(context);
    EXPECT_EQ(schema->type(), QStringLiteral("object"));
    EXPECT_EQ(schema->requiredParams(), QStringLiteral(""));
    ASSERT_EQ(schema->properties().size(), 1);
    ToolOutSchemeParams *param = schema->properties().first();
    EXPECT_EQ(param->toolOutputSchema(), schema);
    EXPECT_EQ(param->parameterType(), QStringLiteral("string"));
    EXPECT_EQ(param->itemType(), QStringLiteral("string"));
    EXPECT_EQ(param->items(), QStringLiteral(""));
    EXPECT_EQ(param->parameterName(), QStringLiteral(""));

    PromptConfig *prompt = PromptQueryService::createPrompt(context, 4);
    EXPECT_EQ(prompt->name(), QStringLiteral("Text Generator #5"));
    EXPECT_EQ(prompt->promptDescription(), QStringLiteral("Generates formatted text"));
    ASSERT_EQ(prompt->arguments().size(), 1);
    EXPECT_EQ(prompt->arguments()[0]->info(), QStringLiteral("Description for new argument 1"));
    EXPECT_EQ(PromptQueryService::createArgument(context, prompt)->name(), QStringLiteral("New Argument 2"));

    ResourceConfig *resource = ResourceQueryService::createResourceConfig(context);
    EXPECT_EQ(resource->contextTags(), QStringLiteral("File,Resource"));
    EXPECT_EQ(resource->annAudience(), QStringLiteral("user"));
    EXPECT_EQ(resource->annPriority(), 0.0);
    EXPECT_EQ(resource->mimeType(), QStringLiteral("text/plain"));
    EXPECT_FALSE(resource->annLastModified().has_value());
}

}  // namespace
