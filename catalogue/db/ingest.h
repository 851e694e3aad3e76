#pragma once
// catalogue::Ingest: records one restore point of a machine from the index
// files of one run (docs/catalogue-db.md, "Ingest").
//
// Each volume is compared with that volume's previous restore point: a
// version that did not change only stays open (no write), a changed or
// removed one is closed at the previous point, a new one is inserted. So the
// database grows with change, not with restore points.
//
// Everything happens in one transaction: an index that turns out damaged
// half-way (the file, table and offset in the CExc), a duplicate restore
// point, or a killed process leave the database as it was.
//
// Throws CExc:
//   "machine M already has a restore point taken at T (id N)";
//   "machine M has a later restore point (id N, taken T): restore points of
//    a machine are ingested in the order they were taken".

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "catalogue/db/connection.h"

namespace catalogue {

struct TIngestVolume {
    std::u16string name;       // "C:" as summary.txt names it
    std::u16string indexFile;  // its volume.<X>.ifd
};

struct TIngestRun {
    std::u16string machine;
    uint64_t taken = 0;     // FILETIME ticks
    std::u16string source;  // the run's folder, kept for people
    std::vector<TIngestVolume> volumes;
};

struct TIngestResult {
    int64_t point = 0;
    uint64_t rows = 0;  // entries read: folders, files, links
    uint64_t added = 0, removed = 0, changed = 0;
};

// `progress`, when given, is called with the entries read so far, every
// 65,536 entries.
TIngestResult Ingest(IConnection& db, const TIngestRun& run,
                     const std::function<void(uint64_t rows)>& progress = nullptr);

}  // namespace catalogue
