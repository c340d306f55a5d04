#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

// Finds includes that cross the layers the wrong way: from a layer folder to a project folder
// that its target does not link. The allowed folders come from the build (layers.txt, one
// line "folder: other other ..." per layer).
class LayerCheck {
public:
    static LayerCheck fromText(const std::string &text);

    // One line per offending include: "file:line includes path (folder is not linked by X)".
    std::vector<std::string> violations(const std::filesystem::path &root) const;

    // Sub-folders of one layer that include each other, directly or round a circle (the
    // layer's own top folder counts as one of them): one line per group, "tools/plugins,
    // tools/scripting include each other". Only the layers whose folder is in `within`, or
    // all when it is empty.
    std::vector<std::string> subfolderCycles(const std::filesystem::path &root,
                                             const std::set<std::string> &within = {}) const;

    const std::map<std::string, std::set<std::string>> &layers() const { return m_allowed; }

private:
    // The layer folder a project path belongs to: the longest layer folder that prefixes it.
    std::string layerOf(const std::string &path) const;

    std::map<std::string, std::set<std::string>> m_allowed;
};
