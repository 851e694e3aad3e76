// check FILE: reads every row of every table once and reports what a reader
// must refuse (damage, exit 1) apart from what the format allows but a
// producer may or may not do (notes).

#include <cstdio>

#include "base/format.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/index/volume_index.h"

namespace catalogue {

namespace {

// The first offending row of a kind of note, and how many there are.
struct TNoteCount {
    uint64_t count = 0;
    uint64_t firstRow = 0;
    uint64_t firstValue = 0;
    void Add(uint64_t row, uint64_t value) {
        if (count++ == 0) {
            firstRow = row;
            firstValue = value;
        }
    }
};

std::string Hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

int RunCheck(const TArgs& args, TContext& ctx) {
    const std::u16string fileName = ArgPath(args.positional[0]);
    CVolumeIndex index(fileName);  // chain, headers, directory and owner rows
    const CIfdTables& tables = index.Tables();
    const uint64_t dirCount = index.GetDirCount();
    const uint64_t ownerCount = index.GetOwnerCount();

    TNoteCount ownerless;
    idxdata::CTableStream files = tables.Files();
    while (files.Next()) {
        const uint64_t parent = files.Qword(kFileParent);
        index.CheckParent(files, parent);
        const uint32_t owner = files.Dword(kFileOwner);
        if (owner >= ownerCount) ownerless.Add(files.GetRowId(), owner);
    }
    if (tables.HasReparses()) {
        idxdata::CTableStream reparses = tables.Reparses();
        while (reparses.Next()) {
            const uint64_t parent = reparses.Qword(kReparseParent);
            index.CheckParent(reparses, parent);
        }
    }

    CTextOut& out = ctx.out;
    out << args.positional[0] << ": valid index file, " << tables.GetFileSize() << " bytes, "
        << static_cast<uint64_t>(tables.GetTables().size()) << " tables\n";
    out << "  files           " << tables.GetFileCount() << "\n";
    out << "  directories     " << dirCount << "\n";
    out << "  owners          " << ownerCount << "\n";
    if (tables.HasReparses())
        out << "  reparse points  " << tables.GetReparseCount() << "\n";
    if (tables.HasIndex()) out << "  index table     0\n";
    if (dirCount == 0) out << "note: no directory rows (a run whose filter matched nothing writes none)\n";
    if (index.RootHasName()) out << "note: the root row has a name: '" << index.DirName(0) << "'\n";
    if (ownerless.count)
        out << "note: " << ownerless.count << " file rows name an owner without a row (the first: file row "
            << Hex(ownerless.firstRow) << ", owner " << Hex(ownerless.firstValue)
            << "); the legacy scanner writes no row for nobody\n";
    if (!tables.HasReparses()) out << "note: no reparse point table (the legacy run writes none)\n";
    return 0;
}

}  // namespace catalogue
