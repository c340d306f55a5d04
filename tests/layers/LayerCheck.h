#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Finds includes that cross the layers the wrong way: from a layer folder to a project folder
// that its target does not link. The allowed folders come from the build (layers.txt, one
// line "folder: other other ..." per layer).
//
// Inside one layer it finds cycles between its parts: each sub-folder is a part, and the
// files directly in the layer folder are one more. Parts that include each other, directly
// or around a longer loop, can only be understood and changed together.
class LayerCheck {
public:
    using Pair = std::pair<std::string, std::string>;

    static LayerCheck fromText(const std::string &text);

    // One line per offending include: "file:line includes path (folder is not linked by X)".
    std::vector<std::string> violations(const std::filesystem::path &root) const;

    // One line per cycle: its parts, then one include for each step between them,
    // "a/x <-> a/y: a/x/F.cpp:3 includes a/y/G.h; a/y/G.cpp:7 includes a/x/F.h". A cycle of
    // exactly the two parts of a known pair is left out.
    std::vector<std::string> cycles(const std::filesystem::path &root, const std::set<Pair> &known = {}) const;

    const std::map<std::string, std::set<std::string>> &layers() const { return m_allowed; }

private:
    // The layer folder a project path belongs to: the longest layer folder that prefixes it.
    std::string layerOf(const std::string &path) const;
    // The part of its layer a project path lies in: the layer folder and the first folder
    // below it, or the layer folder itself for its own files.
    static std::string partOf(const std::string &path, const std::string &layer);
    // Calls visit(file, line, included, layer) for every include of a project file from the
    // sources of every layer.
    void forEachInclude(const std::filesystem::path &root,
                        const std::function<void(const std::string &, int, const std::string &,
                                                 const std::string &)> &visit) const;

    std::map<std::string, std::set<std::string>> m_allowed;
};
