// The web API over both back ends: its answers equal the command line's
// --json lines for the same questions, page by page; its errors; and what
// it must withstand (read-only access, SQL in parameters, odd characters).

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/exc.h"
#include "catalogue/server/api.h"
#include "catalogue/testing/catalogue_test_util.h"
#include "catalogue/testing/pg_server.h"
#include "catalogue/testing/web_fixture.h"

using namespace cattest;
using nlohmann::json;

namespace {

// The web tests' catalogue in one back end, as the server reads it.
struct TBackEnd {
    explicit TBackEnd(const std::string& database) : db(database), connection(catalogue::OpenDatabaseReadOnly(db)) {}
    std::string db;
    std::unique_ptr<catalogue::IConnection> connection;
    std::unique_ptr<catalogue::CCatalogue> catalogue = std::make_unique<catalogue::CCatalogue>(*connection);
};

class WebApi : public ::testing::Test {
protected:
    // SQLite always; PostgreSQL where a server could be started.
    std::vector<TBackEnd> BackEnds() {
        std::vector<std::string> dbs = {(m_Root.Native() / "web.sqlite").string()};
        CPgServer& pg = CPgServer::Get();
        if (pg.Conninfo().empty()) std::cout << "[ SKIPPED  ] the PostgreSQL half: " << pg.Why() << "\n";
        else dbs.push_back(pg.NewDatabase());
        std::vector<TBackEnd> list;
        for (size_t i = 0; i < dbs.size(); ++i) {
            MakeWebCatalogue((m_Root.Native() / ("runs" + std::to_string(i))).string(), dbs[i]);
            list.emplace_back(dbs[i]);
        }
        return list;
    }
    ngitest::CTempDir m_Root;
};

// JSON as the tool writes it, where a lone surrogate is an escape
// ("\ud800") that this JSON library refuses: such an escape is read as the
// six characters it is written with, on both sides of a comparison alike.
json Parse(const std::string& text) {
    std::string kept;
    for (size_t i = 0; i < text.size(); ++i) {
        kept += text[i];
        if (text[i] != '\\' || i + 1 >= text.size()) continue;
        if (text[i + 1] == 'u' && i + 2 < text.size() && (text[i + 2] | 0x20) == 'd') kept += '\\';
        else kept += text[++i];
    }
    return json::parse(kept);
}

// Every page of the answer, its results joined.
json AllPages(catalogue::CCatalogue& c, const std::string& question, catalogue::TApiParams params, size_t limit) {
    json all = json::array();
    params.emplace("limit", std::to_string(limit));
    for (std::string after = "0";;) {
        auto paged = params;
        paged.emplace("after", after);
        const auto answer = catalogue::AnswerApi(c, question, paged);
        EXPECT_EQ(answer.status, 200) << question << ": " << answer.body;
        const json page = Parse(answer.body);
        EXPECT_LE(page["results"].size(), limit);
        for (const auto& r : page["results"]) all.push_back(r);
        if (page["next"].is_null() || answer.status != 200) return all;
        after = std::to_string(page["next"].get<size_t>());
    }
}

TEST_F(WebApi, AnswersEqualTheCommandLinesJsonLines) {
    struct {
        std::string question;
        catalogue::TApiParams params;
        std::vector<std::string> words;
    } cases[] = {
        {"search", {{"q", "budget"}}, {"search", "budget"}},
        {"search", {{"q", "budget"}, {"machine", "SRV-02"}}, {"search", "budget", "--machine", "SRV-02"}},
        {"search", {{"q", "log_"}}, {"search", "log_"}},  // 250 files and their folder: three pages of 100
        {"search", {{"q", "log_1*"}, {"min_size", "200"}, {"max_size", "220"}, {"type", "f"}},
         {"search", "log_1*", "--min-size", "200", "--max-size", "220", "--type", "f"}},
        {"search", {{"q", "*.xlsx"}, {"from", "2"}, {"to", "3"}, {"newer", "2026-01-06"}},
         {"search", "*.xlsx", "--from", "2", "--to", "3", "--newer", "2026-01-06"}},
        {"search", {{"q", "budget"}, {"owner", "corp\\ALICE"}, {"taken_after", "2026-01-06"}},
         {"search", "budget", "--owner", "corp\\ALICE", "--taken-after", "2026-01-06"}},
        {"search", {{"q", "\\users\\*\\documents\\*"}}, {"search", "\\users\\*\\documents\\*"}},
        {"versions", {{"path", "C:\\Users\\alice\\Documents\\budget-2026.xlsx"}, {"machine", "pc-01"}},
         {"versions", "C:\\Users\\alice\\Documents\\budget-2026.xlsx", "--machine", "pc-01"}},
        {"ls", {{"machine", "pc-01"}, {"path", "\\Odd"}, {"at", "1"}}, {"ls", "\\Odd", "--at", "1"}},
        {"ls", {{"machine", "pc-01"}, {"at", "2"}}, {"ls", "--at", "2"}},
        {"changes", {{"machine", "pc-01"}, {"from", "1"}, {"to", "2"}}, {"changes", "--from", "1", "--to", "2"}},
        {"machines", {}, {"machines"}},
        {"points", {{"machine", "srv-02"}}, {"points", "--machine", "srv-02"}},
        // Characters that mean something to SQL's LIKE, to quoting or to UTF-16.
        {"search", {{"q", "100%"}}, {"search", "100%"}},
        {"search", {{"q", "e_v"}}, {"search", "e_v"}},
        {"search", {{"q", "it's \"quoted\""}}, {"search", "it's \"quoted\""}},
        {"search", {{"q", "\xF0\x9F\x98\x80"}}, {"search", "\xF0\x9F\x98\x80"}},
        {"search", {{"q", "damaged"}}, {"search", "damaged"}},
        // A lone surrogate given in WTF-8 (ED A0 80 is U+D800), in a pattern
        // and in the paths of a folder and of a file below it.
        {"search", {{"q", "damaged \xED\xA0\x80 name"}}, {"search", "damaged \xED\xA0\x80 name"}},
        {"search", {{"q", "\\odd\\torn \xED\xAF\xBF\\*"}}, {"search", "\\odd\\torn \xED\xAF\xBF\\*"}},
        {"ls", {{"machine", "pc-01"}, {"path", "\\Odd\\torn \xED\xAF\xBF"}, {"at", "2"}},
         {"ls", "\\Odd\\torn \xED\xAF\xBF", "--at", "2"}},
        {"versions", {{"path", "\\Odd\\TORN \xED\xAF\xBF\\inside.txt"}},
         {"versions", "\\Odd\\TORN \xED\xAF\xBF\\inside.txt"}},
    };
    for (auto& b : BackEnds()) {
        for (const auto& c : cases) {
            std::vector<std::string> words = c.words;
            words.insert(words.end(), {"--json", "--db", b.db});
            const TRun run = RunTool(words);
            ASSERT_EQ(run.code, 0) << run.err;
            json lines = json::array();
            for (const auto& line : Lines(run.out)) lines.push_back(Parse(line));
            EXPECT_EQ(AllPages(*b.catalogue, c.question, c.params, 100), lines) << b.db << " " << c.words[1];
            EXPECT_EQ(AllPages(*b.catalogue, c.question, c.params, 1000), lines) << b.db << " " << c.words[1];
        }
        // The odd names are found exactly, each as one version of both of
        // pc-01's points: the second ingest knew every name again. Damaged
        // names that differ only in their lone surrogates stay apart, and
        // U+FFFD, which none of them holds, finds none.
        const struct {
            const char* q;
            std::vector<std::string> paths;
        } odd[] = {
            {"damaged", {R"(\Odd\damaged \ud800 name.txt)", R"(\Odd\damaged \udc00 name.txt)"}},
            {"damaged \xED\xB0\x80", {R"(\Odd\damaged \udc00 name.txt)"}},
            {"damaged \xEF\xBF\xBD", {}},
            {"inside", {R"(\Odd\torn \udbff\inside.txt)"}},
            {"\xF0\x9F\x98\x80", {"\\Odd\\photo \xF0\x9F\x98\x80 beach.jpg"}},
            {"100%", {"\\Odd\\100% done_v2.txt"}},
        };
        for (const auto& c : odd) {
            const json found = AllPages(*b.catalogue, "search", {{"q", c.q}}, 10);
            ASSERT_EQ(found.size(), c.paths.size()) << c.q << ": " << found.dump();
            for (size_t i = 0; i < found.size(); ++i) {
                EXPECT_EQ(found[i]["path"], c.paths[i]);
                EXPECT_EQ(found[i]["points"], json::array({1, 2})) << c.paths[i];
            }
        }
    }
}

TEST_F(WebApi, RefusesBadQuestionsWithTheRightStatus) {
    const std::string longText(3000, 'a');
    struct {
        std::string question;
        catalogue::TApiParams params;
        int status;
        std::string says;
    } cases[] = {
        {"search", {}, 400, "q is needed"},
        {"search", {{"q", "x"}, {"limit", "1001"}}, 400, "limit must be 1 to 1000"},
        {"search", {{"q", "x"}, {"limit", "0"}}, 400, "limit must be"},
        {"search", {{"q", "budget"}, {"after", "-1"}}, 400, "after '-1' is not a number"},
        {"search", {{"q", "budget"}, {"after", "99"}}, 400, "past the last result"},
        {"search", {{"q", "x"}, {"min-size", "1"}}, 400, "unknown parameter 'min-size'"},
        {"search", {{"q", "x"}, {"q", "y"}}, 400, "q is given twice"},
        {"search", {{"q", longText}}, 400, "longer than 2048 bytes"},
        {"search", {{"q", "x"}, {"min_size", "lots"}}, 400, "min_size 'lots' is not a size"},
        {"search", {{"q", "x"}, {"newer", "yesterday"}}, 400, "newer 'yesterday' is not a time"},
        {"search", {{"q", "x"}, {"at", "0"}}, 400, "at '0' is not a restore point id"},
        {"search", {{"q", "x"}, {"machine", "nobody"}}, 404, "no machine nobody"},
        {"search", {{"q", "x"}, {"at", "9"}}, 404, "no restore point 9"},
        {"versions", {{"path", "\\nowhere.txt"}}, 404, "no entry \\nowhere.txt"},
        {"ls", {{"machine", "pc-01"}}, 400, "at RP is needed"},
        {"ls", {{"machine", "pc-01"}, {"at", "3"}}, 404, "restore point 3 is not one of pc-01's"},
        {"ls", {{"machine", "pc-01"}, {"at", "1"}, {"path", "\\Shares"}}, 404, "has no folder"},
        {"changes", {{"machine", "pc-01"}, {"from", "1"}, {"to", "9"}}, 404, "no restore point 9"},
        {"tables", {}, 404, "no question /api/tables"},
        // Invalid UTF-8 in a parameter is quoted back as valid UTF-8.
        {"search", {{"q", "x"}, {"volume\xFF", "C:"}}, 400, "unknown parameter 'volume\xEF\xBF\xBD'"},
    };
    for (auto& b : BackEnds()) {
        for (const auto& c : cases) {
            const auto answer = catalogue::AnswerApi(*b.catalogue, c.question, c.params);
            EXPECT_EQ(answer.status, c.status) << c.question << ": " << answer.body;
            const json body = json::parse(answer.body);  // throws on anything but JSON
            EXPECT_NE(body.value("error", "").find(c.says), std::string::npos) << answer.body;
        }
    }
}

// A search holds at most so many versions: past that it stops and says so.
TEST_F(WebApi, ASearchStopsPastItsBound) {
    for (auto& b : BackEnds()) {
        const size_t all = b.catalogue->Search(u"log_", {}).size();
        ASSERT_GT(all, 200u);
        EXPECT_EQ(b.catalogue->Search(u"log_", {}, all).size(), all);
        EXPECT_THROW(b.catalogue->Search(u"log_", {}, all - 1), catalogue::CTooManyResults);
    }
}

// The server's connections cannot write, and request text is never SQL.
TEST_F(WebApi, ReadsOnlyAndTakesParametersAsText) {
    for (auto& b : BackEnds()) {
        for (const char* text : {"x' OR '1'='1", "'; DELETE FROM versions; --", "\\' OR 1=1 --", "%' --"}) {
            for (const char* name : {"q", "machine", "owner", "volume"}) {
                catalogue::TApiParams params = {{"q", "budget"}};
                params.erase(name);
                params.emplace(name, text);
                const auto answer = catalogue::AnswerApi(*b.catalogue, "search", params);
                EXPECT_TRUE(answer.status == 200 || answer.status == 404) << name << "=" << text << ": " << answer.body;
                if (answer.status == 200) {
                    EXPECT_EQ(json::parse(answer.body)["results"].size(), 0u) << text;
                }
            }
        }
        EXPECT_THROW(b.connection->Exec("DELETE FROM versions"), CExc) << b.db;
        EXPECT_THROW(b.connection->Exec("CREATE TABLE mine(x INTEGER)"), CExc) << b.db;
        auto count = b.connection->Prepare("SELECT count(*) FROM versions");
        ASSERT_TRUE(count->Step());
        EXPECT_GT(count->Int(0), 250);
    }
    // A SQLite file that is not there is not made.
    EXPECT_THROW(catalogue::OpenDatabaseReadOnly((m_Root.Native() / "none.sqlite").string()), CExc);
    EXPECT_FALSE(std::filesystem::exists(m_Root.Native() / "none.sqlite"));
}

}  // namespace
