#pragma once
// catalogue::ReadRunFolder: the output folder of one indexer run: its
// summary.txt (docs/metafile.md, mode EMtfLoad: read only; a ".old" left by
// an interrupted save stands in for it) and the volumes it lists.
//
// The "Volumes" subtree of an optimized run is preferred; a legacy run's
// summary has only the flat "volume.<name>=<file>" attributes.
//
// Throws CExc: the meta-file's own errors for a summary that can't be read;
// "<file> holds no summary of a run: ..." naming what it found instead.

#include <cstdint>
#include <string>
#include <vector>

namespace catalogue {

struct TRunVolume {
    std::u16string mountPoint, dataFile, volumeId;
    bool cluster = false;
};

struct TRunFolder {
    std::u16string dir;
    std::u16string summaryFile;
    std::u16string type;  // the summary's "type" attribute, or empty
    uint64_t summaryTime = 0;  // its last-write time, FILETIME ticks
    std::vector<TRunVolume> volumes;
    // The volume's index file in `dir`.
    std::u16string IndexFile(const TRunVolume& volume) const;
};

TRunFolder ReadRunFolder(const std::u16string& dir);

// The name the catalogue gives a volume: a drive letter as "C:" (summary.txt
// writes "c", "C:" or "C:\"), another mount point without its last "\", a
// volume without one by its data file.
std::u16string VolumeName(const TRunVolume& volume);

// A folder reused from one run to the next may hold a mix of two runs: a
// failed run writes no summary.txt but still replaces the indexes of the
// volumes that succeeded. Throws CExc naming the first file that shows it:
//   "<file> is newer than <summary>: the folder holds two runs";
//   "<summary> names <file>, which is missing";
//   "<file> is not named by <summary>: the folder holds two runs".
void CheckOneRun(const TRunFolder& run);

// The last-write time of a file in FILETIME ticks; throws CExc with the
// system's message ("cannot open X: No such file or directory").
uint64_t FileTime(const std::u16string& file);

}  // namespace catalogue
