// The subcommands on an index written through CIndexBase, checked against
// the rows put in.
#include <algorithm>
#include <set>

#include "catalogue/testing/catalogue_test_util.h"
#include "catalogue/model/values.h"
#include "metafile/mtf_tree.h"

using namespace cattest;
using catalogue::IsoTime;

namespace {

constexpr uint64_t kT1 = Ft(1700000000), kT2 = Ft(1750000000), kT3 = Ft(1790000000);

class CatalogueCommands : public ::testing::Test {
protected:
    void SetUp() override {
        CIndexBuilder b(m_Dir, u"volume.C_.ifd");
        const uint32_t admins = b.Owner(u"S-1-5-32-544", u"Administrators", u"BUILTIN");
        const uint32_t alice = b.Owner(u"S-1-5-21-1-2-3-1001", u"alice", u"CORP");
        b.File(u"boot.ini", 211, kT1, admins);
        b.File(u"Users\\alice\\Documents\\report.docx", 50000, kT2, alice);
        b.File(u"Users\\alice\\Documents\\Notes.TXT", 12, kT3, alice);
        b.File(u"Users\\alice\\Документы\\отчёт.txt", 7, kT1, alice);
        b.File(u"Users\\Public\\readme.txt", 100, kT2, 0);
        b.File(u"Program Files\\App\\app.exe", 3000000, kT3, admins);
        b.Link(u"Documents and Settings", u"C:\\Users");
        b.Link(u"Users\\All Users", u"C:\\ProgramData");
        // The walk writes a link to a folder as a folder row and a reparse
        // row; the last folder of the index.
        b.Dir(u"Users\\alice-link");
        b.Link(u"Users\\alice-link", u"C:\\Users\\alice");
        m_File = b.Close();
    }

    std::set<std::string> FindSet(std::vector<std::string> words) {
        words.insert(words.begin(), {"find", m_File});
        const TRun run = RunTool(words);
        EXPECT_EQ(run.code, 0) << run.err;
        const auto lines = Lines(run.out);
        return std::set<std::string>(lines.begin(), lines.end());
    }

    ngitest::CTempDir m_Dir;
    std::string m_File;
};

TEST_F(CatalogueCommands, LsShowsFoldersFilesAndLinksWithOwners) {
    const auto lines = Lines(RunTool({"ls", m_File}).out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(lines[0].starts_with("dir ") && lines[0].ends_with(" Program Files\\")) << lines[0];
    EXPECT_TRUE(lines[1].ends_with(" Users\\")) << lines[1];
    EXPECT_EQ(lines[2], "file             211  " + IsoTime(kT1) + "  BUILTIN\\Administrators    boot.ini");
    EXPECT_TRUE(lines[3].starts_with("link ") && lines[3].ends_with(" Documents and Settings -> C:\\Users"));
}

TEST_F(CatalogueCommands, LsFindsTheFolderWithoutCaseAndEitherSeparator) {
    const auto lines = Lines(RunTool({"ls", m_File, "/users/ALICE/documents"}).out);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].find(" 12  " + IsoTime(kT3) + "  CORP\\alice") != std::string::npos) << lines[0];
    EXPECT_TRUE(lines[0].ends_with(" Notes.TXT"));  // sorted without case: N before r
    EXPECT_TRUE(lines[1].ends_with(" report.docx"));

    for (const char* folder : {"Program Files", "Program Files\\App", "Users", "Users\\alice", "Users\\Public",
                               "Users\\alice\\Documents", "Users\\alice\\Документы", "Users\\alice-link"})
        EXPECT_EQ(RunTool({"ls", m_File, folder}).code, 0) << folder;  // the last folder of the index too
    EXPECT_EQ(RunTool({"ls", m_File, "Users\\bob"}).code, 1);  // what it says: CatalogueProgram

    // A link to a folder is one entry of its folder; find sees both its rows.
    const auto users = Lines(RunTool({"ls", m_File, "Users"}).out);
    ASSERT_EQ(users.size(), 4u);  // alice, alice-link, Public, All Users
    EXPECT_TRUE(users[1].starts_with("link ") && users[1].ends_with(" alice-link\\ -> C:\\Users\\alice")) << users[1];
    EXPECT_EQ(RunTool({"find", m_File, "alice-link"}).out, "\\Users\\alice-link\\\n\\Users\\alice-link -> C:\\Users\\alice\n");
}

TEST_F(CatalogueCommands, TreeIndentsByLevelAndStopsAtTheDepth) {
    const auto lines = Lines(RunTool({"tree", m_File, "Users"}).out);
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[0], "\\Users");
    EXPECT_TRUE(lines[2].ends_with("   Documents\\") && lines[3].ends_with("     Notes.TXT")) << lines[2] << lines[3];
    EXPECT_TRUE(lines.back().ends_with(" All Users -> C:\\ProgramData")) << lines.back();
    // \Users, alice\, alice-link, Public\, All Users; then Documents\, Документы\, readme.txt
    EXPECT_EQ(Lines(RunTool({"tree", m_File, "Users", "--depth", "1"}).out).size(), 5u);
    EXPECT_EQ(Lines(RunTool({"tree", m_File, "Users", "--depth=2"}).out).size(), 8u);
}

TEST_F(CatalogueCommands, FindMatchesNamesWithoutCaseAndBounds) {
    EXPECT_EQ(FindSet({"*.TXT"}), (std::set<std::string>{"\\Users\\alice\\Documents\\Notes.TXT",
                                                         "\\Users\\alice\\Документы\\отчёт.txt",
                                                         "\\Users\\Public\\readme.txt"}));
    EXPECT_EQ(FindSet({"ОТЧЁТ*"}), (std::set<std::string>{"\\Users\\alice\\Документы\\отчёт.txt"}));
    EXPECT_EQ(FindSet({"*", "--min-size", "1K"}),
              (std::set<std::string>{"\\Users\\alice\\Documents\\report.docx", "\\Program Files\\App\\app.exe"}));
    EXPECT_EQ(FindSet({"*", "--max-size=100", "--newer", IsoTime(kT2)}),
              (std::set<std::string>{"\\Users\\Public\\readme.txt", "\\Users\\alice\\Documents\\Notes.TXT"}));
    EXPECT_EQ(FindSet({"*", "--older", IsoTime(kT2)}),
              (std::set<std::string>{"\\boot.ini", "\\Users\\alice\\Документы\\отчёт.txt"}));
    EXPECT_EQ(FindSet({"doc*", "--type", "d"}), (std::set<std::string>{"\\Users\\alice\\Documents\\"}));
    EXPECT_EQ(FindSet({"*users*", "--type", "l"}),
              (std::set<std::string>{"\\Users\\All Users -> C:\\ProgramData"}));
    EXPECT_EQ(FindSet({"\\users\\public\\*"}), (std::set<std::string>{"\\Users\\Public\\readme.txt"}));

    const TRun none = RunTool({"find", m_File, "*.pdf"});
    EXPECT_EQ(none.code, 1);
    EXPECT_EQ(none.out, "");
}

TEST_F(CatalogueCommands, ExportWritesEveryRowOnce) {
    const TRun csv = RunTool({"export", m_File, "--format", "csv"});
    ASSERT_EQ(csv.code, 0) << csv.err;
    const auto lines = Lines(csv.out);
    EXPECT_EQ(lines.size(), 1u + 9 + 6 + 3) << csv.out;  // the header, 9 folders (root too), 6 files, 3 links
    const std::set<std::string> set(lines.begin(), lines.end());
    EXPECT_TRUE(set.count("file,\\Users\\alice\\Documents\\report.docx,50000," + IsoTime(kT2, true) +
                          ",S-1-5-21-1-2-3-1001,CORP\\alice,"));
    EXPECT_TRUE(set.count("link,\\Users\\All Users,,,,,C:\\ProgramData"));

    const auto rows = Lines(RunTool({"export", m_File, "--format=jsonl"}).out);
    EXPECT_EQ(rows.size(), 9u + 6 + 3);
    EXPECT_TRUE(std::set<std::string>(rows.begin(), rows.end())
                    .count("{\"type\":\"file\",\"path\":\"\\\\boot.ini\",\"size\":211,\"mtime\":\"" + IsoTime(kT1, true) +
                           "\",\"owner_sid\":\"S-1-5-32-544\",\"owner_account\":\"BUILTIN\\\\Administrators\"}"));
}

TEST_F(CatalogueCommands, SummaryListsEachVolumeWithItsCounts) {
    auto summary = [&](const std::vector<std::pair<std::u16string, std::u16string>>& attributes) {
        std::filesystem::remove(m_Dir.Native() / "summary.txt");
        auto file = metafile::CMtfFile::Open(m_Dir.Path(u"summary.txt"), metafile::EMtfCreateNewDetached);
        for (const auto& [key, value] : attributes) file->SetAttribute(key, value);
        file->Save();
        return RunTool({"summary", m_Dir.Native().string()});
    };
    const TRun run = summary({{u"type", u"ifd"}, {u"volume.C", u"volume.C_.ifd"}, {u"volume.D", u"volume.D_.ifd"},
                              {u"Volumes.0.MountPointName", u"C"}, {u"Volumes.0.DataFileName", u"volume.C_.ifd"},
                              {u"Volumes.0.VolumeId", u"{0a1b2c3d-0000-0000-0000-000000000001}"},
                              {u"Volumes.1.MountPointName", u"D"}, {u"Volumes.1.DataFileName", u"volume.D_.ifd"}});
    EXPECT_EQ(run.code, 1);  // volume.D_.ifd is missing
    const auto lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 5u) << run.out;
    EXPECT_TRUE(lines[0].ends_with("summary.txt: 2 volumes, type ifd")) << lines[0];
    EXPECT_EQ(lines[1], "volume C: volume.C_.ifd  {0a1b2c3d-0000-0000-0000-000000000001}");
    EXPECT_EQ(lines[2], "  files 6, directories 9, owners 3, reparse points 3");
    EXPECT_EQ(lines[3], "volume D: volume.D_.ifd");
    EXPECT_EQ(lines[4], "  unreadable");
    EXPECT_NE(run.err.find("volume.D_.ifd"), std::string::npos) << run.err;

    // A legacy run writes the flat form only.
    const TRun legacy = summary({{u"volume.C", u"volume.C_.ifd"}});
    EXPECT_EQ(legacy.code, 0) << legacy.err;
    EXPECT_NE(legacy.out.find("volume C: volume.C_.ifd\n  files 6,"), std::string::npos) << legacy.out;
}

TEST_F(CatalogueCommands, UsageErrorsExitWithTwoAndHelpWithZero) {
    struct {
        std::vector<std::string> words;
        int code;
        const char* says;
    } cases[] = {
        {{}, 2, "Usage: ngi-catalogue COMMAND"},
        {{"--help"}, 0, "Usage: ngi-catalogue COMMAND"},
        {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
        {{"ls"}, 2, "missing arguments"},
        {{"ls", "a", "b", "c"}, 2, "too many arguments"},
        {{"ls", "--bogus", "x"}, 2, "unknown option '--bogus'"},
        {{"tree", "x", "--depth", "0"}, 2, "--depth needs"},
        {{"export", "x"}, 2, "--format csv|jsonl is required"},
        {{"check", "--help"}, 0, "Usage: ngi-catalogue check FILE"},
    };
    for (const auto& c : cases) {
        const TRun run = RunTool(c.words);
        EXPECT_EQ(run.code, c.code) << (c.words.empty() ? "" : c.words[0]);
        EXPECT_NE((c.code == 0 ? run.out : run.err).find(c.says), std::string::npos) << run.out << run.err;
    }
}

}  // namespace
