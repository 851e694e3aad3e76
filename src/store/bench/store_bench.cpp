// Benchmark of the index writer: writes N file rows (default ten million)
// through CIndexBase, and the same number of bytes with one large write
// call, in the same folder and the same run, for a few rounds (default 5);
// prints each round and the medians: rows per second and the ratio of the
// two throughputs (target: at least 0.5).
//
//   store_bench <output folder> [rows] [rounds]
//
// POSIX only (getrusage), like the script that builds it.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "base/exc.h"
#include "base/utf.h"
#include "platform/file.h"
#include "store/index_base.h"
#include "store/seq_table.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Names of 12 to 24 units, like those of an ordinary volume: for row i,
// "file_<i>" and then 3 + (that length % 13) copies of a letter picked by
// i's last digit. Made in place from a decimal counter (a few nanoseconds a
// name, against some 16 when formatting i each time), so that the loop
// measures the writer and not the making of names.
class CRowNames {
public:
    // The names of rows 0, 1, 2, ... in turn.
    std::u16string_view Next() {
        if (m_Started) _Increment();
        m_Started = true;
        const size_t head = kPrefix + m_Digits;
        const char16_t letter = static_cast<char16_t>(u'a' + m_Name[head - 1] % 26);
        // Always kMaxTail letters (a fixed count the compiler vectorises);
        // the view ends after 3 + head % 13 of them.
        for (size_t k = 0; k < kMaxTail; ++k) m_Name[head + k] = letter;
        return std::u16string_view(m_Name, head + 3 + head % 13);
    }

private:
    static constexpr size_t kPrefix = 5;  // "file_"
    static constexpr size_t kMaxTail = 15;

    void _Increment() {
        size_t k = kPrefix + m_Digits;
        while (k > kPrefix && m_Name[k - 1] == u'9') m_Name[--k] = u'0';
        if (k > kPrefix) {
            ++m_Name[k - 1];
            return;
        }
        // 9...9 + 1: a leading 1 and one zero more.
        m_Name[kPrefix] = u'1';
        m_Name[kPrefix + m_Digits] = u'0';
        ++m_Digits;
    }

    char16_t m_Name[kPrefix + 20 + kMaxTail] = {u'f', u'i', u'l', u'e', u'_', u'0'};
    size_t m_Digits = 1;
    bool m_Started = false;
};

// Processor time of this process in user and system mode since the last
// call: the writer's own work against the kernel's page cache copies, which
// vary several times over on a shared machine.
class CCpuClock {
public:
    CCpuClock() { _Read(m_User, m_System); }
    std::string Lap() {
        double user = 0, system = 0;
        _Read(user, system);
        char text[64];
        std::snprintf(text, sizeof text, "cpu %.3f s user, %.3f s system", user - m_User, system - m_System);
        m_User = user;
        m_System = system;
        return text;
    }

private:
    static void _Read(double& user, double& system) {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        user = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6;
        system = usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
    }
    double m_User = 0, m_System = 0;
};

// One write call of `size` bytes into a new file `path`, deleted after.
bool WriteOnce(const std::u16string& path, const uint8_t* data, uint64_t size) {
    {
        platform::CHandle out = platform::FileOpen(path, platform::kGenericWrite, platform::kShareRead,
                                                   platform::kCreateAlways, platform::kAttrNormal);
        uint32_t done = 0;
        if (!out.IsValid() || !platform::FileWrite(out.Get(), data, static_cast<uint32_t>(size), &done))
            return false;
    }
    platform::FileDelete(path);
    return true;
}

// Writes the rows through the index writer, Close (combine and rename)
// included; returns the file's size, the file deleted after.
int64_t WriteIndex(const std::u16string& dir, uint64_t rows) {
    indexer::CIndexBase base;
    base.Open(dir, false, u"bench.ifd");
    base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
    base.AddDir(u"", 0, nullptr);
    CRowNames names;
    for (uint64_t i = 0; i < rows; ++i)
        base.AddFile(names.Next(), 0, 0, i * 512, 0x01D9000000000000ull + i, nullptr);
    base.Close();

    const std::u16string ifd = idxdata::JoinPath(dir, u"bench.ifd");
    platform::CHandle in = platform::FileOpen(ifd, platform::kGenericRead, platform::kShareRead,
                                              platform::kOpenExisting, platform::kAttrNormal);
    int64_t bytes = 0;
    if (!in.IsValid() || !platform::FileGetSize(in.Get(), &bytes)) bytes = -1;
    in.Close();
    platform::FileDelete(ifd);
    return bytes;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Rounds of both writes, the order swapped every round: the page cache
// copies of the same write vary several times over on a shared virtual
// machine (how much of the memory it gets the host has to map in first),
// and in a fixed order one write would keep the worse place.
int Run(const std::u16string& dir, uint64_t rows, int rounds) {
    const std::u16string raw = idxdata::JoinPath(dir, u"bench.raw");
    std::vector<uint8_t> block;
    int64_t bytes = 0;
    std::vector<double> indexTimes, rawTimes, ratios;
    CCpuClock cpu;
    for (int round = 0; round < rounds; ++round) {
        double indexSeconds = 0, rawSeconds = 0;
        std::string indexCpu, rawCpu;
        auto timeIndex = [&] {
            cpu.Lap();
            const auto start = std::chrono::steady_clock::now();
            const int64_t size = WriteIndex(dir, rows);
            indexSeconds = Seconds(start);
            indexCpu = cpu.Lap();
            return size;
        };
        auto timeRaw = [&] {
            cpu.Lap();
            const auto start = std::chrono::steady_clock::now();
            const bool ok = WriteOnce(raw, block.data(), static_cast<uint64_t>(bytes));
            rawSeconds = Seconds(start);
            rawCpu = cpu.Lap();
            return ok;
        };
        if (round % 2 == 0) {
            const int64_t size = timeIndex();
            if (round == 0) {
                // The reference's bytes: as many as the index file has.
                if (size <= 0 || size > 0xFFFFFFFFll) {
                    std::fprintf(stderr, "store_bench: cannot size the index file\n");
                    return 1;
                }
                bytes = size;
                block.resize(static_cast<size_t>(bytes));
                for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i * 31);
            }
            if (!timeRaw()) break;
        } else {
            if (!timeRaw()) break;
            timeIndex();
        }
        indexTimes.push_back(indexSeconds);
        rawTimes.push_back(rawSeconds);
        ratios.push_back(rawSeconds / indexSeconds);
        std::printf("round %d%s  index writer %.3f s (%s), one write call %.3f s (%s), ratio %.2f\n", round + 1,
                    round % 2 ? " (reference first)" : "", indexSeconds, indexCpu.c_str(), rawSeconds,
                    rawCpu.c_str(), ratios.back());
    }
    if (ratios.size() != static_cast<size_t>(rounds)) {
        std::fprintf(stderr, "store_bench: the plain write failed\n");
        return 1;
    }
    const double indexSeconds = Median(indexTimes), rawSeconds = Median(rawTimes);
    std::printf("rows                 %llu\n", static_cast<unsigned long long>(rows));
    std::printf("bytes                %lld\n", static_cast<long long>(bytes));
    std::printf("medians of %d rounds\n", rounds);
    std::printf("index writer         %.3f s, %.0f rows/s, %.1f MB/s\n", indexSeconds, rows / indexSeconds,
                bytes / indexSeconds / 1e6);
    std::printf("one write call       %.3f s, %.1f MB/s\n", rawSeconds, bytes / rawSeconds / 1e6);
    std::printf("ratio                %.2f (target 0.50)\n", Median(ratios));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: store_bench <output folder> [rows] [rounds]\n");
        return 2;
    }
    const uint64_t rows = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 10000000ull;
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 5;
    if (rows == 0 || rounds < 1) {
        std::fprintf(stderr, "store_bench: rows and rounds must be at least 1\n");
        return 2;
    }
    try {
        return Run(util::Utf8ToUtf16(argv[1]), rows, rounds);
    } catch (const CExc& e) {
        std::fprintf(stderr, "store_bench failed: %s\n", util::Utf16ToUtf8(e.GetDescription()).c_str());
        return 1;
    }
}
