// The catalogue's database over both back ends: the same runs ingested into
// SQLite and into a PostgreSQL server started for the test, every command
// asked on both, the answers compared.

#include <gtest/gtest.h>

#include <filesystem>

#include "catalogue/db/catalogue_db.h"
#include "catalogue/testing/catalogue_test_util.h"
#include "catalogue/testing/pg_server.h"
#include "catalogue/testing/run_writer.h"

using namespace cattest;

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kT1 = Ft(1700000000), kT2 = Ft(1700086400);

// The first run, or (`later`) a day later: budget-2026 grew, Notes went, a
// new file and folder came, the link points elsewhere, the rest is as it was.
void Fill(CIndexBuilder& b, bool later) {
    const uint32_t alice = b.Owner(u"S-1-5-21-1-2-3-1001", u"alice", u"CORP");
    b.File(u"Users\\alice\\Documents\\budget-2026.xlsx", later ? 51000 : 50000, later ? kT2 : kT1, alice);
    if (!later) b.File(u"Users\\alice\\Documents\\Notes.TXT", 12, kT1, alice);
    b.File(u"Users\\alice\\Documents\\report.docx", 700, kT1, alice);
    if (later) b.File(u"Users\\alice\\Documents\\summary-budget.pdf", 300, kT2, alice);
    b.File(u"Users\\bob\\budget-2025.xlsx", 40000, kT1);
    b.File(u"Windows\\notepad.exe", 1000, kT1);
    b.Dir(later ? u"Temp new" : u"Temp old");
    b.Link(u"Documents and Settings", later ? u"D:\\Users" : u"C:\\Users");
}
void First(CIndexBuilder& b) { Fill(b, false); }
void Second(CIndexBuilder& b) { Fill(b, true); }

// The catalogue of the two runs in one back end, asked through the tool.
class CBackEnd {
public:
    CBackEnd(std::string db, const CRun& one, const CRun& two) : m_Db(std::move(db)) {
        Expect({"ingest", one.Dir(), "--machine", "pc-01", "--taken", "2026-01-05"}, 0);
        Expect({"ingest", two.Dir(), "--machine", "pc-01", "--taken", "2026-01-06T12:00"}, 0);
    }
    TRun Tool(std::vector<std::string> words) const {
        words.push_back("--db");
        words.push_back(m_Db);
        return RunTool(words);
    }
    TRun Expect(std::vector<std::string> words, int code) const {
        TRun run = Tool(words);
        EXPECT_EQ(run.code, code) << words[0] << ": " << run.err << run.out;
        return run;
    }
    const std::string& Db() const { return m_Db; }

private:
    std::string m_Db;
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
        if (pg.Conninfo().empty())
            std::cout << "[ SKIPPED  ] the PostgreSQL half: " << pg.Why() << "\n";
        else
            list.push_back(std::make_unique<CBackEnd>(pg.NewDatabase(), m_One, m_Two));
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
        {{"search", "no-such-name"}, 1, {}},
        {{"search", "temp", "--type", "d"}, 0, {"C:\\Temp old\\  points 1\n", "C:\\Temp new\\  points 2\n"}},
        {{"search", "budget", "--owner", "corp\\ALICE"}, 0, {"budget-2026.xlsx"}},
        {{"versions", "C:\\users\\ALICE\\documents\\budget-2026.xlsx"}, 0, {"50000", "51000"}},
        {{"versions", "\\Windows\\notepad.exe", "--json"}, 0, {R"("points":[1,2])"}},
        {{"versions", "\\Windows\\nothere.exe"}, 1, {}},
        {{"ls", "\\Users\\alice\\Documents", "--at", "1"}, 0, {"Notes.TXT", "budget-2026.xlsx"}},
        {{"ls", "--at", "2"}, 0, {"dir", "C:\\Temp new\\", "link", "-> D:\\Users"}},
        {{"ls", "\\Temp new", "--at", "1"}, 1, {"restore point 1 has no folder"}},
        {{"ls", "c:\\temp OLD", "--at", "1"}, 0, {}},  // there, and empty
        {{"changes", "--from", "1", "--to", "2"}, 0,
         {"~ C:\\Documents and Settings  target C:\\Users -> D:\\Users", "- C:\\Temp old\\", "+ C:\\Temp new\\",
          "- C:\\Users\\alice\\Documents\\Notes.TXT", "~ C:\\Users\\alice\\Documents\\budget-2026.xlsx  size 50000 -> 51000",
          "# 2 added, 2 removed, 2 changed"}},
        {{"changes", "--from", "1", "--to", "2", "--json"}, 0,
         {R"({"change":"changed","volume":"C:","path":"\\Users\\alice\\Documents\\budget-2026.xlsx","type":"file","old":{"size":50000,)"}},
        {{"changes", "--from", "1", "--to", "9"}, 1, {"no restore point 9"}},
        {{"ingest", m_Two.Dir(), "--machine", "pc-01", "--taken", "2026-01-06T12:00"}, 1, {"already has a restore point"}},
        {{"ingest", m_One.Dir(), "--machine", "pc-01", "--taken", "2026-01-01"}, 1, {"later restore point"}},
    };
    std::vector<std::vector<std::string>> answers;
    for (const auto& backEnd : BackEnds()) {
        std::vector<std::string> mine;
        for (const auto& c : cases) {
            const TRun run = backEnd->Expect(c.words, c.code);
            for (const auto& text : c.holds)
                EXPECT_NE((run.out + run.err).find(text), std::string::npos)
                    << backEnd->Db() << " " << c.words[0] << " " << c.words[1] << ": no [" << text << "] in\n"
                    << run.out << run.err;
            std::string answer = run.out + run.err;
            // The database's name is in some messages.
            for (size_t at; (at = answer.find(backEnd->Db())) != std::string::npos;) answer.replace(at, backEnd->Db().size(), "DB");
            mine.push_back(answer);
        }
        answers.push_back(std::move(mine));
    }
    if (answers.size() == 2) {
        for (size_t i = 0; i < answers[0].size(); ++i)
            EXPECT_EQ(answers[0][i], answers[1][i]) << "case " << i << ": " << cases[i].words[0];
    }
}

// changes between two restore points says what diff says of their indexes.
TEST_F(CatalogueDb, ChangesEqualDiffOfTheTwoIndexes) {
    const TRun diff = RunTool({"diff", m_One.Dir() + "/volume.C_.ifd", m_Two.Dir() + "/volume.C_.ifd"});
    ASSERT_EQ(diff.code, 0) << diff.err;
    for (const auto& backEnd : BackEnds()) {
        TRun changes = backEnd->Expect({"changes", "--from", "1", "--to", "2"}, 0);
        for (size_t at = 0; at < changes.out.size(); at = changes.out.find('\n', at) + 1)
            if (changes.out.compare(at + 2, 2, "C:") == 0) changes.out.erase(at + 2, 2);
        EXPECT_EQ(changes.out, diff.out) << backEnd->Db();
    }
}

// An ingest into an empty catalogue makes the indexes after its rows and
// looks names up in memory; into one that holds more, row by row through the
// indexes. Both give the same catalogue.
TEST_F(CatalogueDb, BulkAndRowByRowIngestsGiveTheSameAnswers) {
    const std::string fresh = (m_Root.Native() / "fresh.sqlite").string(),
                      full = (m_Root.Native() / "full.sqlite").string();
    for (const char* other : {"x", "y", "z"})  // names, folders and files already there
        ASSERT_EQ(RunTool({"ingest", m_One.Dir(), "--machine", other, "--db", full}).code, 0);
    for (const auto& db : {fresh, full}) {
        ASSERT_EQ(RunTool({"ingest", m_One.Dir(), "--machine", "pc-01", "--taken", "2026-01-05", "--db", db}).code, 0);
        ASSERT_EQ(RunTool({"ingest", m_Two.Dir(), "--machine", "pc-01", "--taken", "2026-01-06", "--db", db}).code, 0);
    }
    const std::vector<std::vector<std::string>> questions[] = {
        {{"changes", "--from", "1", "--to", "2"}, {"changes", "--from", "4", "--to", "5"}},
        {{"ls", "\\Users\\alice\\Documents", "--at", "2"}, {"ls", "\\Users\\alice\\Documents", "--at", "5"}},
        {{"search", "budget", "--machine", "pc-01", "--at", "1"}, {"search", "budget", "--machine", "pc-01", "--at", "4"}},
    };
    for (const auto& q : questions) {
        std::vector<std::string> a = q[0], b = q[1];
        a.insert(a.end(), {"--db", fresh});
        b.insert(b.end(), {"--db", full});
        const TRun one = RunTool(a), two = RunTool(b);
        EXPECT_EQ(one.code, 0) << one.err;
        EXPECT_FALSE(one.out.empty());
        // Point ids differ; what stands in them does not.
        auto idless = [](std::string text) {
            for (size_t at; (at = text.find("points ")) != std::string::npos;) text.erase(at, text.find('\n', at) - at);
            return text;
        };
        EXPECT_EQ(idless(one.out), idless(two.out)) << q[0][0];
    }
}

// Storage grows with change: an unchanged run adds no version; forget keeps
// what other points hold and drops what only the forgotten one held.
TEST_F(CatalogueDb, VersionsGrowWithChangeAndForgetDropsWhatOnlyItHeld) {
    for (const auto& backEnd : BackEnds()) {
        auto db = catalogue::OpenDatabase(backEnd->Db());
        auto count = [&] {
            auto s = db->Prepare("SELECT count(*) FROM versions");
            s->Step();
            return s->Int(0);
        };
        const int64_t two = count();
        EXPECT_EQ(two, 12 + 4);  // 6 folders, 5 files, a link in the first; 4 new in the second
        backEnd->Expect({"ingest", m_Two.Dir(), "--machine", "pc-01", "--taken", "2026-01-07"}, 0);
        EXPECT_EQ(count(), two);
        EXPECT_NE(backEnd->Expect({"versions", "\\Windows\\notepad.exe"}, 0).out.find("points 1-3"), std::string::npos);

        backEnd->Expect({"forget", "1"}, 0);
        EXPECT_EQ(count(), two - 4);  // Notes, Temp old, the old budget, the old link
        const TRun after = backEnd->Expect({"versions", "\\Windows\\notepad.exe"}, 0);
        EXPECT_NE(after.out.find("points 2,3\n"), std::string::npos) << after.out;
        backEnd->Expect({"ls", "--at", "1"}, 1);
        // Forgetting the newest point leaves the one before it whole.
        backEnd->Expect({"forget", "3"}, 0);
        EXPECT_EQ(backEnd->Expect({"changes", "--from", "2", "--to", "2"}, 0).out, "# 0 added, 0 removed, 0 changed\n");
        backEnd->Expect({"ingest", m_One.Dir(), "--machine", "pc-01", "--taken", "2026-02-01"}, 0);
        const TRun back = backEnd->Expect({"changes", "--from", "2", "--to", "4"}, 0);
        EXPECT_NE(back.out.find("# 2 added, 2 removed, 2 changed"), std::string::npos) << back.out;
    }
}

// What is refused leaves the database as it was.
TEST_F(CatalogueDb, RefusedIngestsChangeNothing) {
    const std::string db = (m_Root.Native() / "refused.sqlite").string();
    const std::string good = m_One.Dir();
    ASSERT_EQ(RunTool({"ingest", good, "--machine", "m", "--db", db}).code, 0);
    const std::string before = RunTool({"points", "--json", "--db", db}).out;

    CRun damaged(m_Root, "damaged");
    damaged.Write(Second);
    std::vector<uint8_t> bytes = ReadBytes(damaged.Dir() + "/volume.C_.ifd");
    bytes.resize(bytes.size() - 3);
    WriteBytes(damaged.Dir() + "/volume.C_.ifd", bytes);
    fs::last_write_time(damaged.Dir() + "/volume.C_.ifd", fs::last_write_time(damaged.Dir() + "/summary.txt"));

    CRun mixed(m_Root, "mixed");
    mixed.Write(Second);
    fs::copy_file(good + "/volume.C_.ifd", mixed.Dir() + "/volume.D_.ifd");

    CRun newer(m_Root, "newer");
    newer.Write(Second);
    fs::last_write_time(newer.Dir() + "/volume.C_.ifd", fs::last_write_time(newer.Dir() + "/summary.txt") + std::chrono::seconds(5));

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
        {mixed.Dir(), "volume.D_.ifd is not named by"},
        {newer.Dir(), "volume.C_.ifd is newer than"},
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

    const TRun summary = RunTool({"summary", empty.Dir()});
    EXPECT_EQ(summary.code, 1);
    EXPECT_NE(summary.err.find("holds no summary of a run"), std::string::npos) << summary.err;
}

}  // namespace
