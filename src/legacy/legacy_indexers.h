#pragma once
// The indexers of the legacy run, one per file system: the MFT scanner for
// NTFS (IndexVolumeByMft), a plain recursive walk for ReFS
// (IndexVolumeByWalk). Both fill the three tables of a volume, files (1),
// directories (2) and owners (3), each a CSeqTableWriter in the output
// folder. Paths are those of the live volume.
//
// The file filter (CLegacyFilter) works on whole paths by characters: a
// file passes when an include line is a prefix of its lower-cased path and
// no exclude line is; so "c:\data" also excludes "c:\database". Lines are
// the normalised lines of the two filter files (A-Z lower-cased, trailing
// "\"), compared as they stand.
//
// Errors: everything that fails throws (CExc); the run driver logs it per
// volume. The walk takes a folder it can't list as empty, with a log line
// unless the folder is simply gone.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/seq_table.h"

namespace indexer::legacy {

// The tables of one volume, created in this order with table ids 1, 2, 3.
class CLegacyTables {
public:
    explicit CLegacyTables(std::u16string_view outputDirectory);
    idxdata::CSeqTableWriter& Files() { return m_Files; }
    idxdata::CSeqTableWriter& Dirs() { return m_Dirs; }
    idxdata::CSeqTableWriter& Owners() { return m_Owners; }
    // Closes the tables and deletes their files (a volume that failed).
    void Discard();

private:
    idxdata::CSeqTableWriter m_Files;
    idxdata::CSeqTableWriter m_Dirs;
    idxdata::CSeqTableWriter m_Owners;
};

class CLegacyFilter {
public:
    CLegacyFilter(std::vector<std::u16string> include, std::vector<std::u16string> exclude)
        : m_Include(std::move(include)), m_Exclude(std::move(exclude)) {}

    // The file filter: some include line is a prefix of the lower-cased
    // path and no exclude line is.
    bool IsFileAllowedByFilter(std::u16string_view path) const;
    // The volume filter: the mount point less one trailing "\" or "/",
    // lower-cased, equals the first characters of some include line and no
    // exclude line less one trailing separator.
    bool IsVolumeAllowedByFilter(std::u16string_view mountPoint) const;

    const std::vector<std::u16string>& Include() const { return m_Include; }
    const std::vector<std::u16string>& Exclude() const { return m_Exclude; }

private:
    std::vector<std::u16string> m_Include;
    std::vector<std::u16string> m_Exclude;
};

// `mountPoint` without trailing "\" ("C:"). Log "Volume path: [\\.\C:]."
// and the console line "Gathering MFT from disk: [C:]."; then both passes.
void IndexVolumeByMft(CLegacyTables& tables, std::u16string_view mountPoint, const CLegacyFilter& filter);

// The walk for ReFS: every directory gets a row
// (pre-order, the root row 0), directories whose names begin with "." are
// left out, files are filtered by path, owners are the one row "Nobody".
// A directory that is a reparse point gets its row but is not entered: its
// tree is walked where it lies, and a link to an ancestor would never end.
// Logs "Volume: [%1]." and "Processed %1 dirs, %2 files".
void IndexVolumeByWalk(CLegacyTables& tables, std::u16string_view mountPoint, const CLegacyFilter& filter);

}  // namespace indexer::legacy
