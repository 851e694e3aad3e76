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
    void SetUp() override { m_File = Write(m_Dir, u"volume.C_.ifd", false); }

    // The sample volume; `changed` gives its next version for diff.
    static std::string Write(const ngitest::CTempDir& dir, const std::u16string& name, bool changed) {
        CIndexBuilder b(dir, name);
        const uint32_t admins = b.Owner(u"S-1-5-32-544", u"Administrators", u"BUILTIN");
        const uint32_t alice = b.Owner(u"S-1-5-21-1-2-3-1001", u"alice", u"CORP");
        b.File(u"boot.ini", 211, kT1, admins);
        b.File(u"Users\\alice\\Documents\\report.docx", changed ? 51000 : 50000, kT2, alice);
        if (!changed) b.File(u"Users\\alice\\Documents\\Notes.TXT", 12, kT3, alice);
        b.File(u"Users\\alice\\Документы\\отчёт.txt", 7, kT1, alice);
        b.File(u"Users\\Public\\readme.txt", 100, changed ? kT3 : kT2, 0);
        b.File(u"Program Files\\App\\app.exe", 3000000, kT3, changed ? alice : admins);
        if (changed) b.File(u"Users\\Public\\new.txt", 5, kT3, 0);
        if (changed) b.Dir(u"Temp");
        b.Link(u"Documents and Settings", changed ? u"D:\\Users" : u"C:\\Users");
        b.Link(u"Users\\All Users", u"C:\\ProgramData");
        return b.Close();
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
    const TRun run = RunTool({"ls", m_File});
    ASSERT_EQ(run.code, 0) << run.err;
    const auto lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 4u) << run.out;
    EXPECT_TRUE(lines[0].starts_with("dir ") && lines[0].ends_with(" Program Files\\")) << lines[0];
    EXPECT_TRUE(lines[1].ends_with(" Users\\")) << lines[1];
    EXPECT_EQ(lines[2], "file             211  " + IsoTime(kT1) + "  BUILTIN\\Administrators    boot.ini");
    EXPECT_TRUE(lines[3].starts_with("link ") && lines[3].ends_with(" Documents and Settings -> C:\\Users"));
}

TEST_F(CatalogueCommands, LsFindsTheFolderWithoutCaseAndEitherSeparator) {
    const TRun run = RunTool({"ls", m_File, "/users/ALICE/documents"});
    ASSERT_EQ(run.code, 0) << run.err;
    const auto lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].find(" 12  " + IsoTime(kT3) + "  CORP\\alice") != std::string::npos) << lines[0];
    EXPECT_TRUE(lines[0].ends_with(" Notes.TXT"));  // sorted without case: N before r
    EXPECT_TRUE(lines[1].ends_with(" report.docx"));

    for (const char* folder : {"Program Files", "Program Files\\App", "Users", "Users\\alice", "Users\\Public",
                               "Users\\alice\\Documents", "Users\\alice\\Документы"})
        EXPECT_EQ(RunTool({"ls", m_File, folder}).code, 0) << folder;  // the last folder of the index too

    const TRun missing = RunTool({"ls", m_File, "Users\\bob"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_NE(missing.err.find("no folder 'Users\\bob'"), std::string::npos) << missing.err;
}

TEST_F(CatalogueCommands, TreeIndentsByLevelAndStopsAtTheDepth) {
    const TRun all = RunTool({"tree", m_File, "Users"});
    ASSERT_EQ(all.code, 0) << all.err;
    const auto lines = Lines(all.out);
    ASSERT_EQ(lines.size(), 10u) << all.out;
    EXPECT_EQ(lines[0], "\\Users");
    EXPECT_TRUE(lines[1].ends_with(" alice\\")) << lines[1];
    EXPECT_TRUE(lines[2].ends_with("   Documents\\")) << lines[2];
    EXPECT_TRUE(lines[3].ends_with("     Notes.TXT")) << lines[3];
    EXPECT_TRUE(lines.back().ends_with(" All Users -> C:\\ProgramData")) << lines.back();

    const TRun one = RunTool({"tree", m_File, "Users", "--depth", "1"});
    ASSERT_EQ(one.code, 0) << one.err;
    EXPECT_EQ(Lines(one.out).size(), 4u) << one.out;  // \Users, alice\, Public\, All Users
    const TRun two = RunTool({"tree", m_File, "Users", "--depth=2"});
    EXPECT_EQ(Lines(two.out).size(), 7u) << two.out;  // + Documents\, Документы\, readme.txt
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
    EXPECT_EQ(lines[0], "type,path,size,mtime,owner_sid,owner_account,target");
    // 8 folders (root too), 6 files, 2 links.
    EXPECT_EQ(lines.size(), 1u + 8 + 6 + 2) << csv.out;
    const std::set<std::string> set(lines.begin(), lines.end());
    EXPECT_TRUE(set.count("dir,\\,,,,,"));
    EXPECT_TRUE(set.count("dir,\\Users\\alice\\Документы,,,,,"));
    EXPECT_TRUE(set.count("file,\\Users\\alice\\Documents\\report.docx,50000," + IsoTime(kT2, true) +
                          ",S-1-5-21-1-2-3-1001,CORP\\alice,"));
    EXPECT_TRUE(set.count("file,\\Users\\Public\\readme.txt,100," + IsoTime(kT2, true) + ",S-1-0-0,,"));
    EXPECT_TRUE(set.count("link,\\Users\\All Users,,,,,C:\\ProgramData"));

    const TRun json = RunTool({"export", m_File, "--format=jsonl"});
    ASSERT_EQ(json.code, 0) << json.err;
    const auto rows = Lines(json.out);
    EXPECT_EQ(rows.size(), 8u + 6 + 2);
    const std::set<std::string> jset(rows.begin(), rows.end());
    EXPECT_TRUE(jset.count("{\"type\":\"file\",\"path\":\"\\\\boot.ini\",\"size\":211,\"mtime\":\"" +
                           IsoTime(kT1, true) +
                           "\",\"owner_sid\":\"S-1-5-32-544\",\"owner_account\":\"BUILTIN\\\\Administrators\"}"))
        << json.out;
    EXPECT_TRUE(jset.count("{\"type\":\"link\",\"path\":\"\\\\Documents and Settings\",\"target\":\"C:\\\\Users\"}"));
}

TEST_F(CatalogueCommands, DiffReportsAddedRemovedAndChanged) {
    const std::string newer = Write(m_Dir, u"volume.C_.new.ifd", true);
    const TRun run = RunTool({"diff", m_File, newer});
    ASSERT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(Lines(run.out),
              (std::vector<std::string>{
                  "~ \\Documents and Settings  target C:\\Users -> D:\\Users",
                  "~ \\Program Files\\App\\app.exe  owner S-1-5-32-544 -> S-1-5-21-1-2-3-1001",
                  "+ \\Temp\\",
                  "- \\Users\\alice\\Documents\\Notes.TXT",
                  "~ \\Users\\alice\\Documents\\report.docx  size 50000 -> 51000",
                  "+ \\Users\\Public\\new.txt",
                  "~ \\Users\\Public\\readme.txt  time " + IsoTime(kT2, true) + " -> " + IsoTime(kT3, true),
                  "# 2 added, 1 removed, 4 changed",
              }));
    const TRun same = RunTool({"diff", m_File, m_File});
    EXPECT_EQ(same.out, "# 0 added, 0 removed, 0 changed\n");
}

TEST_F(CatalogueCommands, SummaryListsEachVolumeWithItsCounts) {
    {
        auto file = metafile::CMtfFile::Open(m_Dir.Path(u"summary.txt"), metafile::EMtfCreateNewDetached);
        file->SetAttribute(u"type", u"ifd");
        file->SetAttribute(u"volume.C", u"volume.C_.ifd");
        file->SetAttribute(u"volume.D", u"volume.D_.ifd");
        file->SetAttribute(u"Volumes.0.MountPointName", u"C");
        file->SetAttribute(u"Volumes.0.DataFileName", u"volume.C_.ifd");
        file->SetAttribute(u"Volumes.0.VolumeId", u"{0a1b2c3d-0000-0000-0000-000000000001}");
        file->SetAttribute(u"Volumes.1.MountPointName", u"D");
        file->SetAttribute(u"Volumes.1.DataFileName", u"volume.D_.ifd");
        file->Save();
    }
    const TRun run = RunTool({"summary", m_Dir.Native().string()});
    EXPECT_EQ(run.code, 1);  // volume.D_.ifd is missing
    const auto lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 5u) << run.out;
    EXPECT_TRUE(lines[0].ends_with("summary.txt: 2 volumes, type ifd")) << lines[0];
    EXPECT_EQ(lines[1], "volume C: volume.C_.ifd  {0a1b2c3d-0000-0000-0000-000000000001}");
    EXPECT_EQ(lines[2], "  files 6, directories 8, owners 3, reparse points 2");
    EXPECT_EQ(lines[3], "volume D: volume.D_.ifd");
    EXPECT_EQ(lines[4], "  unreadable");
    EXPECT_NE(run.err.find("volume.D_.ifd"), std::string::npos) << run.err;

    const TRun missing = RunTool({"summary", (m_Dir.Native() / "nowhere").string()});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("summary.txt"), std::string::npos) << missing.err;
}

TEST_F(CatalogueCommands, SummaryOfALegacyRunReadsTheFlatForm) {
    {
        auto file = metafile::CMtfFile::Open(m_Dir.Path(u"summary.txt"), metafile::EMtfCreateNewDetached);
        file->SetAttribute(u"volume.C", u"volume.C_.ifd");
        file->Save();
    }
    const TRun run = RunTool({"summary", m_Dir.Native().string()});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.out.find("volume C: volume.C_.ifd\n  files 6,"), std::string::npos) << run.out;
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
        {{"tree", "x", "--depth"}, 2, "needs a value"},
        {{"find", "x", "*", "--min-size", "lots"}, 2, "--min-size needs"},
        {{"find", "x", "*", "--newer", "2026-02-30"}, 2, "--newer needs"},
        {{"find", "x", "*", "--type", "z"}, 2, "--type takes"},
        {{"export", "x"}, 2, "--format csv|jsonl is required"},
        {{"export", "x", "--format", "xml"}, 2, "--format takes"},
        {{"check", "--help"}, 0, "Usage: ngi-catalogue check FILE"},
        {{"diff", "-h"}, 0, "Usage: ngi-catalogue diff OLD NEW"},
    };
    for (const auto& c : cases) {
        const TRun run = RunTool(c.words);
        EXPECT_EQ(run.code, c.code) << (c.words.empty() ? "" : c.words[0]);
        EXPECT_NE((c.code == 0 ? run.out : run.err).find(c.says), std::string::npos) << run.out << run.err;
    }
}

TEST_F(CatalogueCommands, AMissingFileIsAFailureNamingIt) {
    const TRun run = RunTool({"ls", (m_Dir.Native() / "volume.Q_.ifd").string()});
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("volume.Q_.ifd"), std::string::npos) << run.err;
}

}  // namespace

namespace {

// The walk writes a link to a folder as a folder row and a reparse row.
TEST(CatalogueLinks, AFolderLinkListsAsOneEntry) {
    ngitest::CTempDir dir;
    CIndexBuilder b(dir, u"v.ifd");
    b.Dir(u"Users\\alice");
    b.Dir(u"Users\\alice-link");
    b.Link(u"Users\\alice-link", u"C:\\Users\\alice");
    const std::string file = b.Close();
    const TRun run = RunTool({"ls", file, "Users"});
    ASSERT_EQ(run.code, 0) << run.err;
    const auto lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 2u) << run.out;
    EXPECT_TRUE(lines[0].starts_with("dir ") && lines[0].ends_with(" alice\\")) << lines[0];
    EXPECT_TRUE(lines[1].starts_with("link ") && lines[1].ends_with(" alice-link\\ -> C:\\Users\\alice")) << lines[1];
    // find still sees both rows.
    EXPECT_EQ(RunTool({"find", file, "alice-link"}).out, "\\Users\\alice-link\\\n\\Users\\alice-link -> C:\\Users\\alice\n");
}

}  // namespace
