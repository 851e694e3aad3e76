#include "catalogue/index/run_folder.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include "base/exc.h"
#include "base/utf.h"
#include "metafile/mtf_file_rw.h"
#include "metafile/mtf_tree.h"

namespace catalogue {

namespace {

namespace fs = std::filesystem;

std::u16string Join(const std::u16string& dir, std::u16string_view name) {
    return (fs::path(dir) / fs::path(name)).u16string();
}

std::u16string Attribute(const metafile::CMtfTreeNode& node, const std::u16string& name) {
    const auto it = node.m_Attributes.find(name);
    return it == node.m_Attributes.end() ? std::u16string() : it->second.first;
}

// What a file that holds no summary holds instead, in a few words.
std::string Found(metafile::CMtfNodesTab& nodes) {
    const metafile::CMtfTreeNode& root = nodes.GetNode(0);
    if (root.m_Attributes.empty() && root.m_Children.empty()) return "nothing";
    std::string text;
    size_t shown = 0;
    for (const auto& [name, value] : root.m_Attributes) {
        if (shown++ == 3) break;
        text += (text.empty() ? "" : ", ") + util::Utf16ToUtf8(name) + "=" + util::Utf16ToUtf8(value.first);
    }
    for (int64_t child : root.m_Children) {
        if (shown++ == 3) break;
        text += (text.empty() ? "" : ", ") + util::Utf16ToUtf8(nodes.GetNode(child).m_Name) + "\\...";
    }
    return text + " (" + std::to_string(root.m_Attributes.size()) + " attributes, " +
           std::to_string(root.m_Children.size()) + " subtrees)";
}

}  // namespace

std::u16string TRunFolder::IndexFile(const TRunVolume& volume) const { return Join(dir, volume.dataFile); }

std::u16string VolumeName(const TRunVolume& volume) {
    std::u16string name = volume.mountPoint;
    while (name.size() > 1 && (name.back() == u'\\' || name.back() == u'/')) name.pop_back();
    if (name.size() == 2 && name[1] == u':') name.pop_back();
    if (name.size() == 1 && ((name[0] >= u'a' && name[0] <= u'z') || (name[0] >= u'A' && name[0] <= u'Z')))
        return std::u16string(1, static_cast<char16_t>(name[0] & ~0x20)) + u":";
    return name.empty() ? volume.dataFile : name;
}

uint64_t FileTime(const std::u16string& file) {
    const std::string native = util::Utf16ToUtf8(file);
    struct stat st {};
    if (stat(native.c_str(), &st) != 0)
        throw CExc(util::Utf8ToUtf16("cannot open " + native + ": " + std::strerror(errno)));
    return (static_cast<uint64_t>(st.st_mtim.tv_sec) + 11644473600ull) * 10000000ull +
           static_cast<uint64_t>(st.st_mtim.tv_nsec) / 100;
}

TRunFolder ReadRunFolder(const std::u16string& dir) {
    TRunFolder run;
    run.dir = dir;
    run.summaryFile = Join(dir, u"summary.txt");
    run.summaryTime = FileTime(run.summaryFile);
    const auto file = metafile::CMtfFile::Open(run.summaryFile, metafile::EMtfLoad);
    metafile::CMtfNodesTab& nodes = *file->GetNodes();
    run.type = Attribute(nodes.GetNode(0), u"type");
    const int64_t list = nodes.FindChild(0, u"Volumes");
    if (list >= 0) {
        for (int64_t child : nodes.GetNode(list).m_Children) {
            const metafile::CMtfTreeNode& node = nodes.GetNode(child);
            run.volumes.push_back({Attribute(node, u"MountPointName"), Attribute(node, u"DataFileName"),
                                   Attribute(node, u"VolumeId"), Attribute(node, u"IsCluster") == u"true"});
        }
    } else if (const int64_t flat = nodes.FindChild(0, u"volume"); flat >= 0) {
        for (const auto& [name, value] : nodes.GetNode(flat).m_Attributes)
            run.volumes.push_back({name, value.first, {}, false});
    }
    if (run.volumes.empty() && run.type.empty())
        throw CExc(util::Utf8ToUtf16(util::Utf16ToUtf8(run.summaryFile) +
                                     " holds no summary of a run: no Volumes, no volume.<name> entries and no type; "
                                     "found " + Found(nodes)));
    return run;
}

void CheckOneRun(const TRunFolder& run) {
    const std::string summary = util::Utf16ToUtf8(run.summaryFile);
    std::set<std::u16string> named;
    for (const auto& volume : run.volumes) {
        const std::u16string file = run.IndexFile(volume);
        named.insert(fs::path(file).filename().u16string());
        std::error_code ec;
        if (!fs::exists(fs::path(file), ec))
            throw CExc(util::Utf8ToUtf16(summary + " names " + util::Utf16ToUtf8(file) +
                                         ", which is missing: the folder does not hold one whole run"));
    }
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(fs::path(run.dir), ec)) {
        const std::u16string name = entry.path().filename().u16string();
        if (name.rfind(u"volume.", 0) != 0 || name.size() < 11 || name.substr(name.size() - 4) != u".ifd") continue;
        const std::string file = entry.path().string();
        if (!named.count(name))
            throw CExc(util::Utf8ToUtf16(file + " is not named by " + summary + ": the folder holds two runs"));
        if (FileTime(entry.path().u16string()) > run.summaryTime)
            throw CExc(util::Utf8ToUtf16(file + " is newer than " + summary + ": the folder holds two runs"));
    }
    if (ec) throw CExc(util::Utf8ToUtf16("cannot list " + util::Utf16ToUtf8(run.dir) + ": " + ec.message()));
}

}  // namespace catalogue
