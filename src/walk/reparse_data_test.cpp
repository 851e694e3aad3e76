// Decoding of reparse data: symbolic links and mount points are read, other
// tags refused, damaged data fails without reading outside its bytes.
#include <gtest/gtest.h>

#include <vector>

#include "base/utf.h"
#include "walk/reparse_processor.h"

namespace {

// Reparse data with the substitute at the given place of the path buffer.
std::vector<uint8_t> Data(uint32_t tag, std::u16string_view substitute, uint16_t offset = 0) {
    const size_t pathBuffer = tag == indexer::kReparseTagSymlink ? 20 : 16;
    std::vector<uint8_t> b(pathBuffer + offset, 0);
    for (char16_t c : substitute) b.insert(b.end(), {static_cast<uint8_t>(c), static_cast<uint8_t>(c >> 8)});
    auto put = [&b](size_t at, uint32_t v, int n) {
        for (int i = 0; i < n; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
    };
    put(0, tag, 4);
    put(4, static_cast<uint32_t>(b.size() - 8), 2);
    put(8, offset, 2);
    put(10, static_cast<uint32_t>(substitute.size() * 2), 2);
    return b;
}

// Symbolic links are read by the walk's tests (FfIndexerTest) through this.
TEST(DecodeReparseData, ReadsMountPointsAndRefusesOtherTags) {
    const char16_t* text = nullptr;
    size_t length = 0;
    uint32_t tag = 0;
    auto mount = Data(indexer::kReparseTagMountPoint, u"\\??\\Volume{x}\\");
    ASSERT_TRUE(indexer::DecodeReparseData(mount.data(), mount.size(), u"p", text, length, tag));
    EXPECT_EQ(std::u16string(text, length), u"\\??\\Volume{x}\\");
    auto dedup = Data(0x80000013, u"whatever");
    EXPECT_FALSE(indexer::DecodeReparseData(dedup.data(), dedup.size(), u"p", text, length, tag));
    EXPECT_EQ(tag, 0x80000013u);
}

TEST(DecodeReparseData, DamagedDataFailsWithoutReadingOutside) {
    const auto good = Data(indexer::kReparseTagSymlink, u"\\??\\C:\\x");
    struct TCase {
        const char* what;
        std::vector<uint8_t> bytes;
    };
    auto with = [&good](size_t at, uint8_t low, uint8_t high) {
        auto b = good;
        b[at] = low;
        b[at + 1] = high;
        return b;
    };
    const std::vector<TCase> cases = {
        {"shorter than the header", {0x0C, 0, 0, 0xA0, 0}},
        {"shorter than the link's fields", std::vector<uint8_t>(good.begin(), good.begin() + 18)},
        {"name cut short", std::vector<uint8_t>(good.begin(), good.end() - 1)},
        {"offset past the end", with(8, 0xFE, 0xFF)},
        {"length past the end", with(10, 0xFF, 0xFF)},
        {"odd offset", Data(indexer::kReparseTagSymlink, u"ab", 1)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        // A copy of exactly the bytes, so that ASan sees any read beyond.
        auto* heap = new uint8_t[c.bytes.size() ? c.bytes.size() : 1];
        std::copy(c.bytes.begin(), c.bytes.end(), heap);
        const char16_t* text = nullptr;
        size_t length = 0;
        uint32_t tag = 0;
        try {
            indexer::DecodeReparseData(heap, c.bytes.size(), u"C:\\l", text, length, tag);
            ADD_FAILURE() << "no exception";
        } catch (const CExc& e) {
            EXPECT_EQ(e.GetDescription().rfind(u"Reparse point [C:\\l] has damaged data: ", 0), 0u)
                << util::Utf16ToUtf8(e.GetDescription());
        }
        delete[] heap;
    }
}

}  // namespace
