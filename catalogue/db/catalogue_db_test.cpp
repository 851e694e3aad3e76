// The catalogue's database over both back ends: the same runs ingested into
// SQLite and into a PostgreSQL server started for the test, every command
// asked on both, the answers compared.

#include <gtest/gtest.h>

#include <filesystem>

#include "base/exc.h"
#include "catalogue/db/catalogue_db.h"
#include "catalogue/model/values.h"
#include "catalogue/testing/catalogue_test_util.h"
#include "catalogue/testing/pg_server.h"
#include "catalogue/testing/run_writer.h"

using namespace cattest;
using catalogue::IsoTime;

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kT1 = Ft(1700000000), kT2 = Ft(1700086400);

// The first run, or (`later`) a day later: budget-2026 grew, Notes went, a
// new file and folder came, report.docx lost its owner, the link points
// elsewhere, the rest is as it was.
void Fill(CIndexBuilder& b, bool later) {
    const uint32_t alice = b.Owner(u"S-1-5-21-1-2-3-1001", u"alice", u"CORP");
    b.File(u"Users\\alice\\Documents\\budget-2026.xlsx", later ? 51000 : 50000, later ? kT2 : kT1, alice);
    if (!later) b.File(u"Users\\alice\\Documents\\Notes.TXT", 12, kT1, alice);
    b.File(u"Users\\alice\\Documents\\report.docx", 700, kT1, later ? 0 : alice);
    if (later) b.File(u"Users\\alice\\Documents\\summary-budget.pdf", 300, kT2, alice);
    b.File(u"Users\\bob\\budget-2025.xlsx", 40000, kT1);
    b.File(u"Windows\\notepad.exe", 1000, kT1);
    b.Dir(later ? u"Temp new" : u"Temp old");
    b.Link(u"Documents and Settings", later ? u"D:\\Users" : u"C:\\Users");
}
void First(CIndexBuilder& b) { Fill(b, false); }
void Second(CIndexBuilder& b) { Fill(b, true); }

// The catalogue of the two runs in one back end, asked through the tool.
struct CBackEnd {
    CBackEnd(std::string database, const CRun& one, const CRun& two) : db(std::move(database)) {
        Expect({"ingest", one.Dir(), "--machine", "pc-01", "--taken", "2026-01-05"}, 0);
        Expect({"ingest", two.Dir(), "--machine", "pc-01", "--taken", "2026-01-06T12:00"}, 0);
    }
    TRun Expect(std::vector<std::string> words, int code) const {
        words.insert(words.end(), {"--db", db});
        TRun run = RunTool(words);
        EXPECT_EQ(run.code, code) << words[0] << ": " << run.err << run.out;
        return run;
    }
    const std::string db;
};

class CatalogueDb : public ::testing::Test {
protected:
    void SetUp() override {
        m_One.Write(First);
        m_Two.Write(Second);
    }
    // SQLite always; PostgreSQL where a server could be started.
    std::vector<std::unique_ptr<CBackEnd>> BackEnds() {
        std::vector<std::unique_ptr<CBackEnd>> list;
        list.push_back(std::make_unique<CBackEnd>((m_Root.Native() / "catalogue.sqlite").string(), m_One, m_Two));
        CPgServer& pg = CPgServer::Get();
        if (pg.Conninfo().empty()) std::cout << "[ SKIPPED  ] the PostgreSQL half: " << pg.Why() << "\n";
        else list.push_back(std::make_unique<CBackEnd>(pg.NewDatabase(), m_One, m_Two));
        return list;
    }
    ngitest::CTempDir m_Root;
    CRun m_One{m_Root, "run1"}, m_Two{m_Root, "run2"};
};

TEST_F(CatalogueDb, EveryCommandGivesTheSameAnswerOnBothBackEnds) {
    struct {
        std::vector<std::string> words;
        int code;
        std::vector<std::string> holds;  // texts the answer holds
    } cases[] = {
        {{"machines"}, 0, {"pc-01  2 restore points"}},
        {{"points", "--json"}, 0, {R"({"id":1,"machine":"pc-01","taken":"2026-01-05T00:00:00.0000000Z","volumes":["C:"],"files":5)"}},
        {{"search", "budget"}, 0, {"pc-01  C:\\Users\\alice\\Documents\\budget-2026.xlsx  50000", "points 1\n",
                                   "budget-2026.xlsx  51000", "points 2\n", "budget-2025.xlsx  40000", "points 1,2\n",
                                   "summary-budget.pdf"}},
        {{"search", "BUDGET*.xlsx", "--json"}, 0,
         {R"("path":"\\Users\\bob\\budget-2025.xlsx","type":"file","size":40000,"modified":"2023-11-14T22:13:20.0000000Z","owner":"S-1-0-0")",
          R"("points":[1,2]})"}},
        {{"search", "budget", "--min-size", "45000", "--at", "2"}, 0, {"budget-2026.xlsx  51000"}},
        {{"search", "alice\\doc"}, 0, {"\\Users\\alice\\Documents\\report.docx"}},
        {{"search", "\\users\\*\\*.TXT"}, 0, {"Notes.TXT"}},
        {{"search", "temp", "--type", "d"}, 0, {"C:\\Temp old\\  points 1\n", "C:\\Temp new\\  points 2\n"}},
        {{"search", "budget", "--owner", "corp\\ALICE"}, 0, {"budget-2026.xlsx"}},
        {{"versions", "C:\\users\\ALICE\\documents\\budget-2026.xlsx"}, 0, {"50000", "51000"}},
        {{"versions", "\\Windows\\nothere.exe"}, 1, {}},
        {{"ls", "\\Users\\alice\\Documents", "--at", "1"}, 0, {"Notes.TXT", "budget-2026.xlsx"}},
        {{"ls", "--at", "2"}, 0, {"dir", "C:\\Temp new\\", "link", "-> D:\\Users"}},
        {{"ls", "\\Temp new", "--at", "1"}, 1, {"restore point 1 has no folder"}},
        {{"ls", "c:\\temp OLD", "--at", "1"}, 0, {}},  // there, and empty
        {{"changes", "--from", "1", "--to", "2"}, 0, {"# 2 added, 2 removed, 3 changed"}},  // the rest: below
        {{"changes", "--from", "1", "--to", "2", "--json"}, 0,
         {R"({"change":"changed","volume":"C:","path":"\\Users\\alice\\Documents\\budget-2026.xlsx","type":"file","old":{"size":50000,)"}},
        {{"changes", "--from", "1", "--to", "9"}, 1, {"no restore point 9"}},
        {{"ingest", m_Two.Dir(), "--machine", "pc-01", "--taken", "2026-01-06T12:00"}, 1, {"already has a restore point"}},
        {{"ingest", m_One.Dir(), "--machine", "pc-01", "--taken", "2026-01-01"}, 1, {"later restore point"}},
    };
    std::vector<std::string> sqlite;  // SQLite's answers, which PostgreSQL's must equal
    for (const auto& backEnd : BackEnds()) {
        for (size_t i = 0; i < std::size(cases); ++i) {
            const auto& c = cases[i];
            const TRun run = backEnd->Expect(c.words, c.code);
            for (const auto& text : c.holds)
                EXPECT_NE((run.out + run.err).find(text), std::string::npos)
                    << backEnd->db << " " << c.words[0] << " " << c.words[1] << ": no [" << text << "] in\n"
                    << run.out << run.err;
            std::string answer = run.out + run.err;
            // The database's name is in some messages.
            for (size_t at; (at = answer.find(backEnd->db)) != std::string::npos;) answer.replace(at, backEnd->db.size(), "DB");
            if (sqlite.size() < std::size(cases)) sqlite.push_back(answer);
            else EXPECT_EQ(answer, sqlite[i]) << "case " << i << ": " << c.words[0];
        }
    }
}

// diff of the two indexes, and changes between their restore points says
// the same on both back ends (with the volume before each path).
TEST_F(CatalogueDb, ChangesEqualDiffOfTheTwoIndexes) {
    const TRun diff = RunTool({"diff", m_One.Dir() + "/volume.C_.ifd", m_Two.Dir() + "/volume.C_.ifd"});
    ASSERT_EQ(diff.code, 0) << diff.err;
    EXPECT_EQ(Lines(diff.out),
              (std::vector<std::string>{
                  "~ \\Documents and Settings  target C:\\Users -> D:\\Users", "+ \\Temp new\\", "- \\Temp old\\",
                  "~ \\Users\\alice\\Documents\\budget-2026.xlsx  size 50000 -> 51000, time " + IsoTime(kT1, true) +
                      " -> " + IsoTime(kT2, true),
                  "- \\Users\\alice\\Documents\\Notes.TXT",
                  "~ \\Users\\alice\\Documents\\report.docx  owner S-1-5-21-1-2-3-1001 -> S-1-0-0",
                  "+ \\Users\\alice\\Documents\\summary-budget.pdf", "# 2 added, 2 removed, 3 changed"}));
    for (const auto& backEnd : BackEnds()) {
        TRun changes = backEnd->Expect({"changes", "--from", "1", "--to", "2"}, 0);
        for (size_t at = 0; at < changes.out.size(); at = changes.out.find('\n', at) + 1)
            if (changes.out.compare(at + 2, 2, "C:") == 0) changes.out.erase(at + 2, 2);
        EXPECT_EQ(changes.out, diff.out) << backEnd->db;
    }
}

// Storage grows with change: an unchanged run adds no version; forget keeps
// what other points hold and drops what only the forgotten one held.
TEST_F(CatalogueDb, VersionsGrowWithChangeAndForgetDropsWhatOnlyItHeld) {
    for (const auto& backEnd : BackEnds()) {
        auto db = catalogue::OpenDatabase(backEnd->db);
        auto count = [&] {
            auto s = db->Prepare("SELECT count(*) FROM versions");
            s->Step();
            return s->Int(0);
        };
        const int64_t two = count();
        EXPECT_EQ(two, 12 + 5);  // 6 folders, 5 files, a link in the first; 5 new in the second
        backEnd->Expect({"ingest", m_Two.Dir(), "--machine", "pc-01", "--taken", "2026-01-07"}, 0);
        EXPECT_EQ(count(), two);
        EXPECT_NE(backEnd->Expect({"versions", "\\Windows\\notepad.exe"}, 0).out.find("points 1-3"), std::string::npos);

        backEnd->Expect({"forget", "1"}, 0);
        EXPECT_EQ(count(), two - 5);  // Notes, Temp old, the old budget and report, the old link
        EXPECT_NE(backEnd->Expect({"versions", "\\Windows\\notepad.exe"}, 0).out.find("points 2,3\n"), std::string::npos);
        backEnd->Expect({"ls", "--at", "1"}, 1);
        // Forgetting the newest point leaves the one before it whole.
        backEnd->Expect({"forget", "3"}, 0);
        EXPECT_EQ(backEnd->Expect({"changes", "--from", "2", "--to", "2"}, 0).out, "# 0 added, 0 removed, 0 changed\n");
        backEnd->Expect({"ingest", m_One.Dir(), "--machine", "pc-01", "--taken", "2026-02-01"}, 0);
        const TRun back = backEnd->Expect({"changes", "--from", "2", "--to", "4"}, 0);
        EXPECT_NE(back.out.find("# 2 added, 2 removed, 3 changed"), std::string::npos) << back.out;
    }
}

// A catalogue made before names were kept exactly is upgraded by the first
// command that may write to it; the read-only server refuses it until then.
TEST_F(CatalogueDb, AnOlderSchemaIsUpgradedInPlace) {
    for (const auto& backEnd : BackEnds()) {
        {
            auto db = catalogue::OpenDatabase(backEnd->db);
            db->Exec("ALTER TABLE names DROP COLUMN exact");
            db->Exec("UPDATE meta SET value = '1' WHERE key = 'schema_version'");
        }
        try {
            catalogue::OpenDatabaseReadOnly(backEnd->db);
            ADD_FAILURE() << "a schema 1 catalogue opened read-only";
        } catch (const CExc& e) {
            EXPECT_NE(util::Utf16ToUtf8(e.GetMessages().at(0)).find("holds catalogue schema 1, older than"),
                      std::string::npos);
        }
        backEnd->Expect({"ingest", m_Two.Dir(), "--machine", "pc-01", "--taken", "2026-01-07"}, 0);
        auto db = catalogue::OpenDatabaseReadOnly(backEnd->db);
        auto version = db->Prepare("SELECT value FROM meta WHERE key = 'schema_version'");
        ASSERT_TRUE(version->Step());
        EXPECT_EQ(version->Text(0), "2");
        EXPECT_NE(backEnd->Expect({"versions", "\\Windows\\notepad.exe"}, 0).out.find("points 1-3"), std::string::npos);
    }
}

// What is refused leaves the database as it was.
TEST_F(CatalogueDb, RefusedIngestsChangeNothing) {
    const std::string db = (m_Root.Native() / "refused.sqlite").string();
    ASSERT_EQ(RunTool({"ingest", m_One.Dir(), "--machine", "m", "--db", db}).code, 0);
    const std::string before = RunTool({"points", "--json", "--db", db}).out;

    CRun damaged(m_Root, "damaged");
    damaged.Write(Second);
    fs::resize_file(damaged.Dir() + "/volume.C_.ifd", fs::file_size(damaged.Dir() + "/volume.C_.ifd") - 3);
    fs::last_write_time(damaged.Dir() + "/volume.C_.ifd", fs::last_write_time(damaged.Dir() + "/summary.txt"));

    CRun missing(m_Root, "missing");
    missing.Write(Second);
    fs::remove(missing.Dir() + "/volume.C_.ifd");

    CRun empty(m_Root, "nosummary");
    std::ofstream(empty.Dir() + "/summary.txt") << "";

    struct {
        std::string dir;
        const char* says;
    } cases[] = {
        {damaged.Dir(), "volume.C_.ifd"},
        {missing.Dir(), "which is missing"},
        {empty.Dir(), "holds no summary of a run"},
        {(m_Root.Native() / "nowhere").string(), "No such file or directory"},
    };
    for (const auto& c : cases) {
        const TRun run = RunTool({"ingest", c.dir, "--machine", "m", "--taken", "2027-01-01", "--db", db});
        EXPECT_EQ(run.code, 1) << c.dir;
        EXPECT_NE(run.err.find(c.says), std::string::npos) << c.dir << ": " << run.err;
        EXPECT_EQ(RunTool({"points", "--json", "--db", db}).out, before);
    }
    const TRun mistyped = RunTool({"search", "x", "--db", db + ".typo"});
    EXPECT_EQ(mistyped.code, 1);
    EXPECT_NE(mistyped.err.find("no catalogue at " + db + ".typo (ingest makes one)"), std::string::npos) << mistyped.err;
    EXPECT_FALSE(fs::exists(db + ".typo"));
}

}  // namespace
