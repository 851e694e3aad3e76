// The reading side against damaged files: every truncation of a small valid
// index file and every bit flip in its table headers must end
// in a CExc (never a crash or a read outside the buffer: run under the
// sanitizers), and the reader's own checks give their texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "base/utf.h"
#include "store/index_base.h"
#include "store/index_base_reader.h"
#include "store/store_test_util.h"

using indexer::CIndexBase;
using indexer::CIndexBaseReader;
using namespace store_testing;

namespace {

// A small base with a row in every table (and the index table).
void WriteSmallBase(const CTempDir& dir, const std::u16string& name) {
    CIndexBase base;
    base.Open(dir.Path(), true, name);
    base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
    base.AddOwner(u"S-1-5-32-544", u"BUILTIN", u"Administrators", nullptr);
    base.AddDir(u"", 0, nullptr);
    base.AddDir(u"Users", 0, nullptr);
    base.AddDir(u"Public", 1, nullptr);
    base.AddFile(u"boot.ini", 1, 0, 211, 0x01D0000000000000ull, nullptr);
    base.AddFile(u"a", 0, 2, 0, 0, nullptr);
    base.AddReparse(1, u"All Users", u"C:\\ProgramData", nullptr);
    base.Close();
}

// Everything a consumer would read, so that every check runs.
uint64_t ReadFully(const std::u16string& path) {
    CIndexBaseReader reader;
    reader.Open(path);
    reader.PrepareIdIndexes();
    uint64_t rows = 0;
    rec::CDirRecord d;
    rec::COwnerRecord o;
    for (uint64_t id = 0; id < reader.GetDirCount(); ++id, ++rows) {
        reader.GetDir(id, d);
        reader.GetDirPath(id);
    }
    for (uint64_t id = 0; id < reader.GetOwnerCount(); ++id, ++rows) reader.GetOwner(id, o);
    reader.ForEachFile([&](uint64_t, uint64_t position, const rec::CFileRecord&) {
        rec::CFileRecord again;
        reader.ReadFileAt(position, again);
        ++rows;
    });
    reader.ForEachReparse([&](uint64_t, const rec::CReparseRecord&) { ++rows; });
    reader.GetIndexRowCount();
    return rows;
}

bool ReadFails(const std::u16string& path) {
    try {
        ReadFully(path);
    } catch (const CExc&) {
        return true;
    }
    return false;
}

TEST(IndexBaseReaderDamage, TheValidFileReadsWhole) {
    CTempDir dir;
    WriteSmallBase(dir, u"good.ifd");
    EXPECT_EQ(ReadFully(dir.Path(u"good.ifd")), 3u + 2 + 2 + 1);
}

TEST(IndexBaseReaderDamage, EveryTruncationFails) {
    CTempDir dir;
    WriteSmallBase(dir, u"good.ifd");
    const auto good = ReadAll(dir.Native("good.ifd"));
    for (size_t length = 0; length < good.size(); ++length) {
        WriteAll(dir.Native("cut.ifd"), std::vector<uint8_t>(good.begin(), good.begin() + length));
        EXPECT_TRUE(ReadFails(dir.Path(u"cut.ifd"))) << "a file cut to " << length << " bytes was read";
    }
}

// String lengths are left to the table stream's damage test and the fuzzer.
TEST(IndexBaseReaderDamage, EveryBitFlipInHeadersFails) {
    CTempDir dir;
    WriteSmallBase(dir, u"good.ifd");
    const auto good = ReadAll(dir.Native("good.ifd"));
    std::vector<idxdata::TTableInfo> tables;
    {
        CIndexBaseReader reader;
        reader.Open(dir.Path(u"good.ifd"));
        tables = reader.GetTables();
    }
    ASSERT_EQ(tables.size(), 5u);
    for (const auto& table : tables) {
        for (size_t offset = table.start; offset < table.start + idxdata::TableHeaderSize(table.fieldCount); ++offset) {
            for (int bit = 0; bit < 8; ++bit) {
                auto bytes = good;
                bytes[offset] ^= static_cast<uint8_t>(1 << bit);
                WriteAll(dir.Native("flip.ifd"), bytes);
                EXPECT_TRUE(ReadFails(dir.Path(u"flip.ifd"))) << "bit " << bit << " of byte " << offset;
            }
        }
    }
}

// Texts that name the place: a row running past its table.
TEST(IndexBaseReaderDamage, MessagesNameFileTableAndOffset) {
    CTempDir dir;
    WriteSmallBase(dir, u"good.ifd");
    auto bytes = ReadAll(dir.Native("good.ifd"));
    // The file table's first row is the name "boot.ini" at 46: claim 9 units.
    ASSERT_EQ(idxdata::GetU32(bytes.data() + 46), 8u);
    bytes[46] = 0x40;
    WriteAll(dir.Native("bad.ifd"), bytes);
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"bad.ifd"));
    reader.PrepareIdIndexes();
    EXPECT_CEXC(reader.ForEachFile([](uint64_t, uint64_t, const rec::CFileRecord&) {}),
                EXPECT_EQ(Deepest(e), u"Damaged data file [" + dir.Path(u"bad.ifd") +
                                          u"]: table 1 at 0x0000000000000000, offset 0x000000000000002e: a "
                                          u"string of 64 units runs past the table's end 0x0000000000000080."));
}

// Lookups by id need PrepareIdIndexes, and refuse an id past the table.
TEST(IndexBaseReader, Lookups) {
    CTempDir dir;
    WriteSmallBase(dir, u"good.ifd");
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"good.ifd"));
    EXPECT_ANY_THROW(reader.GetDirIndexById(0));
    reader.PrepareIdIndexes();
    EXPECT_EQ(reader.GetDirIndexById(0), 40u);
    EXPECT_ANY_THROW(reader.GetDirIndexById(3));
    EXPECT_ANY_THROW(reader.GetOwnerIndexById(2));
}

// Bases that are well formed as tables but wrong as an index: directories
// (name, parent) after the root, and a file (parent, owner) if any.
TEST(IndexBaseReader, ContentChecks) {
    const struct {
        const char* what;
        std::vector<std::pair<const char16_t*, uint64_t>> dirs;
        std::optional<std::pair<uint64_t, uint32_t>> file;
        std::u16string expected;  // a part of the deepest message
    } cases[] = {
        {"second unnamed directory", {{u"", 0}}, {}, u"Empty DirName. ID=0x0000000000000001"},
        {"directory parent nowhere", {{u"x", 5}}, {},
         u"row 0x0000000000000001 names the parent directory 0x0000000000000005 of 0x0000000000000002"},
        {"file parent nowhere", {}, {{1, 0}}, u"names the parent directory 0x0000000000000001 of 0x0000000000000001"},
        {"file owner nowhere", {}, {{0, 3}}, u"names the owner 0x0000000000000003 of 0x0000000000000001"},
        {"a loop of parents", {{u"a", 2}, {u"b", 1}}, {}, u"the parents of directory 0x0000000000000001 form a loop"},
    };
    CTempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        {
            CIndexBase base;
            base.Open(dir.Path(), false, u"c.ifd");
            base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
            base.AddDir(u"", 0, nullptr);
            for (const auto& [name, parent] : c.dirs) base.AddDir(name, parent, nullptr);
            if (c.file) base.AddFile(u"f", c.file->second, c.file->first, 0, 0, nullptr);
            base.Close();
        }
        EXPECT_CEXC(ReadFully(dir.Path(u"c.ifd")),
                    EXPECT_NE(Deepest(e).find(c.expected), std::u16string::npos) << util::Utf16ToUtf8(Deepest(e)));
    }
}

// The row limits of PrepareIdIndexes, lowered to the small base's 3
// directories and 2 owners: a count at the limit passes, one over it fails,
// and nothing is prepared on a failure.
TEST(IndexBaseReader, RowLimits) {
    CTempDir dir;
    WriteSmallBase(dir, u"good.ifd");
    const struct {
        uint64_t maxDirs, maxOwners;
        std::u16string expected;  // empty: accepted
    } cases[] = {{3, 2, u""}, {2, 2, u"Too many directories!"}, {3, 1, u"Too many owners!"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.maxDirs) + " " + std::to_string(c.maxOwners));
        CIndexBaseReader reader({c.maxDirs, c.maxOwners});
        reader.Open(dir.Path(u"good.ifd"));
        if (c.expected.empty()) {
            reader.PrepareIdIndexes();
            EXPECT_EQ(reader.GetDirPath(2), u"Users\\Public");
        } else {
            EXPECT_CEXC(reader.PrepareIdIndexes(), EXPECT_NE(Deepest(e).find(c.expected), std::u16string::npos));
            EXPECT_ANY_THROW(reader.GetDirIndexById(0));
        }
    }
}

}  // namespace
