#include "store/PersistenceController.h"
#include "store/PromptArgumentSnapshot.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptConfigSnapshot.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "store/ResourceConfigSnapshot.h"
#include "store/ResourceQueryService.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "store/ToolsConfigSnapshot.h"
#include "store/ToolsQueryService.h"
#include "tests/store/StoreTestUtil.h"

#include <gtest/gtest.h>

#include <QJsonArray>

#include <functional>

namespace {

class SnapshotTest : public ::testing::Test {
protected:
    PersistenceController store{StoreTestUtil::freshStorePath()};
    StoreContext *context = store.viewContext();
};

// Every path to a key in a JSON tree, with a way to remove or retype that key.
void forEachKey(const QJsonObject &root,
                const std::function<void(QJsonObject without, QJsonObject retyped, QString key)> &visit)
{
    std::function<void(const QJsonObject &, std::function<QJsonObject(const QJsonObject &)>, const QString &)> walk;
    walk = [&](const QJsonObject &object, std::function<QJsonObject(const QJsonObject &)> rebuild,
               const QString &prefix) {
        for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
            const QString key = it.key();
            QJsonObject without = object;
            without.remove(key);
            QJsonObject retyped = object;
            retyped.insert(key, it.value().isString() ? QJsonValue(42) : QJsonValue(QStringLiteral("wrong")));
            visit(rebuild(without), rebuild(retyped), prefix + key);
            if (it.value().isArray()) {
                const QJsonArray array = it.value().toArray();
                if (!array.isEmpty() && array.first().isObject()) {
                    walk(
                        array.first().toObject(),
                        [=](const QJsonObject &child) {
                            QJsonArray changed = array;
                            changed.replace(0, child);
                            QJsonObject parent = object;
                            parent.insert(key, changed);
                            return rebuild(parent);
                        },
                        prefix + key + QStringLiteral("[0]."));
                }
            }
        }
    };
    walk(
        root, [](const QJsonObject &o) { return o; }, QString());
}

TEST_F(SnapshotTest, ToolSnapshotFollowsSortedViewsAndRoundTrips)
{
    ToolsConfig *tool = ToolsQueryService::createTool(context, 0);
    tool->setName(QStringLiteral("reader"));
    tool->setTitle(QStringLiteral("not carried"));
    tool->setScriptFileName(QStringLiteral("/tmp/reader.js"));
    ToolInputSchema *object = ToolsQueryService::createInputSchema(context);
    object->properties().first()->setParameterName(QStringLiteral("z"));
    ToolInSchemaParams *a = ToolsQueryService::createInSchemaParams(context);
    a->setParameterName(QStringLiteral("a"));
    a->setParameterType(std::nullopt);
    object->addPropertiesObject(a);
    ToolInputSchema *array = ToolsQueryService::createInputSchema(context);
    array->setType(QStringLiteral("array"));
    tool->addInputSchemasObject(object);
    tool->addInputSchemasObject(array);
    tool->addOutputSchmasObject(ToolsQueryService::createOutputSchema(context));

    const ToolsConfigSnapshot snapshot = ToolsConfigSnapshot::fromRecord(*tool);
    EXPECT_EQ(snapshot.id, *tool->id());
    EXPECT_EQ(snapshot.handlerName, QString());  // missing reads as ""
    EXPECT_EQ(snapshot.scriptFileName, QStringLiteral("/tmp/reader.js"));
    ASSERT_EQ(snapshot.inputSchemas.size(), 2);
    EXPECT_EQ(snapshot.inputSchemas[0].type, QStringLiteral("array"));
    ASSERT_EQ(snapshot.inputSchemas[1].properties.size(), 2);
    EXPECT_EQ(snapshot.inputSchemas[1].properties[0].parameterName, QStringLiteral("a"));
    EXPECT_EQ(snapshot.inputSchemas[1].properties[0].parameterType, QString());
    EXPECT_EQ(snapshot.outputSchemas.size(), 1);

    const QJsonObject json = snapshot.toJson();
    EXPECT_EQ(json.keys(), (QStringList{"handlerName", "id", "inputSchemas", "methodName", "name", "outputSchemas",
                                        "pluginName", "scriptFileName", "toolDescription", "toolType"}));
    EXPECT_EQ(json.value(QStringLiteral("inputSchemas")).toArray().first().toObject().keys(),
              (QStringList{"id", "properties", "requiredParams", "type"}));
    EXPECT_EQ(
        json.value(QStringLiteral("inputSchemas")).toArray().first().toObject().value("properties").toArray().isEmpty(),
        false);
    EXPECT_EQ(ToolsConfigSnapshot::fromJson(json), snapshot);

    int checked = 0;
    forEachKey(json, [&](const QJsonObject &without, const QJsonObject &retyped, const QString &key) {
        EXPECT_FALSE(ToolsConfigSnapshot::fromJson(without).has_value()) << "missing " << key.toStdString();
        EXPECT_FALSE(ToolsConfigSnapshot::fromJson(retyped).has_value()) << "retyped " << key.toStdString();
        ++checked;
    });
    EXPECT_GT(checked, 30);  // every level was visited
}

TEST_F(SnapshotTest, MissingIdGetsAFreshOne)
{
    ToolsConfig *tool = context->insert<ToolsConfig>();
    const ToolsConfigSnapshot first = ToolsConfigSnapshot::fromRecord(*tool);
    const ToolsConfigSnapshot second = ToolsConfigSnapshot::fromRecord(*tool);
    EXPECT_FALSE(first.id.isNull());
    EXPECT_NE(first.id, second.id);
    EXPECT_EQ(first.name, QString());
}

TEST_F(SnapshotTest, ResourceSnapshotReadingRules)
{
    ResourceConfig *resource = ResourceQueryService::createResourceConfig(context);
    resource->setAnnPriority(std::nullopt);
    resource->setAnnAudience(std::nullopt);
    resource->setUri(QUrl(QStringLiteral("https://example.org/a%20b?x=1")));
    ResourceConfigSnapshot snapshot = ResourceConfigSnapshot::fromRecord(*resource);
    EXPECT_DOUBLE_EQ(snapshot.annPriority, 0.9);
    EXPECT_EQ(snapshot.annAudience, QString());
    EXPECT_EQ(snapshot.uriString, QStringLiteral("https://example.org/a%20b?x=1"));
    EXPECT_EQ(snapshot.toJson().keys(),
              (QStringList{"annAudience", "annPriority", "contextTags", "id", "mimeType", "name", "relatedResources",
                           "resourceDescription", "type", "uriString"}));
    EXPECT_EQ(ResourceConfigSnapshot::fromJson(snapshot.toJson()), snapshot);
    resource->setUri(std::nullopt);
    EXPECT_EQ(ResourceConfigSnapshot::fromRecord(*resource).uriString, QString());

    forEachKey(snapshot.toJson(), [&](const QJsonObject &without, const QJsonObject &retyped, const QString &key) {
        EXPECT_FALSE(ResourceConfigSnapshot::fromJson(without).has_value()) << key.toStdString();
        EXPECT_FALSE(ResourceConfigSnapshot::fromJson(retyped).has_value()) << key.toStdString();
    });
}

TEST_F(SnapshotTest, PromptSnapshotSortsArgumentsAndKeepsTemplateKey)
{
    PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
    PromptQueryService::createArgument(context, prompt)->setName(QStringLiteral("Alpha"));
    PromptArguments *required = PromptQueryService::createArgument(context, prompt);
    required->setName(QStringLiteral("alpha"));
    required->setRequired(true);
    const PromptConfigSnapshot snapshot = PromptConfigSnapshot::fromRecord(*prompt);
    ASSERT_EQ(snapshot.arguments.size(), 3);
    EXPECT_EQ(snapshot.arguments[0].name, QStringLiteral("Alpha"));
    EXPECT_EQ(snapshot.arguments[2].name, QStringLiteral("alpha"));
    EXPECT_TRUE(snapshot.arguments[2].required);
    const QJsonObject json = snapshot.toJson();
    EXPECT_EQ(json.value(QStringLiteral("template")).toString(), QStringLiteral("Create a text about {topic}"));
    EXPECT_EQ(json.value(QStringLiteral("arguments")).toArray().first().toObject().keys(),
              (QStringList{"id", "info", "name", "required"}));
    EXPECT_EQ(PromptConfigSnapshot::fromJson(json), snapshot);
    forEachKey(json, [&](const QJsonObject &without, const QJsonObject &retyped, const QString &key) {
        EXPECT_FALSE(PromptConfigSnapshot::fromJson(without).has_value()) << key.toStdString();
        EXPECT_FALSE(PromptConfigSnapshot::fromJson(retyped).has_value()) << key.toStdString();
    });

    QJsonObject badId = json;
    badId.insert(QStringLiteral("id"), QStringLiteral("not-a-uuid"));
    EXPECT_FALSE(PromptConfigSnapshot::fromJson(badId).has_value());
}

}  // namespace
