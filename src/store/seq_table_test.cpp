// Table files: the layout of a table, the combiner's chain, and the sweep of
// lost temporary files.
#include <gtest/gtest.h>

#include "store/buff_file_reader.h"
#include "store/seq_table.h"
#include "store/seq_table_reader.h"
#include "store/store_test_util.h"

using namespace idxdata;
using namespace store_testing;

namespace {

std::filesystem::path Native(const std::u16string& name) {
    std::u16string n = name;
    std::replace(n.begin(), n.end(), u'\\', u'/');
    return std::filesystem::path(n);
}

// "ifd", one to four hexadecimal digits, ".tmp".
bool IsTempName(const std::string& name) {
    if (name.size() < 9 || name.size() > 11 || name.rfind("ifd", 0) != 0) return false;
    if (name.substr(name.size() - 4) != ".tmp") return false;
    const std::string digits = name.substr(3, name.size() - 7);
    // Windows writes the number in upper-case hexadecimal, Wine in lower case.
    return digits.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
}

rec::CDirRecord Dir(std::u16string name, uint64_t parent) {
    rec::CDirRecord d;
    d.m_Name = std::move(name);
    d.m_ParentId = parent;
    return d;
}

TEST(SeqTable, EmptyTwoFieldTableIs40Bytes) {
    CTempDir dir;
    std::u16string name;
    {
        CSeqTableWriter t(dir.Path(), TableDirs, std::make_shared<rec::CDirRecord>());
        name = t.GetFileName();
        EXPECT_TRUE(IsTempName(Native(name).filename().string())) << Native(name);
        EXPECT_NE(CSeqTableWriter::GenerateTempFileName(dir.Path()), name);  // names are unique
    }
    const auto bytes = ReadAll(Native(name));
    const std::vector<uint8_t> expected = {'T', 'B', 'L', 'X', 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                           2, 0, 0, 0, 2, 0, 0, 0, 2, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(bytes, expected);
}

// Three tables of sizes a, b, c: next offsets a, a+b, 0 at 8, a+8, a+b+8.
TEST(SeqTable, CombineChainsTablesAndDeletesTheParts) {
    CTempDir dir;
    std::list<std::u16string> list;
    std::vector<std::vector<uint8_t>> parts;
    for (int t = 0; t < 3; ++t) {
        CSeqTableWriter table(dir.Path(), TableDirs, std::make_shared<rec::CDirRecord>());
        for (int r = 0; r < t * 2; ++r) table.WriteRecord(Dir(std::u16string(r + 1, u'x'), 0));
        AddToCombine(list, table);
        parts.push_back(ReadAll(Native(table.GetFileName())));
    }
    const uint64_t a = parts[0].size(), b = parts[1].size(), c = parts[2].size();
    CombineTables(list, dir.Path(u"all.dat"));
    const auto all = ReadAll(dir.Native("all.dat"));
    ASSERT_EQ(all.size(), a + b + c);
    EXPECT_EQ(U64At(all, 8), a);
    EXPECT_EQ(U64At(all, a + 8), a + b);
    EXPECT_EQ(U64At(all, a + b + 8), 0u);
    EXPECT_EQ(U64At(all, a + b + 32), 4u);  // row counts
    EXPECT_EQ(dir.List(), std::vector<std::string>{"all.dat"});
    EXPECT_ANY_THROW(CombineTables({}, dir.Path(u"none.dat")));
}

TEST(SeqTable, RemoveLostTempFilesDeletesOnlyItsNames) {
    CTempDir dir;
    RemoveLostTempFiles(dir.Path());  // nothing there: no failure
    for (const char* name : {"ifd1.tmp", "ifdABCD.tmp", "ifd12345.tmp", "Index1_Files.tmp", "ifd1.txt"})
        WriteAll(dir.Native(name), {1});
    RemoveLostTempFiles(dir.Path());
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"Index1_Files.tmp", "ifd1.txt", "ifd12345.tmp"}));
    EXPECT_ANY_THROW(RemoveLostTempFiles(dir.Path(u"missing")));
}

}  // namespace
