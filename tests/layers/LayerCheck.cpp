#include "tests/layers/LayerCheck.h"

#include <fstream>
#include <regex>
#include <sstream>

namespace fs = std::filesystem;

LayerCheck LayerCheck::fromText(const std::string &text)
{
    LayerCheck check;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const auto colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        auto &allowed = check.m_allowed[line.substr(0, colon)];
        std::istringstream folders(line.substr(colon + 1));
        std::string folder;
        while (folders >> folder)
            allowed.insert(folder);
    }
    return check;
}

std::string LayerCheck::layerOf(const std::string &path) const
{
    std::string best;
    for (const auto &[folder, allowed] : m_allowed) {
        if (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/'
            && folder.size() > best.size())
            best = folder;
    }
    return best;
}

std::vector<std::string> LayerCheck::violations(const fs::path &root) const
{
    static const std::regex includeLine(R"re(^\s*#\s*include\s*"([^"]+)")re");
    std::vector<std::string> found;
    for (const auto &[folder, allowed] : m_allowed) {
        const fs::path dir = root / folder;
        if (!fs::is_directory(dir))
            continue;
        for (const auto &entry : fs::recursive_directory_iterator(dir)) {
            const std::string ext = entry.path().extension().string();
            if (!entry.is_regular_file() || (ext != ".h" && ext != ".cpp" && ext != ".c"))
                continue;
            const std::string file = fs::relative(entry.path(), root).generic_string();
            if (layerOf(file) != folder)
                continue;  // a nested layer (engine/bridge inside engine) is checked on its own
            std::ifstream in(entry.path());
            std::string line;
            for (int number = 1; std::getline(in, line); ++number) {
                std::smatch match;
                if (!std::regex_search(line, match, includeLine))
                    continue;
                const std::string included = match[1];
                if (!fs::exists(root / included))
                    continue;  // a header beside the file, a generated one, or a system one
                const std::string target = layerOf(included);
                if (target == folder || allowed.count(target))
                    continue;
                found.push_back(file + ":" + std::to_string(number) + " includes " + included + " ("
                                + (target.empty() ? std::string("outside the layers")
                                                  : target + " is not linked by " + folder)
                                + ")");
            }
        }
    }
    return found;
}
