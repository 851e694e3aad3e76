// check on good files, on files with what the format allows but writers may
// or may not do (notes), and on damaged copies: every truncation, every
// single byte flipped, and targeted damage with the message it must give.
#include "catalogue/testing/catalogue_test_util.h"

using namespace cattest;

namespace {

// A small base with a row in every table; the row positions are kept.
class CatalogueCheck : public ::testing::Test {
protected:
    void SetUp() override {
        CIndexBuilder b(m_Dir, u"volume.C_.ifd");
        auto& base = b.Base();
        base.AddOwner(u"S-1-5-32-544", u"Administrators", u"BUILTIN", nullptr);
        m_UsersPos = base.AddDir(u"Users", 0, nullptr);
        m_PublicPos = base.AddDir(u"Public", 1, nullptr);
        m_BootPos = base.AddFile(u"boot.ini", 1, 0, 211, Ft(1700000000), nullptr);
        base.AddFile(u"a.txt", 0, 2, 5, Ft(1700000000), nullptr);
        m_ReparsePos = base.AddReparse(1, u"All Users", u"C:\\ProgramData", nullptr);
        m_File = b.Close();
        m_Good = ReadBytes(m_File);
        m_Starts = TableStarts(m_Good);
        ASSERT_EQ(m_Starts.size(), 4u);
    }

    // check on a copy of the file with `bytes`.
    TRun CheckBytes(const std::vector<uint8_t>& bytes) {
        const std::string path = (m_Dir.Native() / "damaged.ifd").string();
        WriteBytes(path, bytes);
        return RunTool({"check", path});
    }
    // The good file with a little-endian value put at an offset.
    template <typename T>
    std::vector<uint8_t> With(uint64_t offset, T value) {
        std::vector<uint8_t> bytes = m_Good;
        std::memcpy(bytes.data() + offset, &value, sizeof value);
        return bytes;
    }

    ngitest::CTempDir m_Dir;
    std::string m_File;
    std::vector<uint8_t> m_Good;
    std::vector<uint64_t> m_Starts;  // files, directories, owners, reparse points
    uint64_t m_UsersPos = 0, m_PublicPos = 0, m_BootPos = 0, m_ReparsePos = 0;  // row offsets in their tables
};

TEST_F(CatalogueCheck, AcceptsAGoodFileAndPrintsTheCounts) {
    const TRun run = RunTool({"check", m_File});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, m_File + ": valid index file, " + std::to_string(m_Good.size()) +
                           " bytes, 4 tables\n  files           2\n  directories     3\n  owners          2\n"
                           "  reparse points  1\n");
}

TEST_F(CatalogueCheck, NotesWhatWritersMayOrMayNotDo) {
    // A fast run whose filter matched nothing: no directory rows at all.
    indexer::CIndexBase empty;
    empty.Open(m_Dir.Path(), false, u"nodirs.ifd");
    empty.AddOwner(u"S-1-0-0", u"", u"", nullptr);
    empty.Close();
    // The legacy scanner numbers owners from 0 with no row for nobody.
    CIndexBuilder b(m_Dir, u"ownerless.ifd");
    b.File(u"a.txt", 1, 1, 1);
    b.File(u"b.txt", 1, 1, 7);
    b.Close();
    // Three tables, as CombineTables joins them for the legacy run: the
    // chain ends at the owners table.
    std::vector<uint8_t> legacy(m_Good.begin(), m_Good.begin() + static_cast<std::ptrdiff_t>(m_Starts[3]));
    idxdata::PutU64(legacy.data() + m_Starts[2] + 8, 0);
    WriteBytes((m_Dir.Native() / "legacy.ifd").string(), legacy);
    for (const auto& [name, note] : std::vector<std::pair<std::string, std::string>>{
             {"nodirs.ifd", "note: no directory rows"},
             {"ownerless.ifd", "note: 2 file rows name an owner without a row (the first: file row 0x0, owner 0x1)"},
             {"legacy.ifd", "note: no reparse point table"}}) {
        const TRun run = RunTool({"check", (m_Dir.Native() / name).string()});
        EXPECT_EQ(run.code, 0) << name << ": " << run.err;
        EXPECT_NE(run.out.find(note), std::string::npos) << run.out;
    }
}

// Every truncation is refused with the file and offset. Whatever a flipped
// byte does, check ends in 0 or 1 (never a crash, a hang or a read outside
// the file: run under the sanitizers), and a refusal names the file.
TEST_F(CatalogueCheck, EveryTruncationAndFlippedByteEndsInAVerdict) {
    int refused = 0;
    for (size_t at = 0; at < m_Good.size(); ++at) {
        const TRun cut = CheckBytes(std::vector<uint8_t>(m_Good.begin(), m_Good.begin() + static_cast<std::ptrdiff_t>(at)));
        EXPECT_EQ(cut.code, 1) << "size " << at;
        EXPECT_EQ(cut.out, "");
        EXPECT_NE(cut.err.find(at ? "ffset 0x" : "is not an index file: it is empty"), std::string::npos) << cut.err;
        std::vector<uint8_t> bytes = m_Good;
        bytes[at] ^= 0x80;
        const TRun flipped = CheckBytes(bytes);
        ASSERT_TRUE(flipped.code == 0 || flipped.code == 1) << "byte " << at;
        refused += flipped.code;
        for (const TRun* run : {&cut, &flipped})
            if (run->code == 1) {
                EXPECT_NE(run->err.find("damaged.ifd"), std::string::npos) << at << ": " << run->err;
            }
    }
    // Only bytes of text (names, SIDs) and of sizes and times may change
    // unnoticed; everything structural is refused.
    EXPECT_GT(refused, 100);
}

TEST_F(CatalogueCheck, TargetedDamageGivesItsMessage) {
    const uint64_t files = m_Starts[0], dirs = m_Starts[1], owners = m_Starts[2], reparses = m_Starts[3];
    // Field offsets inside rows: a file row is name, parent, owner, time,
    // size; "boot.ini" has 8 units, so its parent is at +20.
    const uint64_t bootParent = files + m_BootPos + 4 + 16;
    const uint64_t publicParent = dirs + m_PublicPos + 4 + 12;
    const uint64_t usersParent = dirs + m_UsersPos + 4 + 10;
    struct {
        const char* what;
        std::vector<uint8_t> bytes;
        const char* says;
    } cases[] = {
        {"magic", With<uint8_t>(dirs, 'X'), "Prefix not match"},
        {"version", With<uint16_t>(owners + 6, 2), "Invalid datafile version"},
        {"table id", With<uint32_t>(dirs + 20, 7), "does not belong at this place"},
        {"reserved dword", With<uint32_t>(files + 16, 1), "Wrong table format"},
        {"field type", With<uint16_t>(files + 28, 1), "Types not match"},
        {"field count", With<uint32_t>(reparses + 24, 2), "Number of fields not match"},
        {"next table backwards", With<uint64_t>(dirs + 8, 10), "lies outside"},
        {"next table past the end", With<uint64_t>(owners + 8, m_Good.size() + 1), "lies outside"},
        {"uncombined", With<uint64_t>(files + 8, ~uint64_t{0}), "never combined"},
        {"row count too big", With<uint64_t>(files + 38, 1000), "cannot fit"},
        {"row count one more", With<uint64_t>(dirs + 32, 4), "runs past the table's end"},
        {"row count one less", With<uint64_t>(dirs + 32, 2), "bytes follow the last of 2 rows"},
        {"string length", With<uint32_t>(files + m_BootPos, 0x7FFFFFFF), "a string of 2147483647 units"},
        {"directory parent out of range", With<uint64_t>(publicParent, 9), "names the parent directory 0x0000000000000009"},
        {"directory parent itself", With<uint64_t>(usersParent, 1), "which does not come before it"},
        {"root parent", With<uint64_t>(dirs + 40 + 4, 1), "the root row names the parent"},
        {"file parent", With<uint64_t>(bootParent, 3), "row 0x0000000000000000 names the parent directory 0x0000000000000003"},
        {"reparse parent", With<uint64_t>(reparses + m_ReparsePos, 5), "names the parent directory 0x0000000000000005"},
    };
    for (const auto& c : cases) {
        const TRun run = CheckBytes(c.bytes);
        EXPECT_EQ(run.code, 1) << c.what;
        EXPECT_NE(run.err.find(c.says), std::string::npos) << c.what << ": " << run.err;
    }
}

TEST_F(CatalogueCheck, ADirectoryWithoutANameIsRefused) {
    CIndexBuilder b(m_Dir, u"noname.ifd");
    b.Base().AddDir(u"", 0, nullptr);
    const TRun run = RunTool({"check", b.Close()});
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("Empty DirName. ID=0x0000000000000001"), std::string::npos) << run.err;
}

}  // namespace
