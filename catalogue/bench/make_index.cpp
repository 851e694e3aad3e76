// catalogue_make_index OUTDIR FILES DIRS: writes OUTDIR\volume.B_.ifd
// through CIndexBase with FILES file rows spread evenly over DIRS folders
// (three levels deep), names like a real volume's ("report_000123.docx").
// For scripts/bench-catalogue.sh only.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/exc.h"
#include "base/utf.h"
#include "store/index_base.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "Usage: catalogue_make_index OUTDIR FILES DIRS\n");
        return 2;
    }
    const uint64_t files = std::strtoull(argv[2], nullptr, 10);
    const uint64_t dirs = std::max<uint64_t>(1, std::strtoull(argv[3], nullptr, 10));
    static const char16_t* kExt[] = {u".docx", u".txt", u".dll", u".jpg", u".log", u".exe", u".xml", u".dat"};
    try {
        indexer::CIndexBase base;
        base.Open(util::Utf8ToUtf16(argv[1]), false, u"volume.B_.ifd");
        base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
        base.AddOwner(u"S-1-5-32-544", u"Administrators", u"BUILTIN", nullptr);
        base.AddDir(u"", 0, nullptr);
        // Folder i > 0 hangs under folder (i - 1) / 16: a tree of fan-out 16.
        for (uint64_t i = 1; i < dirs; ++i)
            base.AddDir(u"folder_" + util::Utf8ToUtf16(std::to_string(i)), (i - 1) / 16, nullptr);
        const uint64_t perDir = (files + dirs - 1) / dirs;
        std::u16string name;
        for (uint64_t i = 0; i < files; ++i) {
            name = u"file_" + util::Utf8ToUtf16(std::to_string(i)) + kExt[i % 8];
            base.AddFile(name, static_cast<uint32_t>(i & 1), i / perDir, i * 37 % 100000,
                         132000000000000000ull + i * 10000000ull, nullptr);
        }
        base.Close();
    } catch (const CExc& e) {
        std::fprintf(stderr, "%s\n", util::Utf16ToUtf8(e.GetDescription()).c_str());
        return 1;
    }
    return 0;
}
