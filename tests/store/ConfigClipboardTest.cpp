#include "store/ConfigClipboard.h"
#include "store/PromptArgumentSnapshot.h"
#include "store/ResourceConfigSnapshot.h"
#include "store/ToolInputSchemaSnapshot.h"
#include "store/ToolsConfigSnapshot.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <limits>

using TestSupport::waitUntil;

namespace {

template <class S>
std::optional<S> loadNow(ConfigClipboard &clipboard, const QString &identifier, bool *answeredLater = nullptr)
{
    bool done = false;
    std::optional<S> result;
    clipboard.load<S>(identifier, [&](std::optional<S> snapshot) {
        result = std::move(snapshot);
        done = true;
    });
    if (answeredLater)
        *answeredLater = !done;
    EXPECT_TRUE(waitUntil([&] { return done; }));
    return result;
}

TEST(ConfigClipboard, HoldsOneSnapshotPerIdentifier)
{
    ConfigClipboard clipboard;
    ToolsConfigSnapshot tool;
    tool.id = QUuid::createUuid();
    tool.name = QStringLiteral("reader");
    ToolInputSchemaSnapshot schema;
    schema.id = QUuid::createUuid();
    schema.type = QStringLiteral("object");

    EXPECT_FALSE(clipboard.has(ConfigClipboard::toolsConfigType));
    ASSERT_TRUE(clipboard.store(tool, ConfigClipboard::toolsConfigType));
    ASSERT_TRUE(clipboard.store(schema, ConfigClipboard::toolInputSchemaType));
    EXPECT_TRUE(clipboard.has(ConfigClipboard::toolsConfigType));
    EXPECT_TRUE(clipboard.has(ConfigClipboard::toolInputSchemaType));

    bool later = false;
    EXPECT_EQ(loadNow<ToolsConfigSnapshot>(clipboard, ConfigClipboard::toolsConfigType, &later), tool);
    EXPECT_TRUE(later);
    EXPECT_EQ(loadNow<ToolInputSchemaSnapshot>(clipboard, ConfigClipboard::toolInputSchemaType), schema);

    ToolsConfigSnapshot newer = tool;
    newer.name = QStringLiteral("writer");
    ASSERT_TRUE(clipboard.store(newer, ConfigClipboard::toolsConfigType));
    EXPECT_EQ(loadNow<ToolsConfigSnapshot>(clipboard, ConfigClipboard::toolsConfigType)->name,
              QStringLiteral("writer"));
    EXPECT_EQ(loadNow<ToolInputSchemaSnapshot>(clipboard, ConfigClipboard::toolInputSchemaType), schema);
}

TEST(ConfigClipboard, NothingWhenEmptyOrUndecodableAndRefusesWhatCannotBeEncoded)
{
    ConfigClipboard clipboard;
    bool later = false;
    EXPECT_FALSE(loadNow<PromptArgumentSnapshot>(clipboard, ConfigClipboard::promptArgumentType, &later).has_value());
    EXPECT_TRUE(later);  // even "nothing" comes later

    PromptArgumentSnapshot argument{QUuid::createUuid(), QStringLiteral("topic"), QStringLiteral("info"), true};
    ASSERT_TRUE(clipboard.store(argument, ConfigClipboard::promptArgumentType));
    // Data that do not decode as the asked type count as nothing.
    EXPECT_FALSE(loadNow<ResourceConfigSnapshot>(clipboard, ConfigClipboard::promptArgumentType).has_value());
    EXPECT_EQ(loadNow<PromptArgumentSnapshot>(clipboard, ConfigClipboard::promptArgumentType), argument);

    ResourceConfigSnapshot resource;
    resource.id = QUuid::createUuid();
    resource.annPriority = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(clipboard.store(resource, ConfigClipboard::resourceConfigType));
    EXPECT_FALSE(clipboard.has(ConfigClipboard::resourceConfigType));
}

}  // namespace
