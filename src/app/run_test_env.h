#pragma once
// Tests only (POSIX): an instance folder as the backup system lays it out
// (the built program with its filter files, snapshot mapping and a registry
// file that holds the volume table) and runs of the program in it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/utf.h"
#include "store/index_base_reader.h"
#include "testing/temp_dir.h"
#include "walk/walk_test_env.h"

namespace runtest {

namespace fs = std::filesystem;
using Lines = std::set<std::string>;

inline constexpr char kGuidC[] = "0000000c-0000-0000-0000-00000000000c";
inline constexpr char kGuidD[] = "0000000d-0000-0000-0000-00000000000d";

inline std::string ReadBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteBytes(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// UTF-8 text as UTF-16LE, after its mark unless `mark` is false.
inline std::string Utf16(const std::string& text, bool mark = true) {
    std::string bytes = mark ? "\xFF\xFE" : "";
    for (char16_t c : util::Utf8ToUtf16(text)) bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
    return bytes;
}

// UTF-16LE (after its mark) or UTF-8 text as UTF-8.
inline std::string TextOf(const fs::path& path) {
    const std::string bytes = ReadBytes(path);
    if (bytes.size() < 2 || bytes[0] != '\xFF' || bytes[1] != '\xFE') return bytes;
    std::u16string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
        text += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) | (static_cast<uint8_t>(bytes[i + 1]) << 8));
    return util::Utf16ToUtf8(text);
}

// Every volume.*.ifd in `folder` read whole by the index reader: a line for
// each one refused, with the reader's message.
inline std::string RefusedIndexes(const fs::path& folder) {
    std::string refused;
    std::error_code error;
    for (const auto& e : fs::directory_iterator(folder, error)) {
        const std::string name = e.path().filename().string();
        if (name.rfind("volume.", 0) != 0 || e.path().extension() != ".ifd") continue;
        try {
            walktest::DecodeIndex(e.path().u16string());
        } catch (const CExc& failure) {
            refused += name + ": " + util::Utf16ToUtf8(failure.GetDescription()) + "\n";
        }
    }
    return refused;
}

// The rows of an index file (walktest::DecodeIndex), or "no index".
inline Lines Rows(const fs::path& file) {
    if (!fs::exists(file)) return {"no index"};
    return walktest::DecodeIndex(file.u16string());
}

// "\\?\Volume{<id>}\" of a test volume.
inline std::string VolumeName(const std::string& id) { return "\\\\?\\Volume{" + id + "}\\"; }

struct TVolume {
    std::string mountPoint;  // "C:"
    std::string guid;        // kGuidC
    fs::path folder;
    fs::path device;         // empty when none
};

struct TShadow {
    std::string name;
    fs::path device, folder;
};

class CInstance {
public:
    CInstance() {
        fs::create_directories(Bin());
        // A copy, not a link: the program finds its inputs beside its own file.
        const fs::path built = fs::read_symlink("/proc/self/exe").parent_path() / "NorvaGuestIndexer";
        fs::copy_file(built, Bin() / "NorvaGuestIndexer");
        fs::create_directories(m_Dir.Native() / "locks");
        SetVolumes({}, {});
        Filters({}, {});
    }

    fs::path Root() const { return m_Dir.Native(); }
    fs::path Bin() const { return m_Dir.Native() / "bin"; }
    fs::path Out() const { return m_Dir.Native() / "out"; }
    fs::path Logs() const { return m_Dir.Native() / "logs"; }
    // The folder of volume C: that UseC() sets up.
    fs::path C() const { return m_Dir.Native() / "c"; }

    // The usual instance: volume C: over the folder C() (made), no shadow,
    // the include lines given and no exclude.
    void UseC(const std::vector<std::string>& include = {"C:\\"}) {
        fs::create_directories(C());
        SetVolumes({{"C:", kGuidC, C(), {}}}, {});
        Filters(include, {});
    }

    // Lines of the two filter files: UTF-16LE with its mark, CR LF.
    void Filters(const std::vector<std::string>& include, const std::vector<std::string>& exclude) {
        std::string inc, exc;
        for (const auto& line : include) inc += line + "\r\n";
        for (const auto& line : exclude) exc += line + "\r\n";
        WriteBytes(Bin() / "NorvaGuestIndexer.inc.filter", Utf16(inc));
        WriteBytes(Bin() / "NorvaGuestIndexer.exc.filter", Utf16(exc));
    }

    // File system names the volume table sets, by mount point ("D:" "ReFS");
    // other volumes take theirs from their device or mount.
    std::map<std::string, std::string> FileSystems;

    void SetVolumes(const std::vector<TVolume>& volumes, const std::vector<TShadow>& shadows) {
        std::string text = "Windows Registry Editor Version 5.00\r\n\r\n";
        for (const auto& v : volumes) {
            text += "[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\" + v.mountPoint.substr(0, 1) + "]\r\n";
            text += "\"MountPoints\"=\"" + v.mountPoint + "\"\r\n\"VolumeName\"=\"{" + v.guid + "}\"\r\n";
            text += "\"Folder\"=\"" + v.folder.string() + "\"\r\n";
            if (!v.device.empty()) text += "\"Device\"=\"" + v.device.string() + "\"\r\n";
            if (const auto fs = FileSystems.find(v.mountPoint); fs != FileSystems.end())
                text += "\"FileSystem\"=\"" + fs->second + "\"\r\n";
            text += "\r\n";
        }
        int n = 0;
        for (const auto& s : shadows) {
            text += "[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Shadows\\S" + std::to_string(n++) + "]\r\n";
            text += "\"Name\"=\"" + s.name + "\"\r\n";
            if (!s.device.empty()) text += "\"Device\"=\"" + s.device.string() + "\"\r\n";
            if (!s.folder.empty()) text += "\"Folder\"=\"" + s.folder.string() + "\"\r\n";
            text += "\r\n";
        }
        WriteBytes(Root() / "registry.reg", text);
    }

    // Entries: volume GUID name and shadow name.
    void Mapping(const std::vector<std::pair<std::string, std::string>>& entries) {
        std::string xml = "<?xml version=\"1.0\"?>\n<ShadowsList>\n";
        for (const auto& [volume, shadow] : entries)
            xml += "  <Shadow><OriginalVolumeGuidName>" + volume + "</OriginalVolumeGuidName><ShadowMountPointName>" +
                   shadow + "</ShadowMountPointName></Shadow>\n";
        WriteBytes(Bin() / "NorvaGuestIndexer.SnapshotMapping.xml", xml + "</ShadowsList>\n");
    }

    // The run mode the command line gives: "-opt yes" (the optimized run) or
    // "" (the legacy run).
    std::string Mode = "-opt yes";
    // A command put in front of the program ("timeout --foreground -s KILL 0.1").
    std::string Launcher;

    // Runs "<Mode> [extra] -log <logs> <out>" (Out() unless `out` is given);
    // the exit code. Success must leave only indexes the reader takes whole.
    int Run(const std::string& extra = {}, const fs::path& out = {}) {
        const fs::path to = out.empty() ? Out() : out;
        const std::string command = "NGI_REGISTRY_FILE=\"" + (Root() / "registry.reg").string() + "\" NGI_LOCK_DIR=\"" +
                                    (Root() / "locks").string() + "\" " + Launcher + " \"" +
                                    (Bin() / "NorvaGuestIndexer").string() + "\" " + Mode + " " + extra + " -log \"" +
                                    Logs().string() + "\" \"" + to.string() + "\" >\"" + (Root() / "stdout").string() +
                                    "\" 2>\"" + (Root() / "stderr").string() + "\"";
        const int status = std::system(command.c_str());
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (code == 0) {
            const std::string refused = RefusedIndexes(to);
            if (!refused.empty()) ADD_FAILURE() << "exit 0 left indexes the reader refuses:\n" << refused;
        }
        return code;
    }

    std::string Output() const { return ReadBytes(Root() / "stdout") + ReadBytes(Root() / "stderr"); }

    // The text of the log files of the run (one a day).
    std::string LogText() const {
        std::string text;
        if (!fs::exists(Logs())) return text;
        for (const auto& e : fs::directory_iterator(Logs())) text += TextOf(e.path());
        return text;
    }

private:
    ngitest::CTempDir m_Dir;
};

}  // namespace runtest
