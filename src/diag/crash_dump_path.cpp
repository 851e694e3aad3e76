#include "diag/crash_dump_path.h"

#include <iterator>
#include <map>

#include "base/exc.h"
#include "base/format.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/find.h"

namespace crash {

namespace {

class CSystemDumpFolder : public IDumpFolder {
public:
    std::vector<TFile> List(const std::u16string& folder, const std::u16string& mask) override {
        std::vector<TFile> files;
        platform::TFindData data;
        platform::CFindHandle find = platform::FindFirst(JoinDumpPath(folder, mask), data);
        if (!find.IsValid()) return files;  // nothing there, or the folder can't be read
        do {
            // Like the system's search, a folder bearing a dump's name counts
            // (and can't be deleted as a file).
            if (data.name != u"." && data.name != u"..")
                files.push_back({data.lastWriteTime, data.name});
        } while (platform::FindNext(find, data));
        if (platform::GetLastError() != platform::kErrNoMoreFiles) throw CWin32Exc();
        return files;
    }
    bool Delete(const std::u16string& path) override { return platform::FileDelete(path); }
};

}  // namespace

IDumpFolder& SystemDumpFolder() {
    static CSystemDumpFolder folder;
    return folder;
}

std::u16string JoinDumpPath(std::u16string_view folder, std::u16string_view file) {
    std::u16string path(folder);
    if (!path.empty() && path.back() != u'\\' && path.back() != u'/') path += u'\\';
    return path + std::u16string(file);
}

std::u16string NextDumpPath(const std::u16string& folder, const std::u16string& name,
                            const std::u16string& extension, IDumpFolder& dumps) {
    try {
        const std::u16string prefix = name + u"_crash_";
        // Oldest first; files of equal time all stay.
        std::multimap<uint64_t, std::u16string> byAge;
        try {
            for (auto& file : dumps.List(folder, prefix + u"*." + extension))
                byAge.emplace(file.lastWriteTime, std::move(file.name));
        } catch (CExc& e) {
            e.AddContext(u"Unable to enumerate dumps stored in a folder. Folder: [%1]. Dump "
                         u"extension: [%2].",
                         folder, extension);
            throw;
        }

        for (auto it = byAge.begin(); it != byAge.end() && byAge.size() >= kMaxDumps;) {
            const std::u16string path = JoinDumpPath(folder, it->second);
            if (dumps.Delete(path)) {
                GetLog().Info(u"Dump [%1] deleted.", path);
                it = byAge.erase(it);
            } else {
                GetLog().LogException(CWin32Exc(u"Old dump cannot be removed. Dump path: [%1].", path));
                ++it;
            }
        }
        if (byAge.size() >= kMaxDumps)
            throw CExc(u"Cannot cleanup out of date dumps. There are [%1] dumps stored. Maximum "
                       u"allowed dumps number: [%2].",
                       util::ToStrU64(byAge.size()), util::ToStrU64(kMaxDumps));

        for (uint32_t id = 0; id <= kMaxDumpId; ++id) {
            const std::u16string candidate = prefix + util::ToStrU32(id) + u"." + extension;
            bool taken = false;
            for (const auto& entry : byAge) taken = taken || entry.second == candidate;
            if (!taken) return JoinDumpPath(folder, candidate);
        }
        throw CExc(u"All dump identifiers are reserved.");
    } catch (CExc& e) {
        e.AddContext(u"Cannot define the name of the next crash dump. Dumps folder: [%1].", folder);
        throw;
    }
}

}  // namespace crash
