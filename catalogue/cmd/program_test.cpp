// The built program: exit codes, and results on standard output apart from
// errors on standard error.
#include "catalogue/testing/catalogue_test_util.h"
#include "testing/run_program.h"

using namespace cattest;

namespace {

// The program's path is quoted only when it holds a blank: the Windows
// shell drops the first and last quote of a line that starts with one.
std::string Tool(const std::string& args) {
    const std::string program = ngitest::ProgramBeside("ngi-catalogue");
    const std::string quote = program.find(' ') != std::string::npos ? "\"" : "";
    return quote + program + quote + " " + args;
}

TEST(CatalogueProgram, ExitCodesAndStreams) {
    ngitest::CTempDir dir;
    CIndexBuilder b(dir, u"volume.C_.ifd");
    b.File(u"Windows\\notepad.exe", 1000, Ft(1700000000));
    const std::string file = "\"" + b.Close() + "\"";
    struct {
        std::string args;
        int code;
        std::string out, err;  // the whole output (CR dropped); a text the errors hold
    } cases[] = {
        {"find " + file + " \"NOTEPAD.*\"", 0, "\\Windows\\notepad.exe\n", ""},
        {"ls " + file + " \"Program Files\"", 1, "", "no folder 'Program Files'"},
        {"tree " + file + " --depth x", 2, "", "Usage: ngi-catalogue tree"},
    };
    for (const auto& c : cases) {
        auto run = ngitest::RunProgram(Tool(c.args));
        std::erase(run.out, '\r');  // console output on Windows ends lines in CR LF
        EXPECT_EQ(run.exitCode, c.code) << c.args;
        EXPECT_EQ(run.out, c.out) << c.args;
        EXPECT_NE(run.err.find(c.err), std::string::npos) << c.args << ": " << run.err;
        if (c.err.empty()) {
            EXPECT_EQ(run.err, "");
        }
    }
}

// A closed pipe ends the program quietly, as it ends ls and find (a full
// disk is an error: scripts/test-catalogue.sh).
TEST(CatalogueProgram, AClosedPipeIsQuiet) {
    ngitest::CTempDir dir;
    CIndexBuilder b(dir, u"volume.C_.ifd");
    for (int i = 0; i < 20000; ++i) b.File(u"Data\\file-" + util::Utf8ToUtf16(std::to_string(i)) + u".txt", 5, Ft(1700000000));
    const std::string file = b.Close();
    const std::string err = (dir.Native() / "err").string(), code = (dir.Native() / "code").string();
    std::system(("(" + Tool("export \"" + file + "\" --format csv") + " 2>\"" + err + "\"; echo $? >\"" + code +
                 "\") | head -1 >/dev/null").c_str());
    EXPECT_EQ(dir.ReadFile("err"), "");
    EXPECT_EQ(dir.ReadFile("code"), "141\n");  // ended by SIGPIPE, as ls is
}

}  // namespace
