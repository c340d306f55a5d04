#include "app/config/ConfigClipboard.h"
#include "store/ResourceConfigSnapshot.h"
#include "store/ToolInputSchemaSnapshot.h"
#include "store/ToolsConfigSnapshot.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <limits>

using TestSupport::waitUntil;

namespace {

class ConfigClipboardTest : public ::testing::Test {
protected:
    // Loads and waits for the answer; every answer, even "nothing", comes as a later step.
    template <class S>
    std::optional<S> load(const QString &identifier)
    {
        bool done = false;
        std::optional<S> result;
        clipboard.load<S>(identifier, [&](std::optional<S> snapshot) {
            result = std::move(snapshot);
            done = true;
        });
        EXPECT_FALSE(done) << "answered at once";
        EXPECT_TRUE(waitUntil([&] { return done; }));
        return result;
    }

    ConfigClipboard clipboard;
};

TEST_F(ConfigClipboardTest, HoldsOneSnapshotPerIdentifier)
{
    ToolsConfigSnapshot tool;
    tool.id = QUuid::createUuid();
    tool.name = QStringLiteral("reader");
    ToolInputSchemaSnapshot schema;
    schema.id = QUuid::createUuid();
    schema.type = QStringLiteral("object");

    EXPECT_FALSE(clipboard.has(ConfigClipboard::toolsConfigType));
    EXPECT_FALSE(load<ToolsConfigSnapshot>(ConfigClipboard::toolsConfigType).has_value());
    ASSERT_TRUE(clipboard.store(tool, ConfigClipboard::toolsConfigType));
    ASSERT_TRUE(clipboard.store(schema, ConfigClipboard::toolInputSchemaType));
    EXPECT_TRUE(clipboard.has(ConfigClipboard::toolsConfigType));
    EXPECT_TRUE(clipboard.has(ConfigClipboard::toolInputSchemaType));
    EXPECT_EQ(load<ToolsConfigSnapshot>(ConfigClipboard::toolsConfigType), tool);
    EXPECT_EQ(load<ToolInputSchemaSnapshot>(ConfigClipboard::toolInputSchemaType), schema);

    ToolsConfigSnapshot newer = tool;
    newer.name = QStringLiteral("writer");
    ASSERT_TRUE(clipboard.store(newer, ConfigClipboard::toolsConfigType));
    EXPECT_EQ(load<ToolsConfigSnapshot>(ConfigClipboard::toolsConfigType), newer);
    EXPECT_EQ(load<ToolInputSchemaSnapshot>(ConfigClipboard::toolInputSchemaType), schema);
    // Data that do not decode as the asked type count as nothing.
    EXPECT_FALSE(load<ResourceConfigSnapshot>(ConfigClipboard::toolInputSchemaType).has_value());
}

TEST_F(ConfigClipboardTest, RefusesWhatCannotBeEncoded)
{
    ResourceConfigSnapshot resource;
    resource.id = QUuid::createUuid();
    resource.annPriority = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(clipboard.store(resource, ConfigClipboard::resourceConfigType));
    EXPECT_FALSE(clipboard.has(ConfigClipboard::resourceConfigType));
}

}  // namespace
