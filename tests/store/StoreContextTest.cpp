#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "store/ResourceQueryService.h"
#include "store/ServerConfig.h"
#include "store/ServerQueryService.h"
#include "store/ToolsConfigSnapshot.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "tests/store/StoreTestUtil.h"

#include <QFile>
#include <QSignalSpy>

namespace {

using StoreContextTest = StoreTest;

template <class T, class Name>
QStringList namesOf(const QList<T *> &records, Name name)
{
    QStringList names;
    for (const T *record : records)
        names.append((record->*name)().value_or(QStringLiteral("<missing>")));
    return names;
}

TEST_F(StoreContextTest, ReopenedStoreHoldsWhatWasSavedAndNothingRolledBack)
{
    ASSERT_FALSE(store->loadError()) << *store->loadError();
    const ToolsConfigSnapshot saved = ToolsConfigSnapshot::fromRecord(*makeTool(QStringLiteral("reader")));
    ResourceConfig *resource = ResourceQueryService::createResourceConfig(context);
    resource->setAnnPriority(std::nullopt);
    PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
    PromptQueryService::createArgument(context, prompt)->setName(QStringLiteral("zeta"));
    PromptQueryService::createArgument(context, prompt)->setRequired(true);
    ServerQueryService::fetchOrCreateServerConfig(context).valueOr(nullptr)->setPort(9123);
    const Result<void> stored = context->save();
    ASSERT_TRUE(stored.ok()) << stored.error().description;

    // Pending work that must not survive.
    makeTool(QStringLiteral("discarded"));
    ToolsQueryService::fetchTools(context).valueOr({}).first()->setToolDescription(QStringLiteral("edited"));
    resource->setName(QStringLiteral("renamed"));
    context->deleteObject(prompt);
    context->rollback();
    EXPECT_FALSE(context->hasChanges());
    EXPECT_EQ(resource->name(), QStringLiteral("New Resource"));
    EXPECT_FALSE(prompt->isDeleted());

    reopen();
    const QList<ToolsConfig *> tools = ToolsQueryService::fetchTools(context).valueOr({});
    ASSERT_EQ(tools.size(), 1);
    ToolsConfig *tool = tools.first();
    ASSERT_EQ(ToolsConfigSnapshot::fromRecord(*tool), saved);  // every value and child, in the sorted views
    EXPECT_EQ(tool->handlerName(), std::nullopt);  // missing stays missing
    ASSERT_EQ(tool->inputSchemas().size(), 2);
    EXPECT_EQ(tool->inputSchemas()[0]->type(), QStringLiteral("object"));  // stored order, not sorted
    EXPECT_EQ(tool->inputSchemas()[0]->requiredParams(), QStringLiteral(""));  // present but empty
    EXPECT_EQ(tool->inputSchemas()[0]->toolConfig(), tool);
    EXPECT_EQ(tool->outputSchmas()[0]->properties()[0]->toolOutputSchema(), tool->outputSchmas()[0]);

    const QList<ResourceConfig *> resources = ResourceQueryService::fetchResourceConfigs(context).valueOr({});
    ASSERT_EQ(resources.size(), 1);
    EXPECT_EQ(resources[0]->uri(), QUrl(QStringLiteral("file:///anyfile.txt")));
    EXPECT_EQ(resources[0]->annPriority(), std::nullopt);

    const QList<PromptConfig *> prompts = PromptQueryService::fetchPrompts(context).valueOr({});
    ASSERT_EQ(prompts.size(), 1);
    const QList<PromptArguments *> arguments = prompts[0]->arguments();
    EXPECT_EQ(namesOf(arguments, &PromptArguments::name),  // insertion order kept
              (QStringList{QStringLiteral("New Argument 1"), QStringLiteral("zeta"), QStringLiteral("New Argument 3")}));
    EXPECT_TRUE(arguments.value(2) && arguments[2]->required());

    ServerConfig *server = ServerQueryService::fetchServerConfig(context).valueOr(nullptr);
    ASSERT_NE(server, nullptr);
    EXPECT_EQ(server->port(), 9123);
}

TEST_F(StoreContextTest, DeletingCascadesDownAndNullifiesUp)
{
    ToolsConfig *doomed = makeTool(QStringLiteral("doomed"));
    ToolsConfig *kept = makeTool(QStringLiteral("kept"));
    PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
    ASSERT_TRUE(context->save());
    // Saved before any fetch: reading the tables now must not bring the rows in twice.
    EXPECT_EQ(ToolsQueryService::fetchTools(context).valueOr({}).size(), 2);
    EXPECT_EQ(kept->inputSchemas().first()->properties().size(), 2);
    ASSERT_EQ(rowCount(QStringLiteral("ToolInSchemaParams")), 6);

    ToolInputSchema *schema = doomed->inputSchemas().first();
    ToolInSchemaParams *param = schema->properties().first();
    context->deleteObject(doomed);
    EXPECT_TRUE(schema->isDeleted());
    EXPECT_TRUE(param->isDeleted());
    EXPECT_EQ(ToolsQueryService::fetchTools(context).valueOr({}), QList<ToolsConfig *>{kept});

    // Deleting a child takes it out of its owner's list at once.
    ToolInputSchema *keptSchema = kept->inputSchemas().last();
    context->deleteObject(keptSchema);
    EXPECT_EQ(kept->inputSchemas().size(), 1);
    EXPECT_EQ(keptSchema->toolConfig(), nullptr);
    context->deleteObject(prompt->arguments().first());
    EXPECT_TRUE(prompt->arguments().isEmpty());

    ASSERT_TRUE(context->save());
    EXPECT_TRUE(doomed->isDetached());
    EXPECT_EQ(doomed->name(), QStringLiteral("doomed"));  // still readable for whoever holds it
    QList<int> rows;  // ToolInSchemaParams: kept's first schema
    for (const char *table : {"ToolsConfig", "ToolInputSchema", "ToolOutputSchema", "ToolInSchemaParams",
                              "ToolOutSchemeParams", "PromptArguments"})
        rows.append(rowCount(QLatin1String(table)));
    EXPECT_EQ(rows, (QList<int>{1, 1, 1, 2, 1, 0}));
}

TEST_F(StoreContextTest, RollbackUndoesDeletesAndMovesBetweenOwners)
{
    ToolsConfig *a = makeTool(QStringLiteral("a"));
    ToolsConfig *b = makeTool(QStringLiteral("b"));
    ASSERT_TRUE(context->save());
    const QList<ToolInputSchema *> aSchemas = a->inputSchemas();
    const QList<ToolInputSchema *> bSchemas = b->inputSchemas();
    ToolOutSchemeParams *outParam = a->outputSchmas().first()->properties().first();

    aSchemas.first()->setToolConfig(b);  // moves it
    EXPECT_EQ(a->inputSchemas().size(), 1);
    EXPECT_EQ(b->inputSchemas().size(), 3);
    outParam->setToolOutputSchema(b->outputSchmas().first());
    EXPECT_TRUE(a->outputSchmas().first()->properties().isEmpty());
    context->deleteObject(b->inputSchemas().first());
    ToolInputSchema *added = ToolsQueryService::createInputSchema(context);
    a->addInputSchemasObject(added);

    context->rollback();
    EXPECT_EQ(a->inputSchemas(), aSchemas);
    EXPECT_EQ(b->inputSchemas(), bSchemas);
    EXPECT_EQ(aSchemas.first()->toolConfig(), a);
    EXPECT_EQ(a->outputSchmas().first()->properties(), QList<ToolOutSchemeParams *>{outParam});
    EXPECT_EQ(b->outputSchmas().first()->properties().size(), 1);
    EXPECT_FALSE(bSchemas.first()->isDeleted());
    EXPECT_TRUE(added->isDetached());
    EXPECT_FALSE(added->properties().first()->context());
    a->addInputSchemasObject(added);  // a record that left the store is not linked back in
    EXPECT_EQ(a->inputSchemas(), aSchemas);
    EXPECT_FALSE(context->hasChanges());
}

TEST_F(StoreContextTest, SiblingsKeepTheirOrderWhenTheListChanges)
{
    PromptConfig *donor = PromptQueryService::createPrompt(context, 0);  // its argument has the lowest key
    PromptConfig *prompt = PromptQueryService::createPrompt(context, 1);
    PromptQueryService::createArgument(context, prompt)->setName(QStringLiteral("second"));
    ASSERT_TRUE(context->save());
    // The first argument goes; the donor's argument joins at the end. The remaining one
    // must move to the front on disk, or the older key would sort first.
    context->deleteObject(prompt->arguments().first());
    PromptArguments *moved = donor->arguments().first();
    moved->setName(QStringLiteral("moved"));
    moved->setPromptConfig(prompt);
    ASSERT_TRUE(context->save());

    reopen();
    const QList<PromptConfig *> prompts = PromptQueryService::fetchPrompts(context).valueOr({});
    ASSERT_EQ(prompts.size(), 2);
    EXPECT_TRUE(prompts[0]->arguments().isEmpty());
    EXPECT_EQ(namesOf(prompts[1]->arguments(), &PromptArguments::name),
              (QStringList{QStringLiteral("second"), QStringLiteral("moved")}));
}

TEST_F(StoreContextTest, TablesLoadLazilyAndRollbackKeepsLaterLoadedChildren)
{
    makeTool(QStringLiteral("t"));
    ASSERT_TRUE(context->save());
    reopen();
    ToolsConfig *tool = context->fetch<ToolsConfig>(FetchRequest::forEntity(StoreEntity::ToolsConfig)).valueOr({}).first();
    EXPECT_FALSE(context->isLoaded(StoreEntity::ToolInputSchema));
    tool->setName(QStringLiteral("edited before the schemas were read"));
    ASSERT_EQ(tool->inputSchemas().size(), 2);  // reads the table now
    EXPECT_FALSE(context->isLoaded(StoreEntity::ToolInSchemaParams));
    context->rollback();
    EXPECT_EQ(tool->name(), QStringLiteral("t"));
    EXPECT_EQ(tool->inputSchemas().size(), 2);
    EXPECT_EQ(tool->inputSchemas().first()->properties().size(), 2);

    (void)ToolsQueryService::fetchTools(context);
    EXPECT_TRUE(context->isLoaded(StoreEntity::ToolOutputSchema));
}

TEST_F(StoreContextTest, FailedSaveWritesNothingAndKeepsChangesPending)
{
    ResourceQueryService::createResourceConfig(context);
    ASSERT_TRUE(context->save());
    StoreTestUtil::refuseInserts(path, QStringLiteral("ToolsConfig"), QStringLiteral("tools are refused"));

    ResourceQueryService::fetchResourceConfigs(context).valueOr({}).first()->setName(QStringLiteral("changed with the tool"));
    ResourceQueryService::createResourceConfig(context);
    makeTool(QStringLiteral("refused"));
    const Result<void> refused = context->save();
    ASSERT_FALSE(refused.ok());
    const AppError &error = refused.error();
    EXPECT_EQ(error.domain, StoreContext::errorDomain);
    EXPECT_TRUE(error.description.contains(QStringLiteral("tools are refused"))) << error.description;
    EXPECT_TRUE(context->hasChanges());
    EXPECT_EQ(rowCount(QStringLiteral("ResourceConfig")), 1);
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("SELECT name FROM ResourceConfig")).toString(),
              QStringLiteral("New Resource"));

    StoreTestUtil::sql(path, QStringLiteral("DROP TRIGGER refuse"));
    const Result<void> saved = context->save();
    ASSERT_TRUE(saved.ok()) << saved.error().description;
    EXPECT_EQ(rowCount(QStringLiteral("ResourceConfig")), 2);
    EXPECT_EQ(rowCount(QStringLiteral("ToolsConfig")), 1);
}

TEST_F(StoreContextTest, UnopenableStoreFailsEveryFetchAndSaveWithAMessage)
{
    path = StoreTestUtil::freshStorePath();
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4096, 'x'));
    }
    reopen();
    ASSERT_TRUE(store->loadError().has_value());
    EXPECT_FALSE(context->isAvailable());

    const Result<QList<ToolsConfig *>> tools = ToolsQueryService::fetchTools(context);
    ASSERT_FALSE(tools.ok());
    EXPECT_EQ(tools.error().code, StoreContext::StoreUnavailable);
    EXPECT_TRUE(tools.error().description.startsWith(QStringLiteral("The configuration store could not be opened: ")));
    EXPECT_FALSE(ServerQueryService::fetchOrCreateServerConfig(context).ok());

    ResourceQueryService::createResourceConfig(context);  // in memory only
    const Result<void> saved = context->save();
    ASSERT_FALSE(saved.ok());
    EXPECT_EQ(saved.error().code, StoreContext::StoreUnavailable);
    EXPECT_TRUE(context->hasChanges());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray(4096, 'x'));  // left as it was
}

TEST_F(StoreContextTest, StoreFromANewerVersionIsNotTouched)
{
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version")).toInt(),
              PersistenceController::schemaVersion);
    StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version = 99"));
    reopen();
    ASSERT_TRUE(store->loadError().has_value());
    EXPECT_TRUE(store->loadError()->contains(QStringLiteral("newer version")));
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version")).toInt(), 99);
}

TEST_F(StoreContextTest, AVersionThreeStoreGainsPromptMessagesAndKeepsItsPrompts)
{
    PromptQueryService::createPrompt(context, 0)->setName(QStringLiteral("kept"));
    ASSERT_TRUE(context->save().ok());
    // The store as version 3 left it: no messages column.
    StoreTestUtil::sql(path, QStringLiteral(R"(ALTER TABLE "PromptConfig" DROP COLUMN "messagesJson")"));
    StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version = 3"));
    const QString columns = QStringLiteral(R"(SELECT count(*) FROM pragma_table_info('PromptConfig') WHERE name = 'messagesJson')");
    ASSERT_EQ(StoreTestUtil::sql(path, columns).toInt(), 0);
    reopen();
    EXPECT_EQ(StoreTestUtil::sql(path, columns).toInt(), 1);
    ASSERT_FALSE(store->loadError()) << *store->loadError();
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("PRAGMA user_version")).toInt(), 4);
    QList<PromptConfig *> prompts = PromptQueryService::fetchPrompts(context).valueOr({});
    ASSERT_EQ(prompts.size(), 1);
    EXPECT_EQ(prompts.first()->messagesJson(), std::nullopt);
    prompts.first()->setMessagesJson(QStringLiteral("[]"));
    ASSERT_TRUE(context->save().ok());
    reopen();
    EXPECT_EQ(PromptQueryService::fetchPrompts(context).valueOr({}).first()->messagesJson(), QStringLiteral("[]"));
}

TEST_F(StoreContextTest, RefreshTurnsOneRecordBack)
{
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

TEST_F(StoreContextTest, EveryChangeIsAnnouncedButEqualValuesAreNoChange)
{
    QSignalSpy spy(context, &StoreContext::objectsDidChange);
    ResourceConfig *resource = context->insert<ResourceConfig>();
    resource->setName(QStringLiteral("x"));
    resource->setName(QStringLiteral("x"));
    EXPECT_EQ(spy.count(), 2);  // the insert and the first edit
    ASSERT_TRUE(context->save());
    resource->setName(QStringLiteral("x"));
    EXPECT_FALSE(context->hasChanges());
    EXPECT_EQ(spy.count(), 3);
    context->deleteObject(resource);
    context->rollback();
    EXPECT_EQ(spy.count(), 5);
}

TEST_F(StoreContextTest, FetchOrCreateServerConfigInsertsWithoutSaving)
{
    EXPECT_EQ(ServerQueryService::fetchServerConfig(context).valueOr(nullptr), nullptr);
    ServerConfig *config = ServerQueryService::fetchOrCreateServerConfig(context).valueOr(nullptr);
    ASSERT_NE(config, nullptr);
    EXPECT_TRUE(config->isInserted());
    EXPECT_EQ(config->port(), 8888);
    EXPECT_EQ(ServerQueryService::fetchOrCreateServerConfig(context).valueOr(nullptr), config);
    EXPECT_EQ(rowCount(QStringLiteral("ServerConfig")), 0);
}

TEST_F(StoreContextTest, SortingIsByCodePoint)
{
    for (const char *name : {"a", "B", "\xF0\x9F\x98\x80", "\xEF\xBC\xA1", "_"})
        ToolsQueryService::createTool(context, 0)->setName(QString::fromUtf8(name));
    ToolsQueryService::createTool(context, 0)->setName(std::nullopt);
    // U+FF21 sorts before U+1F600 by code point, though not by UTF-16 unit.
    EXPECT_EQ(namesOf(ToolsQueryService::fetchTools(context).valueOr({}), &ToolsConfig::name),
              (QStringList{QStringLiteral("<missing>"), QStringLiteral("B"), QStringLiteral("_"), QStringLiteral("a"),
                           QString::fromUtf8("\xEF\xBC\xA1"), QString::fromUtf8("\xF0\x9F\x98\x80")}));

    PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
    PromptArguments *lower = prompt->arguments().first();
    lower->setName(QStringLiteral("a"));
    PromptArguments *upper = PromptQueryService::createArgument(context, prompt);
    upper->setName(QStringLiteral("B"));
    PromptArguments *unnamed = PromptQueryService::createArgument(context, prompt);
    unnamed->setName(std::nullopt);
    unnamed->setRequired(true);
    EXPECT_EQ(PromptQueryService::sortedArguments(prompt), (QList<PromptArguments *>{unnamed, upper, lower}));
    upper->setRequired(true);
    EXPECT_EQ(PromptQueryService::argumentsRequiredFirst(prompt), (QList<PromptArguments *>{unnamed, upper, lower}));
    unnamed->setRequired(false);
    EXPECT_EQ(PromptQueryService::argumentsRequiredFirst(prompt), (QList<PromptArguments *>{upper, unnamed, lower}));
    EXPECT_TRUE(PromptQueryService::hasRequiredArguments(prompt));
    upper->setRequired(false);
    EXPECT_FALSE(PromptQueryService::hasRequiredArguments(prompt));

    // Schemas sort stably on type.
    ToolsConfig *tool = ToolsQueryService::createTool(context, 0);
    QList<ToolOutputSchema *> schemas;
    for (const char *type : {"object", "array", "object"}) {
        schemas.append(ToolsQueryService::createOutputSchema(context));
        schemas.last()->setType(QString::fromLatin1(type));
        tool->addOutputSchmasObject(schemas.last());
    }
    EXPECT_EQ(ToolsQueryService::sortedOutputSchemas(tool),
              (QList<ToolOutputSchema *>{schemas[1], schemas[0], schemas[2]}));
    EXPECT_TRUE(ToolsQueryService::sortedInputSchemas(tool).isEmpty());
}

TEST(StoreReadingRules, Items)
{
    EXPECT_TRUE(ToolsQueryService::hasItems(QStringLiteral("string")));
    for (const std::optional<QString> &none : {std::optional<QString>(QStringLiteral("nullable")),
                                               std::optional<QString>(QStringLiteral("")), std::optional<QString>()})
        EXPECT_FALSE(ToolsQueryService::hasItems(none)) << none.value_or(QStringLiteral("<missing>"));
}

}  // namespace

TEST_F(StoreContextTest, ASecondOpeningOfABusyStoreIsRefusedAndChangesNothing)
{
    makeTool(QStringLiteral("kept"));
    const Result<void> saved = context->save();
    ASSERT_TRUE(saved.ok()) << saved.error().description;

    PersistenceController second(path);
    ASSERT_TRUE(second.loadError().has_value());
    EXPECT_EQ(*second.loadError(), QStringLiteral("it is in use by process %1").arg(QCoreApplication::applicationPid()));
    // Who holds it, for a stdio start that then talks to the holder's server.
    EXPECT_EQ(second.lockHolder(), std::optional<qint64>(QCoreApplication::applicationPid()));
    EXPECT_FALSE(store->lockHolder());
    EXPECT_EQ(rowCount(QStringLiteral("ToolsConfig")), 1);

    // The lock goes with its holder.
    reopen();
    ASSERT_FALSE(store->loadError()) << store->loadError()->toStdString();
    EXPECT_EQ(ToolsQueryService::fetchTools(context).valueOr({}).size(), 1);
}
