// Table files: the layout of a table, flush, the combiner's chain, the sweep
// of lost temporary files, and the header checks of the table reader.
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
        CSeqTableWriter t(dir.Dir(), TableDirs, std::make_shared<rec::CDirRecord>());
        name = t.GetFileName();
        EXPECT_TRUE(IsTempName(Native(name).filename().string())) << Native(name);
        EXPECT_NE(CSeqTableWriter::GenerateTempFileName(dir.Dir()), name);  // names are unique
    }
    const auto bytes = ReadAll(Native(name));
    const std::vector<uint8_t> expected = {'T', 'B', 'L', 'X', 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                           2, 0, 0, 0, 2, 0, 0, 0, 2, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(bytes, expected);
}

TEST(SeqTable, RowCountReachesTheDiskAtFlush) {
    CTempDir dir;
    CSeqTableWriter t(dir.Dir(), TableDirs, std::make_shared<rec::CDirRecord>());
    const auto path = Native(t.GetFileName());
    t.WriteRecord(Dir(u"", 0));
    EXPECT_EQ(U64At(ReadAll(path), 32), 0u);
    t.Flush();
    EXPECT_EQ(U64At(ReadAll(path), 32), 1u);
    // The position came back: the next row follows the first.
    t.WriteRecord(Dir(u"a", 0));
    t.Close();
    const auto bytes = ReadAll(path);
    EXPECT_EQ(bytes.size(), 40u + 12 + 14);
    EXPECT_EQ(U64At(bytes, 32), 2u);
}

// Three tables of sizes a, b, c: next offsets a, a+b, 0 at 8, a+8, a+b+8.
TEST(SeqTable, CombineChainsTablesAndDeletesTheParts) {
    CTempDir dir;
    std::list<std::u16string> list;
    std::vector<std::vector<uint8_t>> parts;
    for (int t = 0; t < 3; ++t) {
        CSeqTableWriter table(dir.Dir(), TableDirs, std::make_shared<rec::CDirRecord>());
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
    EXPECT_EQ(U64At(all, a + 32), 2u);
    EXPECT_EQ(U64At(all, a + b + 32), 4u);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"all.dat"});

    // The reader walks the same chain.
    CBuffFileReader reader;
    reader.Open(dir.Path(u"all.dat"));
    CDataFileReader data(reader, u"all.dat", reader.GetSize());
    ASSERT_EQ(data.GetTables().size(), 3u);
    EXPECT_EQ(data.GetTables()[2].start, a + b);
    EXPECT_EQ(data.GetTables()[2].end, a + b + c);
}

TEST(SeqTable, CombineOfOneFileKeepsItsBytes) {
    CTempDir dir;
    std::list<std::u16string> list;
    CSeqTableWriter table(dir.Dir(), TableOwners, std::make_shared<rec::COwnerRecord>());
    rec::COwnerRecord o;
    o.m_Sid = u"S-1-0-0";
    table.WriteRecord(o);
    AddToCombine(list, table);
    const auto before = ReadAll(Native(table.GetFileName()));
    CombineTables(list, dir.Path(u"one.dat"));
    EXPECT_EQ(ReadAll(dir.Native("one.dat")), before);
    EXPECT_CEXC(CombineTables({}, dir.Path(u"none.dat")),
                EXPECT_EQ(Deepest(e), u"Cannot combine. List of files is empty"));
}

TEST(SeqTable, RemoveLostTempFilesDeletesOnlyItsNames) {
    CTempDir dir;
    RemoveLostTempFiles(dir.Dir());  // nothing there: no failure
    for (const char* name : {"ifd1.tmp", "ifdABCD.tmp", "ifd12345.tmp", "Index1_Files.tmp", "ifd1.txt"})
        WriteAll(dir.Native(name), {1});
    RemoveLostTempFiles(dir.Dir());
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"Index1_Files.tmp", "ifd1.txt", "ifd12345.tmp"}));
    EXPECT_ANY_THROW(RemoveLostTempFiles(dir.Path(u"missing")));
}

// The table reader finds a table by its id and refuses a schema other than
// the table's (damaged headers are the bit flips of IndexBaseReaderDamage).
TEST(SeqTableReader, TableAndSchemaMustMatch) {
    CTempDir dir;
    std::u16string name;
    {
        CSeqTableWriter t(dir.Dir(), TableDirs, std::make_shared<rec::CDirRecord>());
        t.WriteRecord(Dir(u"", 0));
        name = t.GetFileName();
    }
    CBuffFileReader reader;
    reader.Open(name);
    CDataFileReader data(reader, name, reader.GetSize());
    EXPECT_ANY_THROW(data.OpenSeqTable(TableFiles, rec::CDirRecord()));
    EXPECT_ANY_THROW(data.OpenSeqTable(TableDirs, rec::COwnerRecord()));  // field count
    auto table = data.OpenSeqTable(TableDirs, rec::CDirRecord());
    rec::CDirRecord d;
    EXPECT_TRUE(table.ReadRecord(d));
    EXPECT_FALSE(table.ReadRecord(d));
}

}  // namespace
