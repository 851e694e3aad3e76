// Arbitrary bytes as a filter file: the lines are split and normalised, the
// first half of them taken as includes and the rest as excludes of one
// volume, and the tree built from them answers a few lookups. Every step must
// end with a CExc or a result.
#include <cstdint>
#include <string>
#include <vector>

#include "base/exc.h"
#include "inputs/filter_reader.h"
#include "inputs/inc_exc_node.h"
#include "inputs/path_utils.h"

using namespace indexer;

namespace {

// "c:\a\b\" -> "a\b": the volume part and the trailing separator dropped, as
// the volume list does for lines of its volume.
std::u16string Relative(const std::u16string& line) {
    std::u16string rest = line.size() > 3 ? line.substr(3) : std::u16string();
    while (!rest.empty() && rest.back() == u'\\') rest.pop_back();
    return rest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const CFilterReader reader(u"/fuzz", {u"SystemDrive=C:", u"DATA=d:\\data", u"EMPTY="});
    std::vector<std::u16string> lines;
    try {
        reader.ParseFilterText(data, size, lines);
    } catch (const CExc&) {
        return 0;
    }
    std::vector<std::u16string> include, exclude;
    for (size_t i = 0; i < lines.size(); ++i) (i < (lines.size() + 1) / 2 ? include : exclude).push_back(Relative(lines[i]));
    try {
        const CIncExcNode root(include, exclude);
        for (const auto& line : lines) {
            std::vector<TPathPart> parts;
            SplitPath(line, parts);
            IsPathIncluded(parts, root);
        }
        const CIncExcNode* child = nullptr;
        for (const auto& node : root.m_Children) IsItemIncluded(root.m_IncExcFlag, root, u"", node.m_Name, child);
        GetFlagsByReferencesAndName({}, include.empty() ? u"x" : include.front(), root);
    } catch (const CExc&) {
    }
    return 0;
}
