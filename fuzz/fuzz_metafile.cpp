// Arbitrary bytes as a meta-file (summary.txt): loaded through the file
// layer, every line parsed, the tree built over the lines, then an attribute
// set and the file saved back. A damaged file ends in a CExc or loads.
#include <cstdint>

#include "base/exc.h"
#include "fuzz_input_file.h"
#include "metafile/mtf_tree.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ngifuzz::CInputFile input(".summary.txt");
    const std::u16string name = input.Write(data, size);
    try {
        const auto file = metafile::CMtfFile::Open(name, metafile::EMtfOpenRW);
        const auto& lines = file->GetFile()->GetLines();
        std::u16string key, value;
        for (int64_t i = 0; i < lines->GetLineCount(); ++i) lines->ParseLine(i, key, value);
        file->CreateSubtree(u"Volumes\\0").SetAttribute(u"Status", u"fuzz");
        file->SetAttribute(u"Result", u"0");
        file->Save();
    } catch (const CExc&) {
    }
    return 0;
}
