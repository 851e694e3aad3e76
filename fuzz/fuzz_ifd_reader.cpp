// Arbitrary bytes as an index file (volume.<X>.ifd): open and check the
// chain of tables, build the id arrays, and walk every file, directory path
// and reparse row. A damaged file must end in a CExc; nothing may be read
// outside its bytes.
#include <cstdint>

#include "base/exc.h"
#include "fuzz_input_file.h"
#include "store/index_base_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ngifuzz::CInputFile input(".ifd");
    const std::u16string name = input.Write(data, size);
    indexer::CIndexBaseReader reader;
    try {
        reader.Open(name);
        reader.PrepareIdIndexes();
        // Parents: their paths, at most a bounded number of rows to keep each
        // input cheap.
        size_t visited = 0;
        reader.ForEachFile([&](uint64_t, uint64_t position, const rec::CFileRecord& file) {
            if (visited++ < 64) {
                reader.GetDirPath(file.m_ParentId);
                rec::CFileRecord again;
                reader.ReadFileAt(position, again);
            }
        });
        reader.ForEachReparse([&](uint64_t, const rec::CReparseRecord&) {});
        if (reader.HasIndexes()) reader.GetIndexRowCount();
    } catch (const CExc&) {
    }
    return 0;
}
