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

std::string LayerCheck::partOf(const std::string &path, const std::string &layer)
{
    const std::string rest = path.substr(layer.size() + 1);
    const auto slash = rest.find('/');
    return slash == std::string::npos ? layer : layer + "/" + rest.substr(0, slash);
}

void LayerCheck::forEachInclude(
    const fs::path &root,
    const std::function<void(const std::string &, int, const std::string &, const std::string &)> &visit) const
{
    static const std::regex includeLine(R"re(^\s*#\s*include\s*"([^"]+)")re");
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
                visit(file, number, included, folder);
            }
        }
    }
}

std::vector<std::string> LayerCheck::violations(const fs::path &root) const
{
    std::vector<std::string> found;
    forEachInclude(root, [&](const std::string &file, int number, const std::string &included, const std::string &folder) {
        const std::string target = layerOf(included);
        if (target == folder || m_allowed.at(folder).count(target))
            return;
        found.push_back(file + ":" + std::to_string(number) + " includes " + included + " ("
                        + (target.empty() ? std::string("outside the layers") : target + " is not linked by " + folder)
                        + ")");
    });
    return found;
}

std::vector<std::string> LayerCheck::cycles(const fs::path &root, const std::set<Pair> &known) const
{
    // The parts of each layer and, for each step from one part to another, the first
    // include that makes it (files in directory order, so the example is the same each run
    // on one tree; the steps themselves do not depend on it).
    std::map<std::string, std::map<std::string, std::string>> steps;
    forEachInclude(root, [&](const std::string &file, int number, const std::string &included, const std::string &folder) {
        if (layerOf(included) != folder)
            return;
        const std::string from = partOf(file, folder);
        const std::string to = partOf(included, folder);
        if (from == to)
            return;
        std::string &example = steps[from][to];
        if (example.empty())
            example = file + ":" + std::to_string(number) + " includes " + included;
    });

    // Strongly connected parts (Tarjan); parts of different layers never meet.
    std::map<std::string, int> index;
    std::map<std::string, int> lowest;
    std::vector<std::string> stack;
    std::set<std::string> onStack;
    std::vector<std::vector<std::string>> components;
    std::function<void(const std::string &)> visit = [&](const std::string &part) {
        const int order = int(index.size());
        index[part] = lowest[part] = order;
        stack.push_back(part);
        onStack.insert(part);
        for (const auto &[next, example] : steps[part]) {
            if (!index.count(next)) {
                visit(next);
                lowest[part] = std::min(lowest[part], lowest[next]);
            } else if (onStack.count(next)) {
                lowest[part] = std::min(lowest[part], index[next]);
            }
        }
        if (lowest[part] != index[part])
            return;
        std::vector<std::string> component;
        std::string member;
        do {
            member = stack.back();
            stack.pop_back();
            onStack.erase(member);
            component.push_back(member);
        } while (member != part);
        if (component.size() > 1)
            components.push_back(component);
    };
    std::set<std::string> parts;
    for (const auto &[from, targets] : steps) {
        parts.insert(from);
        for (const auto &[to, example] : targets)
            parts.insert(to);
    }
    for (const std::string &part : parts) {
        if (!index.count(part))
            visit(part);
    }

    std::vector<std::string> found;
    for (std::vector<std::string> &component : components) {
        std::sort(component.begin(), component.end());
        if (component.size() == 2
            && (known.count({component[0], component[1]}) || known.count({component[1], component[0]})))
            continue;
        const std::set<std::string> members(component.begin(), component.end());
        std::string line;
        for (const std::string &part : component)
            line += (line.empty() ? "" : " <-> ") + part;
        std::string examples;
        for (const std::string &from : component) {
            for (const auto &[to, example] : steps[from]) {
                if (members.count(to))
                    examples += (examples.empty() ? "" : "; ") + example;
            }
        }
        found.push_back(line + ": " + examples);
    }
    std::sort(found.begin(), found.end());
    return found;
}
