#include "EngineTestSupport.h"

#include "engine/MCPToolService.h"
#include "engine/Registry.h"

#include <gtest/gtest.h>

using namespace MCP;

namespace {

using Prompts = Registry<PromptDefinition, &PromptDefinition::name>;

std::vector<std::string> namesOf(const std::vector<PromptDefinition> &prompts)
{
    std::vector<std::string> names;
    for (const PromptDefinition &prompt : prompts)
        names.push_back(prompt.name);
    return names;
}

}  // namespace

TEST(Registry, KeepsOneDefinitionPerKeyInKeyOrder)
{
    Prompts prompts;
    prompts.put({.name = "b"});
    prompts.put({.name = "a", .description = "first"});
    prompts.put({.name = "a", .description = "second"});
    EXPECT_EQ(namesOf(prompts.list()), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(prompts.count(), 2u);
    ASSERT_TRUE(prompts.find("a"));
    EXPECT_EQ(prompts.find("a")->description, "second");
    EXPECT_FALSE(prompts.find("c"));

    prompts.remove("a");
    prompts.remove("c");  // nothing to remove is no error
    EXPECT_EQ(namesOf(prompts.list()), std::vector<std::string>{"b"});
    prompts.clear();
    EXPECT_EQ(prompts.count(), 0u);
    EXPECT_EQ(prompts.withLock([](const auto &items) { return items.size(); }), 0u);
}

// The server keeps its list replies while the revision stays, so every change must move
// it; and the callback runs after the lock is let go, so it may read the registry.
TEST(Registry, EveryChangeMovesTheRevisionBeforeTheCallbackRuns)
{
    Prompts prompts;
    std::vector<std::pair<uint64_t, size_t>> seen;
    prompts.setListChangedCallback([&] { seen.emplace_back(prompts.revision(), prompts.count()); });
    prompts.put({.name = "a"});
    prompts.put({.name = "b"});
    prompts.put({.name = "a"});
    prompts.remove("b");
    prompts.clear();
    EXPECT_EQ(seen, (std::vector<std::pair<uint64_t, size_t>>{{1, 1}, {2, 2}, {3, 2}, {4, 1}, {5, 0}}));

    // Through a main queue, the callback waits for it.
    std::vector<std::function<void()>> queue;
    prompts.setMainQueuePoster([&](std::function<void()> fn) { queue.push_back(std::move(fn)); });
    prompts.put({.name = "c"});
    EXPECT_EQ(seen.size(), 5u);
    ASSERT_EQ(queue.size(), 1u);
    queue.front()();
    EXPECT_EQ(seen.back(), (std::pair<uint64_t, size_t>{6, 1}));
}

// A handler runs outside the registry's lock: one that changes the registry (a tool that
// installs another) must neither block nor lose its result.
TEST(Registry, AToolHandlerMayChangeTheRegistryItRunsFrom)
{
    MCPToolService tools;
    tools.registerTool(EngineTest::makeTextTool("installer", [&](const JSONValue &) -> std::optional<std::string> {
        tools.registerTool(EngineTest::makeTool("installed", nullptr));
        tools.unregisterTool("installer");
        return std::to_string(tools.count());
    }));
    EXPECT_EQ(tools.callTool("installer", JSONValue()).asNumber(), 1.0);
    EXPECT_TRUE(tools.findTool("installed"));
    EXPECT_FALSE(tools.findTool("installer"));
    EXPECT_EQ(tools.callTool("installed", JSONValue()).at("error").asString(), "Tool does not response any JSON object");
}
