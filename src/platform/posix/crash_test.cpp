#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/crash.h"
#include "platform/errors.h"
#include "platform/posix/crash_core.h"

namespace platform {
namespace {

TEST(SplitCommandLineTest, WindowsRules) {
    using V = std::vector<std::string>;
    const struct {
        std::u16string line;
        V args;
    } cases[] = {
        {u"a b  c", V{"a", "b", "c"}},
        {u"\"a b\" c", V{"a b", "c"}},
        {u"\"\" x", V{"", "x"}},
        {u"a\\b \\\\server", V{"a\\b", "\\\\server"}},   // backslashes alone are literal
        {u"\"C:\\dir\\\" x", V{"C:\\dir\" x"}},          // \" is a quote inside the argument
        {u"\"C:\\dir\\\\\" x", V{"C:\\dir\\", "x"}},     // \\" is one backslash, then the quote
        {u"a\\\\\\\"b", V{"a\\\"b"}},                    // \\\" : one backslash and a quote
        {u"\"say \"\"hi\"\"\"", V{"say \"hi\""}},        // "" inside quotes
        {u"  ", V{}},
        {u"\u00e9t\u00e9", V{"\xc3\xa9t\xc3\xa9"}},
    };
    for (const auto& c : cases) EXPECT_EQ(posix::SplitCommandLine(c.line), c.args);
}

TEST(ProcessStartTest, ExitCodesAndSignals) {
    const std::pair<std::u16string, uint32_t> cases[] = {
        {u"sh -c \"exit 7\"", 7},
        {u"sh -c \"kill -9 $$\"", 128 + SIGKILL},
        {u"sh -c \"[ \\\"$1\\\" = 'a b' ]\" sh \"a b\"", 0},
    };
    for (const auto& [line, code] : cases) {
        TChildProcess process;
        ASSERT_TRUE(ProcessStart(u"/bin/sh", kInvalidHandle, line, process));
        uint32_t exitCode = 99;
        EXPECT_FALSE(ProcessGetExitCode(process, &exitCode)) << "not waited yet";
        ASSERT_TRUE(ProcessWait(process));
        ASSERT_TRUE(ProcessGetExitCode(process, &exitCode));
        EXPECT_EQ(exitCode, code);
    }
}

TEST(ProcessStartTest, MissingProgramFailsAtStart) {
    TChildProcess process;
    EXPECT_FALSE(ProcessStart(u"/nonexistent/program", kInvalidHandle, u"program", process));
    EXPECT_EQ(GetLastError(), kErrFileNotFound);
    EXPECT_EQ(process.id, 0);
}

}  // namespace
}  // namespace platform
