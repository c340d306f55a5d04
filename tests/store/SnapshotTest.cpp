#include "store/PromptArgumentSnapshot.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptConfigSnapshot.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "store/ResourceConfigSnapshot.h"
#include "store/ResourceQueryService.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfigSnapshot.h"
#include "tests/store/StoreTestUtil.h"

#include <gtest/gtest.h>

#include <QJsonArray>

namespace {

using SnapshotTest = StoreTest;

// Every variant of json with one key, at any depth (inside the first object of each
// array), removed or given a value of another type; each named by the key's path.
QList<std::pair<QString, QJsonObject>> brokenVariants(const QJsonObject &json)
{
    QList<std::pair<QString, QJsonObject>> variants;
    for (auto it = json.begin(); it != json.end(); ++it) {
        QJsonObject without = json;
        without.remove(it.key());
        QJsonObject retyped = json;
        retyped.insert(it.key(), it.value().isString() ? QJsonValue(42) : QJsonValue(QStringLiteral("wrong")));
        variants.append({QStringLiteral("missing ") + it.key(), without});
        variants.append({QStringLiteral("retyped ") + it.key(), retyped});
        const QJsonArray array = it.value().toArray();
        if (array.isEmpty() || !array.first().isObject())
            continue;
        for (const auto &[name, child] : brokenVariants(array.first().toObject())) {
            QJsonArray changed = array;
            changed.replace(0, child);
            QJsonObject parent = json;
            parent.insert(it.key(), changed);
            variants.append({it.key() + QStringLiteral("[0]: ") + name, parent});
        }
    }
    return variants;
}

// Decoding needs every key, with its type, at every level; gives the number of variants tried.
template <class Snapshot>
qsizetype expectEveryKeyRequired(const QJsonObject &json)
{
    const auto variants = brokenVariants(json);
    for (const auto &[name, variant] : variants)
        EXPECT_FALSE(Snapshot::fromJson(variant).has_value()) << name;
    return variants.size();
}

TEST_F(SnapshotTest, ToolSnapshotFollowsSortedViewsAndRoundTrips)
{
    ToolsConfig *tool = makeTool(QStringLiteral("reader"));
    tool->setTitle(QStringLiteral("not carried"));
    tool->setScriptFileName(QStringLiteral("/tmp/reader.js"));
    tool->inputSchemas().first()->properties().last()->setParameterType(std::nullopt);  // "depth"

    const ToolsConfigSnapshot snapshot = ToolsConfigSnapshot::fromRecord(*tool);
    EXPECT_EQ(snapshot.id, *tool->id());
    EXPECT_EQ(snapshot.handlerName, QString());  // missing reads as ""
    EXPECT_EQ(snapshot.scriptFileName, QStringLiteral("/tmp/reader.js"));
    ASSERT_EQ(snapshot.inputSchemas.size(), 2);
    EXPECT_EQ(snapshot.inputSchemas[0].type, QStringLiteral("array"));
    ASSERT_EQ(snapshot.inputSchemas[1].properties.size(), 2);
    EXPECT_EQ(snapshot.inputSchemas[1].properties[0].parameterName, QStringLiteral("depth"));
    EXPECT_EQ(snapshot.inputSchemas[1].properties[0].parameterType, QString());
    EXPECT_EQ(snapshot.outputSchemas.size(), 1);

    const QJsonObject json = snapshot.toJson();
    EXPECT_EQ(json.keys(), (QStringList{"handlerName", "id", "inputSchemas", "methodName", "name", "outputSchemas",
                                        "pluginName", "scriptFileName", "toolDescription", "toolType"}));
    const QJsonObject output = json.value(QStringLiteral("outputSchemas")).toArray().first().toObject();
    EXPECT_EQ(output.keys(), (QStringList{"id", "properties", "requiredParams", "type"}));
    EXPECT_EQ(output.value(QStringLiteral("properties")).toArray().first().toObject().keys(),
              (QStringList{"defaultValue", "id", "itemType", "items", "parameterDescription", "parameterName",
                           "parameterType"}));
    EXPECT_EQ(ToolsConfigSnapshot::fromJson(json), snapshot);
    EXPECT_GT(expectEveryKeyRequired<ToolsConfigSnapshot>(json), 60);  // every level was visited

    // A record without an id gets a fresh one in each snapshot.
    ToolsConfig *bare = context->insert<ToolsConfig>();
    EXPECT_FALSE(ToolsConfigSnapshot::fromRecord(*bare).id.isNull());
    EXPECT_NE(ToolsConfigSnapshot::fromRecord(*bare).id, ToolsConfigSnapshot::fromRecord(*bare).id);
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

    expectEveryKeyRequired<ResourceConfigSnapshot>(snapshot.toJson());
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
    expectEveryKeyRequired<PromptConfigSnapshot>(json);

    QJsonObject badId = json;
    badId.insert(QStringLiteral("id"), QStringLiteral("not-a-uuid"));
    EXPECT_FALSE(PromptConfigSnapshot::fromJson(badId).has_value());
}

}  // namespace
