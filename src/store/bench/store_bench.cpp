// Benchmark of the index writer: writes N file rows (default ten million)
// through CIndexBase, then the same number of bytes with one large write
// call, in the same folder and the same run, and prints rows per second and
// the ratio of the two throughputs (target: at least 0.5).
//
//   store_bench <output folder> [rows]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/exc.h"
#include "base/utf.h"
#include "platform/file.h"
#include "store/index_base.h"
#include "store/seq_table.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Names of 12 to 24 units, like those of an ordinary volume, made in place
// so that the loop measures the writer and not the making of names.
class CRowNames {
public:
    std::u16string_view Next(uint64_t i) {
        m_Name.assign(u"file_");
        char16_t digits[20];
        int n = 0;
        do {
            digits[n++] = static_cast<char16_t>(u'0' + i % 10);
            i /= 10;
        } while (i != 0);
        while (n > 0) m_Name.push_back(digits[--n]);
        m_Name.append(3 + m_Name.size() % 13, static_cast<char16_t>(u'a' + m_Name.back() % 26));
        return m_Name;
    }

private:
    std::u16string m_Name;
};

int Run(const std::u16string& dir, uint64_t rows) {
    // 1. Through the index writer, Close (combine and rename) included.
    const auto start = std::chrono::steady_clock::now();
    indexer::CIndexBase base;
    base.Open(dir, false, u"bench.ifd");
    base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
    base.AddDir(u"", 0, nullptr);
    CRowNames names;
    for (uint64_t i = 0; i < rows; ++i)
        base.AddFile(names.Next(i), 0, 0, i * 512, 0x01D9000000000000ull + i, nullptr);
    base.Close();
    const double indexSeconds = Seconds(start);

    const std::u16string ifd = idxdata::JoinPath(dir, u"bench.ifd");
    platform::CHandle in = platform::FileOpen(ifd, platform::kGenericRead, platform::kShareRead,
                                              platform::kOpenExisting, platform::kAttrNormal);
    int64_t bytes = 0;
    if (!in.IsValid() || !platform::FileGetSize(in.Get(), &bytes) || bytes <= 0 || bytes > 0xFFFFFFFFll) {
        std::fprintf(stderr, "store_bench: cannot size %s\n", util::Utf16ToUtf8(ifd).c_str());
        return 1;
    }
    in.Close();
    platform::FileDelete(ifd);

    // 2. The same bytes, one write call.
    std::vector<uint8_t> block(static_cast<size_t>(bytes));
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i * 31);
    const std::u16string raw = idxdata::JoinPath(dir, u"bench.raw");
    const auto rawStart = std::chrono::steady_clock::now();
    {
        platform::CHandle out = platform::FileOpen(raw, platform::kGenericWrite, platform::kShareRead,
                                                   platform::kCreateAlways, platform::kAttrNormal);
        uint32_t done = 0;
        if (!out.IsValid() || !platform::FileWrite(out.Get(), block.data(), static_cast<uint32_t>(bytes), &done)) {
            std::fprintf(stderr, "store_bench: the plain write failed\n");
            return 1;
        }
    }
    const double rawSeconds = Seconds(rawStart);
    platform::FileDelete(raw);

    const double ratio = rawSeconds / indexSeconds;
    std::printf("rows                 %llu\n", static_cast<unsigned long long>(rows));
    std::printf("bytes                %lld\n", static_cast<long long>(bytes));
    std::printf("index writer         %.3f s, %.0f rows/s, %.1f MB/s\n", indexSeconds, rows / indexSeconds,
                bytes / indexSeconds / 1e6);
    std::printf("one write call       %.3f s, %.1f MB/s\n", rawSeconds, bytes / rawSeconds / 1e6);
    std::printf("ratio                %.2f (target 0.50)\n", ratio);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: store_bench <output folder> [rows]\n");
        return 2;
    }
    const uint64_t rows = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 10000000ull;
    try {
        return Run(util::Utf8ToUtf16(argv[1]), rows);
    } catch (const CExc& e) {
        std::fprintf(stderr, "store_bench failed: %s\n", util::Utf16ToUtf8(e.GetDescription()).c_str());
        return 1;
    }
}
