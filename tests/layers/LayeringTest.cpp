#include "tests/layers/LayerCheck.h"

#include <gtest/gtest.h>

#include <algorithm>
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

TEST(LayeringTest, NoTwoSubfoldersOfALayerIncludeEachOther)
{
    const LayerCheck check = LayerCheck::fromText(readFile(KELVARA_LAYERS_FILE));
    // The screens' folders still lean on views/app and it on them; they are sorted out apart.
    std::set<std::string> layers;
    for (const auto &[folder, allowed] : check.layers())
        if (folder != "views")
            layers.insert(folder);
    ASSERT_TRUE(layers.count("tools"));
    const auto found = check.subfolderCycles(KELVARA_SOURCE_DIR, layers);
    std::string report;
    for (const auto &line : found)
        report += line + "\n";
    EXPECT_TRUE(found.empty()) << report;
}

TEST(LayeringTest, FindsSubfoldersThatIncludeEachOtherInAPlantedTree)
{
    const fs::path root = fs::temp_directory_path() / ("kelvara-cycles-" + std::to_string(::getpid()));
    fs::remove_all(root);
    // plugins <-> scripting directly; a -> b -> c -> a round a circle; router -> plugins only.
    writeFile(root / "tools/plugins/Controller.h", "#include \"tools/scripting/Runner.h\"\n");
    writeFile(root / "tools/scripting/Runner.h", "#include \"tools/plugins/Controller.h\"\n#include \"tools/Top.h\"\n");
    writeFile(root / "tools/router/Router.cpp", "#include \"tools/plugins/Controller.h\"\n#include \"tools/Top.h\"\n");
    writeFile(root / "tools/Top.h", "#include <QString>\n");
    writeFile(root / "tools/a/A.h", "#include \"tools/b/B.h\"\n");
    writeFile(root / "tools/b/B.h", "#include \"tools/c/C.h\"\n#include \"tools/b/Own.h\"\n");
    writeFile(root / "tools/b/Own.h", "\n");
    writeFile(root / "tools/c/C.h", "#include \"tools/a/A.h\"\n#include \"tools/missing/Gone.h\"\n");
    // Another layer's folders are not this layer's sub-folders.
    writeFile(root / "store/x/X.h", "#include \"tools/plugins/Controller.h\"\n");
    writeFile(root / "store/y/Y.h", "#include \"store/x/X.h\"\n");

    const LayerCheck check = LayerCheck::fromText("tools:\nstore: tools\n");
    const std::vector<std::string> expected = {
        "tools/a, tools/b, tools/c include each other",
        "tools/plugins, tools/scripting include each other",
    };
    EXPECT_EQ(check.subfolderCycles(root), expected);
    EXPECT_TRUE(check.subfolderCycles(root, {"store"}).empty());
    fs::remove_all(root);
}
