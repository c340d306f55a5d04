#include "tests/layers/LayerCheck.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <unistd.h>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const fs::path &path, const std::string &text)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

}  // namespace

TEST(LayeringTest, NoSourceIncludesAFolderItsTargetDoesNotLink)
{
    const LayerCheck check = LayerCheck::fromText(readFile(KELVARA_LAYERS_FILE));
    // The map is written by the build; a missing or empty one would let anything pass.
    ASSERT_GE(check.layers().size(), 10u);
    EXPECT_TRUE(check.layers().at("engine").empty()) << "the engine links no other layer";
    EXPECT_EQ(check.layers().at("store").count("tools"), 1u);
    EXPECT_EQ(check.layers().at("tools").count("store"), 0u);

    const auto found = check.violations(KELVARA_SOURCE_DIR);
    std::string report;
    for (const auto &line : found)
        report += line + "\n";
    EXPECT_TRUE(found.empty()) << report;
}

TEST(LayeringTest, NoTwoPartsOfALayerIncludeEachOther)
{
    const LayerCheck check = LayerCheck::fromText(readFile(KELVARA_LAYERS_FILE));
    ASSERT_GE(check.layers().size(), 10u);
    const auto found = check.cycles(KELVARA_SOURCE_DIR);
    std::string report;
    for (const auto &line : found)
        report += line + "\n";
    EXPECT_TRUE(found.empty()) << report;
}

TEST(LayeringTest, FindsCyclesBetweenThePartsOfALayerInAPlantedTree)
{
    const fs::path root = fs::temp_directory_path() / ("kelvara-cycles-" + std::to_string(::getpid()));
    fs::remove_all(root);
    // Two parts both ways; only one way; three parts around a loop; the layer's own files
    // and a sub-folder; across layers (not a cycle of parts).
    writeFile(root / "views/app/Shell.cpp", "#include \"views/chat/Chat.h\"\n#include \"views/common/Base.h\"\n");
    writeFile(root / "views/app/Shell.h", "\n");
    writeFile(root / "views/chat/Chat.h", "#include \"views/common/Base.h\"\n");
    writeFile(root / "views/chat/Step.cpp", "#include \"views/chat/Chat.h\"\n#include \"views/app/Shell.h\"\n");
    writeFile(root / "views/common/Base.h", "#include <QWidget>\n");
    writeFile(root / "app/a/A.h", "#include \"app/b/B.h\"\n");
    writeFile(root / "app/b/B.h", "#include \"app/c/C.h\"\n");
    writeFile(root / "app/c/C.h", "#include \"app/a/A.h\"\n#include \"app/Root.h\"\n");
    writeFile(root / "app/Root.h", "\n");
    writeFile(root / "store/Store.cpp", "#include \"store/sub/Part.h\"\n");
    writeFile(root / "store/Store.h", "\n");
    writeFile(root / "store/sub/Part.cpp", "\n#include \"store/Store.h\"\n");
    writeFile(root / "store/sub/Part.h", "\n");
    writeFile(root / "engine/Core.h", "#include \"engine/bridge/Seam.h\"\n");
    writeFile(root / "engine/bridge/Seam.h", "#include \"engine/Core.h\"\n");
    writeFile(root / "tools/plugins/P.cpp", "#include \"tools/scripting/S.h\"\n");
    writeFile(root / "tools/plugins/P.h", "\n");
    writeFile(root / "tools/scripting/S.cpp", "#include \"tools/plugins/P.h\"\n");
    writeFile(root / "tools/scripting/S.h", "\n");

    const LayerCheck check = LayerCheck::fromText("engine:\n"
                                                  "engine/bridge: engine\n"
                                                  "tools: engine engine/bridge\n"
                                                  "store: tools engine engine/bridge\n"
                                                  "app: store tools engine engine/bridge\n"
                                                  "views: app store tools engine engine/bridge\n");
    const std::vector<std::string> expected = {
        "app/a <-> app/b <-> app/c: app/a/A.h:1 includes app/b/B.h; app/b/B.h:1 includes app/c/C.h; "
        "app/c/C.h:1 includes app/a/A.h",
        "store <-> store/sub: store/Store.cpp:1 includes store/sub/Part.h; store/sub/Part.cpp:2 includes store/Store.h",
        "tools/plugins <-> tools/scripting: tools/plugins/P.cpp:1 includes tools/scripting/S.h; "
        "tools/scripting/S.cpp:1 includes tools/plugins/P.h",
        "views/app <-> views/chat: views/app/Shell.cpp:1 includes views/chat/Chat.h; "
        "views/chat/Step.cpp:2 includes views/app/Shell.h",
    };
    EXPECT_EQ(check.cycles(root), expected);
    // A known pair is left out; the others stay.
    const auto withKnown = check.cycles(root, {{"tools/scripting", "tools/plugins"}});
    EXPECT_EQ(withKnown, (std::vector<std::string>{expected[0], expected[1], expected[3]}));
    // A pair known inside a larger cycle does not excuse it.
    EXPECT_EQ(check.cycles(root, {{"app/a", "app/b"}}).size(), 4u);
    fs::remove_all(root);
}

TEST(LayeringTest, FindsUpwardAndSidewaysIncludesInAPlantedTree)
{
    const fs::path root = fs::temp_directory_path() / ("kelvara-layers-" + std::to_string(::getpid()));
    fs::remove_all(root);
    writeFile(root / "engine/Core.h", "#pragma once\n");
    writeFile(root / "engine/Server.cpp", "#include \"engine/Core.h\"\n#include \"engine/bridge/Seam.h\"\n");
    writeFile(root / "engine/bridge/Seam.h", "#include \"engine/Core.h\"\n");
    writeFile(root / "base/Paths.h", "#include <QString>\n#include \"moc_Paths.cpp\"\n");
    writeFile(root / "store/Store.cpp", "#include \"base/Paths.h\"\n  #  include \"app/Shell.h\"\n");
    writeFile(root / "chat/Chat.h", "#include \"store/Store.cpp\"\n#include \"workbench/Editor.h\"\n");
    writeFile(root / "workbench/Editor.h", "#include \"tests/Helper.h\"\n");
    writeFile(root / "tests/Helper.h", "\n");
    writeFile(root / "app/Shell.h", "#include \"chat/Chat.h\"\n#include \"workbench/Editor.h\"\n");

    const LayerCheck check = LayerCheck::fromText("engine:\n"
                                                  "engine/bridge: engine\n"
                                                  "base: engine engine/bridge\n"
                                                  "store: base engine engine/bridge\n"
                                                  "chat: store base engine engine/bridge\n"
                                                  "workbench: store base engine engine/bridge\n"
                                                  "app: chat workbench store base engine engine/bridge\n");
    auto found = check.violations(root);
    std::sort(found.begin(), found.end());
    const std::vector<std::string> expected = {
        "chat/Chat.h:2 includes workbench/Editor.h (workbench is not linked by chat)",
        "engine/Server.cpp:2 includes engine/bridge/Seam.h (engine/bridge is not linked by engine)",
        "store/Store.cpp:2 includes app/Shell.h (app is not linked by store)",
        "workbench/Editor.h:1 includes tests/Helper.h (outside the layers)",
    };
    EXPECT_EQ(found, expected);
    fs::remove_all(root);
}
