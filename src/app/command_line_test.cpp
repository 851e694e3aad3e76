#include "app/command_line.h"

#include <gtest/gtest.h>

#include "base/exc.h"

namespace {

using indexer::CCommandLine;

const std::set<std::u16string> kValueOptions{u"log", u"opt", u"parse_fs"};

CCommandLine Parse(std::vector<std::u16string> args) {
    args.insert(args.begin(), u"NorvaGuestIndexer");
    return CCommandLine(args, kValueOptions);
}

// What main takes from the command line: each value, then the output
// directory and the check for leftovers. The first failure's text, or "ok".
struct TOutcome {
    std::u16string log, opt, parseFs, outputDir, error;
    bool empty = false;
};

TOutcome TakeAll(const std::vector<std::u16string>& args) {
    TOutcome o;
    try {
        CCommandLine cl = Parse(args);
        o.empty = cl.IsEmpty();
        o.log = cl.GetKeyValue(u"log");
        o.opt = cl.GetKeyValue(u"opt");
        o.parseFs = cl.GetKeyValue(u"parse_fs");
        o.outputDir = cl.GetNextArgument();
        cl.CheckEmpty();
        o.error = u"ok";
    } catch (const CExc& e) {
        EXPECT_EQ(e.GetCode(), kHrFail);
        o.error = e.GetDescription();
    }
    return o;
}

TEST(CCommandLine, Table) {
    struct Case {
        std::vector<std::u16string> args;
        std::u16string error;
        std::u16string outputDir;
    } cases[] = {
        {{u"-log", u"L", u"-opt", u"yes", u"-parse_fs", u"no", u"X"}, u"ok", u"X"},
        {{u"-OPT", u"yes", u"X"}, u"ok", u"X"},
        {{u"X", u"-log", u"L"}, u"ok", u"X"},
        {{u""}, u"ok", u""},  // an empty argument is a positional one
        {{u"-log", u"a", u"-log", u"b", u"out"}, u"Command line already has key: [log].", u""},
        {{u"-opt", u"-x", u"out"}, u"No value for key: [opt].", u""},
        {{u"-x", u"-X", u"out"}, u"Command line already has flag: [x].", u""},
        {{u"out1", u"out2"}, u"Unexpected parameters in the command line.", u""},
        {{u"-parseFS", u"no", u"X"}, u"Unexpected parameters in the command line.", u""},
        {{u"-", u"X"}, u"Unexpected parameters in the command line.", u""},
        {{u"-log", u"L"}, u"Command line error: Additional argument expected.", u""},
        {{u"X", u"-opt"}, u"ok", u"X"},  // a trailing value option is dropped
    };
    for (const auto& c : cases) {
        TOutcome o = TakeAll(c.args);
        EXPECT_EQ(o.error, c.error) << std::string(o.error.begin(), o.error.end());
        if (c.error == u"ok") {
            EXPECT_EQ(o.outputDir, c.outputDir);
        }
    }
}

TEST(CCommandLine, ValuesKeepTheirCaseAndAreTakenOnce) {
    CCommandLine cl = Parse({u"-OPT", u"YES", u"-Log", u"C:\\Logs", u"X"});
    EXPECT_FALSE(cl.IsEmpty());
    EXPECT_EQ(cl.GetKeyValue(u"opt"), u"YES");
    EXPECT_EQ(cl.GetKeyValue(u"opt"), u"");  // removed
    EXPECT_EQ(cl.GetKeyValue(u"log"), u"C:\\Logs");
    EXPECT_EQ(cl.GetNextArgument(), u"X");
    EXPECT_TRUE(cl.IsEmpty());
    EXPECT_EQ(cl.GetNextArgumentOrEmpty(), u"");
}

TEST(CCommandLine, EmptyCases) {
    EXPECT_TRUE(Parse({}).IsEmpty());
    EXPECT_TRUE(Parse({u"-opt"}).IsEmpty());
    EXPECT_FALSE(Parse({u"-"}).IsEmpty());
    CCommandLine flags = Parse({u"-Verbose", u"-"});
    EXPECT_TRUE(flags.IsFlagSet(u"verbose"));
    EXPECT_FALSE(flags.IsFlagSet(u"verbose"));
    EXPECT_FALSE(flags.IsEmpty());
    EXPECT_TRUE(flags.IsFlagSet(u""));
    EXPECT_TRUE(flags.IsEmpty());
    flags.CheckEmpty();
}

}  // namespace
