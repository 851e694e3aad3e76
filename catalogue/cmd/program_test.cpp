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
    const bool blank = program.find(' ') != std::string::npos;
    std::string line;
    if (blank) line.push_back('"');
    line.append(program);
    if (blank) line.push_back('"');
    line.push_back(' ');
    line.append(args);
    return line;
}

// Console output on Windows ends lines in CR LF.
std::string NoCr(std::string text) {
    std::erase(text, '\r');
    return text;
}

TEST(CatalogueProgram, ExitCodesAndStreams) {
    ngitest::CTempDir dir;
    CIndexBuilder b(dir, u"volume.C_.ifd");
    b.File(u"Windows\\notepad.exe", 1000, Ft(1700000000));
    const std::string file = b.Close();

    const auto good = ngitest::RunProgram(Tool("find \"" + file + "\" \"NOTEPAD.*\""));
    EXPECT_EQ(good.exitCode, 0) << good.err;
    EXPECT_EQ(NoCr(good.out), "\\Windows\\notepad.exe\n");
    EXPECT_EQ(good.err, "");

    const auto missing = ngitest::RunProgram(Tool("ls \"" + file + "\" \"Program Files\""));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_NE(missing.err.find("no folder 'Program Files'"), std::string::npos) << missing.err;

    std::vector<uint8_t> bytes = ReadBytes(file);
    bytes.resize(bytes.size() - 3);
    const std::string cut = (dir.Native() / "cut.ifd").string();
    WriteBytes(cut, bytes);
    const auto damaged = ngitest::RunProgram(Tool("check \"" + cut + "\""));
    EXPECT_EQ(damaged.exitCode, 1);
    EXPECT_EQ(damaged.out, "");
    EXPECT_NE(damaged.err.find("cut.ifd"), std::string::npos) << damaged.err;
    EXPECT_NE(damaged.err.find("offset 0x"), std::string::npos) << damaged.err;

    const auto usage = ngitest::RunProgram(Tool("tree \"" + file + "\" --depth x"));
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_NE(usage.err.find("Usage: ngi-catalogue tree"), std::string::npos) << usage.err;

    const auto help = ngitest::RunProgram(Tool("export --help"));
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("Usage: ngi-catalogue export"), std::string::npos);
}

}  // namespace

namespace {

// Output that cannot be written is an error with the system's message; a
// closed pipe ends the program quietly, as it ends ls and find.
TEST(CatalogueProgram, FullDiskIsAnErrorAndAClosedPipeIsQuiet) {
    ngitest::CTempDir dir;
    CIndexBuilder b(dir, u"volume.C_.ifd");
    for (int i = 0; i < 20000; ++i) b.File(u"Data\\file-" + util::Utf8ToUtf16(std::to_string(i)) + u".txt", 5, Ft(1700000000));
    const std::string file = b.Close();
    const std::string err = (dir.Native() / "err").string(), code = (dir.Native() / "code").string();
    const std::string exportLine = Tool("export \"" + file + "\" --format csv");

    const int full = std::system((exportLine + " >/dev/full 2>\"" + err + "\"").c_str());
    EXPECT_NE(full, 0);
    EXPECT_NE(dir.ReadFile("err").find("ngi-catalogue: cannot write standard output: No space left on device"),
              std::string::npos)
        << dir.ReadFile("err");

    std::system(("(" + exportLine + " 2>\"" + err + "\"; echo $? >\"" + code + "\") | head -1 >/dev/null").c_str());
    EXPECT_EQ(dir.ReadFile("err"), "");
    EXPECT_EQ(dir.ReadFile("code"), "141\n");  // ended by SIGPIPE, as ls is
}

}  // namespace
