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
