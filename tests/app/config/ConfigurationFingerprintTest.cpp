#include "app/config/ConfigurationFingerprint.h"
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

#include <QThread>

namespace {

class ConfigurationFingerprintTest : public StoreTest {};

}  // namespace

// The fingerprint follows what a start would serve, and only that: a later reading of an
// unchanged store (the export stamps times) and a reopened store give the same bytes; each
// kind of record and the server's own row change it.
TEST_F(ConfigurationFingerprintTest, ChangesExactlyWithWhatWouldBeServed)
{
    // Every parameter named, so that the tool exports.
    ToolsConfig *made = makeTool(QStringLiteral("list_things"));
    for (ToolInputSchema *schema : made->inputSchemas())
        for (ToolInSchemaParams *param : schema->properties())
            if (param->parameterName().value_or(QString()).isEmpty())
                param->setParameterName(QStringLiteral("entry"));
    for (ToolOutputSchema *schema : made->outputSchmas())
        for (ToolOutSchemeParams *param : schema->properties())
            param->setParameterName(QStringLiteral("result"));
    ResourceConfig *resource = ResourceQueryService::createResourceConfig(context);
    PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
    ServerConfig *row = ServerQueryService::fetchOrCreateServerConfig(context).valueOr(nullptr);
    ASSERT_TRUE(context->save());

    const QByteArray first = ConfigurationFingerprint::ofStore(context);
    QThread::msleep(5);  // a later export stamps a later time
    EXPECT_EQ(ConfigurationFingerprint::ofStore(context), first);
    reopen();
    EXPECT_EQ(ConfigurationFingerprint::ofStore(context), first);

    resource = ResourceQueryService::fetchResourceConfigs(context).valueOr({}).first();
    prompt = PromptQueryService::fetchPrompts(context).valueOr({}).first();
    row = ServerQueryService::fetchServerConfig(context).valueOr(nullptr);
    ToolsConfig *tool = ToolsQueryService::fetchTools(context).valueOr({}).first();
    const auto changes = [&](const std::function<void()> &edit) {
        edit();
        const QByteArray changed = ConfigurationFingerprint::ofStore(context);
        context->rollback();
        return changed != first && ConfigurationFingerprint::ofStore(context) == first;
    };
    EXPECT_TRUE(changes([&] { tool->setToolDescription(QStringLiteral("Lists things")); }));
    EXPECT_TRUE(changes([&] { tool->inputSchemas().first()->properties().first()->setParameterName(QStringLiteral("where")); }));
    EXPECT_TRUE(changes([&] { resource->setMimeType(QStringLiteral("text/markdown")); }));
    EXPECT_TRUE(changes([&] { prompt->setTemplateText(QStringLiteral("Other {topic}")); }));
    EXPECT_TRUE(changes([&] { row->setPort(9999); }));
    EXPECT_TRUE(changes([&] { row->setServerName(QStringLiteral("Renamed")); }));
    EXPECT_TRUE(changes([&] { context->deleteObject(prompt); }));
}
