// Reparse data: decoding (damaged data fails, never reads outside), the
// buffer that grows on ERROR_MORE_DATA, CheckReparsePoint on real entries,
// and each answer of ClassifySymlink.
#include "walk/reparse_processor.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "testing/log_capture.h"
#include "testing/temp_dir.h"
#include "testing/temp_registry.h"
#include "walk/ff_indexer.h"
#include "walk/walk_test_env.h"

namespace fs = std::filesystem;
using namespace walktest;
using indexer::CFfIndexer;
using indexer::SReparsePointInfo;

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

TEST(DecodeReparseData, ReadsSymlinksAndMountPointsAndRefusesOtherTags) {
    const char16_t* text = nullptr;
    size_t length = 0;
    uint32_t tag = 0;
    auto link = Data(indexer::kReparseTagSymlink, u"\\??\\C:\\x", 4);
    ASSERT_TRUE(indexer::DecodeReparseData(link.data(), link.size(), u"p", text, length, tag));
    EXPECT_EQ(std::u16string(text, length), u"\\??\\C:\\x");
    EXPECT_EQ(tag, indexer::kReparseTagSymlink);
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
    std::vector<TCase> cases;
    cases.push_back({"shorter than the header", {0x0C, 0, 0, 0xA0, 0}});
    cases.push_back({"shorter than the link's fields", std::vector<uint8_t>(good.begin(), good.begin() + 18)});
    auto cut = good;
    cut.pop_back();
    cases.push_back({"name cut short", cut});
    auto far = good;
    far[8] = 0xFE;
    far[9] = 0xFF;
    cases.push_back({"offset past the end", far});
    auto longName = good;
    longName[10] = 0xFF;
    longName[11] = 0xFF;
    cases.push_back({"length past the end", longName});
    auto odd = Data(indexer::kReparseTagSymlink, u"ab", 1);
    cases.push_back({"odd offset", odd});
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
                << U8(e.GetDescription());
        }
        delete[] heap;
    }
}

class ReparseTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(m_Tmp.Native() / "c");
        fs::create_directories(m_Tmp.Native() / "d");
    }
    fs::path C() const { return m_Tmp.Native() / "c"; }

    ngitest::CTempDir m_Tmp;
    ngitest::CTempRegistry m_Registry;
    ngitest::CLogCapture m_Log;
    CTestVolumes m_Volumes{{Volume(u"C:", kVolC, m_Tmp.Native() / "c"),
                            Volume(u"D:", kVolD, m_Tmp.Native() / "d")}};
};

TEST_F(ReparseTest, BufferGrowsFromTheFirst28BytesToTheLengthAsked) {
    const std::string target = (C() / std::string(100, 't')).string();
    ASSERT_EQ(::symlink(target.c_str(), (C() / "l").c_str()), 0);
    indexer::CPeparsePointProcessor processor(u"C:\\l");
    std::u16string substitute;
    uint32_t tag = 0;
    ASSERT_TRUE(processor.Parse(substitute, tag));
    EXPECT_EQ(tag, indexer::kReparseTagSymlink);
    EXPECT_EQ(substitute, u"\\??\\C:\\" + std::u16string(100, u't'));
    // Data: 12 bytes of fields, the substitute ("\??\C:\" and 100 units)
    // and the print name ("C:\" and 100 units).
    EXPECT_EQ(processor.GetBufferSize(), 12u + 2 * 107 + 2 * 103 + 28);
}

TEST_F(ReparseTest, CheckReparsePointTellsLinksFromOtherEntries) {
    ASSERT_EQ(::symlink("x", (C() / "rel").c_str()), 0);
    walktest::WriteFile(C() / "plain", 1);
    CFfIndexer indexer;
    SReparsePointInfo info;
    ASSERT_TRUE(indexer.CheckReparsePoint(u"C:", u"rel", info));
    EXPECT_EQ(info.fullPath, u"C:\\rel");
    EXPECT_EQ(info.substitute, u"x");
    EXPECT_EQ(info.tag, indexer::kReparseTagSymlink);
    // No reparse point, or no entry at all: false; only the first is logged.
    EXPECT_FALSE(indexer.CheckReparsePoint(u"C:", u"plain", info));
    EXPECT_TRUE(m_Log.Contains(u"CPeparsePointProcessor::Parse fail! FSCTL_GET_REPARSE_POINT nonzero exit code!"));
    const size_t lines = m_Log.Lines().size();
    EXPECT_FALSE(indexer.CheckReparsePoint(u"C:", u"gone", info));
    EXPECT_EQ(m_Log.Lines().size(), lines);
}

TEST_F(ReparseTest, ClassifySymlinkAnswers) {
    struct TCase {
        std::u16string substitute;
        bool skipUnc;
        indexer::EReparseClass expected;
    };
    const std::vector<TCase> cases = {
        {u"..\\x", true, indexer::ReparseSkipped},
        {u"\\??\\UNC\\server\\share", true, indexer::ReparseSkippedUnc},
        {u"\\??\\UNC\\server\\share", false, indexer::ReparseSkipped},  // no volume name
        {u"\\??\\D:\\x", true, indexer::ReparseOtherVolume},
        {u"\\??\\c:\\x", true, indexer::ReparseFollow},  // c: and C: are one volume
        {u"\\??\\Q:\\x", true, indexer::ReparseSkipped},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(U8(c.substitute));
        CFfIndexer indexer;
        indexer.SetLogicalVolumePath(u"C:");
        indexer.SetSkipUnc(c.skipUnc);
        EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\l", c.substitute}), c.expected);
    }
    EXPECT_TRUE(m_Log.Contains(u"Symlink [C:\\l] haven`t volume name. Substitute [\\??\\Q:\\x]."));
}

TEST_F(ReparseTest, ALinkMetAgainBelowItselfIsALoop) {
    CFfIndexer indexer;
    indexer.SetLogicalVolumePath(u"C:");
    const std::u16string up = u"\\??\\C:\\a";
    EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\a\\up", up}), indexer::ReparseFollow);
    EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\a\\up\\up", up}),
              indexer::ReparseSkipped);
    EXPECT_TRUE(m_Log.Contains(u"Recursive symlink is found. [C:\\a\\up\\up]."));
    // Another place with the same target is no loop.
    EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\b\\up", up}), indexer::ReparseFollow);
}

}  // namespace
