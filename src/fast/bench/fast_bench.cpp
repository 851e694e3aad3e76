// The fast pipeline's benchmark driver: indexes one NTFS image (the whole
// volume, as "C:") into an index file and reports, on standard error, the
// time from opening the image to the closed index file, the rows written,
// the $MFT size and the peak memory. Used by scripts/bench-fast.sh.
//
// Usage: fast_bench <image> <output folder>
// NGI_BENCH_READ="depth:KiB:async" sets the read-ahead (async 0: the
// synchronous queue); NGI_BENCH_DIRECT=1 reads the image unbuffered.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "base/utf.h"
#include "fast/volume_ntfs_indexer.h"
#include "platform/file.h"
#include "platform/volume_io.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: fast_bench <image> <output folder>\n");
        return 2;
    }
    try {
        const auto start = std::chrono::steady_clock::now();
        platform::CHandle handle = platform::FileOpen(util::Utf8ToUtf16(argv[1]), platform::kGenericRead,
                                                      platform::kShareRead, platform::kOpenExisting, 0);
        if (!handle.IsValid()) throw CExc(u"Cannot open the image.");
        const char* direct = std::getenv("NGI_BENCH_DIRECT");
        if (direct && *direct == '1' && !platform::UseDirectIo(handle.Get(), true))
            throw CExc(u"No direct I/O for the image.");
        indexer::CIndexBase base;
        base.Open(util::Utf8ToUtf16(argv[2]), false, u"volume.C.ifd");
        base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
        indexer::CIndexingVolumeInfo volume;
        volume.m_Name = u"C:";
        indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
        indexer::fast_ntfs_indexer::CVolumeNTFSIndexer indexer;
        if (const char* read = std::getenv("NGI_BENCH_READ")) {
            unsigned depth = 0, kib = 0, async = 1;
            if (std::sscanf(read, "%u:%u:%u", &depth, &kib, &async) < 2) throw CExc(u"NGI_BENCH_READ: depth:KiB:async");
            indexer::CBlockReadAhead::TTuning tuning;
            tuning.depth = depth;
            tuning.requestBytes = kib << 10;
            tuning.async = async != 0;
            indexer.SetReadAhead(tuning);
        }
        indexer.IndexVolume(handle.Get(), volume, u"", root, base);
        const uint64_t files = base.GetFileCount(), dirs = base.GetDirCount();
        base.Close();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        std::fprintf(stderr, "\nbench: seconds %.3f files %llu dirs %llu peak_kib %ld\n", seconds,
                     static_cast<unsigned long long>(files), static_cast<unsigned long long>(dirs),
                     usage.ru_maxrss);
        return 0;
    } catch (const CExc& e) {
        std::fprintf(stderr, "fast_bench: %s\n", util::Utf16ToUtf8(e.GetDescription()).c_str());
        return 1;
    }
}
