#include "tests/layers/LayerCheck.h"

#include <algorithm>
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

namespace {

// The sub-folder of `layer` a project path lies in: "tools/plugins" for
// "tools/plugins/X.h", the layer itself for a file directly inside it.
std::string subfolderOf(const std::string &layer, const std::string &path)
{
    const size_t slash = path.find('/', layer.size() + 1);
    return slash == std::string::npos ? layer : path.substr(0, slash);
}

// Groups of nodes that reach each other (Tarjan's strongly connected components).
struct Components {
    const std::map<std::string, std::set<std::string>> &edges;
    std::map<std::string, int> index, low;
    std::vector<std::string> stack;
    std::set<std::string> onStack;
    std::vector<std::vector<std::string>> groups;
    int next = 0;

    void visit(const std::string &node)
    {
        index[node] = low[node] = next++;
        stack.push_back(node);
        onStack.insert(node);
        const auto out = edges.find(node);
        if (out != edges.end()) {
            for (const std::string &target : out->second) {
                if (!index.count(target)) {
                    visit(target);
                    low[node] = std::min(low[node], low[target]);
                } else if (onStack.count(target)) {
                    low[node] = std::min(low[node], index[target]);
                }
            }
        }
        if (low[node] != index[node])
            return;
        std::vector<std::string> group;
        std::string member;
        do {
            member = stack.back();
            stack.pop_back();
            onStack.erase(member);
            group.push_back(member);
        } while (member != node);
        if (group.size() > 1) {
            std::sort(group.begin(), group.end());
            groups.push_back(group);
        }
    }
};

}  // namespace

std::vector<std::string> LayerCheck::subfolderCycles(const fs::path &root, const std::set<std::string> &within) const
{
    static const std::regex includeLine(R"re(^\s*#\s*include\s*"([^"]+)")re");
    std::vector<std::string> found;
    for (const auto &[layer, allowed] : m_allowed) {
        if (!within.empty() && !within.count(layer))
            continue;
        const fs::path dir = root / layer;
        if (!fs::is_directory(dir))
            continue;
        std::map<std::string, std::set<std::string>> edges;
        for (const auto &entry : fs::recursive_directory_iterator(dir)) {
            const std::string ext = entry.path().extension().string();
            if (!entry.is_regular_file() || (ext != ".h" && ext != ".cpp" && ext != ".c"))
                continue;
            const std::string file = fs::relative(entry.path(), root).generic_string();
            if (layerOf(file) != layer)
                continue;  // a nested layer is a layer of its own
            const std::string from = subfolderOf(layer, file);
            std::ifstream in(entry.path());
            std::string line;
            while (std::getline(in, line)) {
                std::smatch match;
                if (!std::regex_search(line, match, includeLine))
                    continue;
                const std::string included = match[1];
                if (layerOf(included) != layer || !fs::exists(root / included))
                    continue;
                const std::string to = subfolderOf(layer, included);
                if (to != from)
                    edges[from].insert(to);
            }
        }
        Components components{edges};
        for (const auto &[node, targets] : edges)
            if (!components.index.count(node))
                components.visit(node);
        std::sort(components.groups.begin(), components.groups.end());
        for (const auto &group : components.groups) {
            std::string text;
            for (const std::string &member : group)
                text += (text.empty() ? "" : ", ") + member;
            found.push_back(text + " include each other");
        }
    }
    return found;
}
