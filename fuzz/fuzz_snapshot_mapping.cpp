// Arbitrary bytes as the snapshot mapping XML file: loading it must end
// with a CExc or with its entries, never a crash or a hang.
#include <cstdint>

#include "base/exc.h"
#include "fuzz_input_file.h"
#include "inputs/snapshot_mapping.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ngifuzz::CInputFile input(".mapping.xml");
    const std::u16string name = input.Write(data, size);
    try {
        indexer::CSnapshotMapping mapping;
        mapping.LoadFromFile(name);
        for (const auto& shadow : mapping.m_Shadows) indexer::ParseClusteredFlag(shadow.ShadowMountPointName);
    } catch (const CExc&) {
    }
    return 0;
}
