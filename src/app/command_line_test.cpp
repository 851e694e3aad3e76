#include "app/command_line.h"

#include <gtest/gtest.h>

#include "base/exc.h"

namespace {

// What main takes from the command line: the options' values, then the
// output directory and the check for leftovers.
struct TOutcome {
    bool empty = false;
    std::u16string opt, outputDir, error = u"ok";
};

TOutcome TakeAll(std::vector<std::u16string> args) {
    args.insert(args.begin(), u"NorvaGuestIndexer");
    TOutcome o;
    try {
        indexer::CCommandLine cl(args, {u"log", u"opt", u"parse_fs"});
        o.empty = cl.IsEmpty();
        o.opt = cl.GetKeyValue(u"opt");
        cl.GetKeyValue(u"log");
        cl.GetKeyValue(u"parse_fs");
        o.outputDir = cl.GetNextArgument();
        cl.CheckEmpty();
    } catch (const CExc& e) {
        EXPECT_EQ(e.GetCode(), kHrFail);
        o.error = e.GetDescription();
    }
    return o;
}

TEST(CCommandLine, Table) {
    struct Case {
        std::vector<std::u16string> args;
        std::u16string error, outputDir, opt;
        bool empty;
    } cases[] = {
        {{u"-log", u"L", u"-opt", u"yes", u"-parse_fs", u"no", u"X"}, u"ok", u"X", u"yes", false},
        {{u"-OPT", u"YES", u"X"}, u"ok", u"X", u"YES", false},  // names fold, values keep their case
        {{u"X", u"-log", u"L"}, u"ok", u"X", u"", false},
        {{u""}, u"ok", u"", u"", false},  // an empty argument is a positional one
        {{u"X", u"-opt"}, u"ok", u"X", u"", false},  // a trailing value option is dropped
        {{}, u"Command line error: Additional argument expected.", u"", u"", true},
        {{u"-opt"}, u"Command line error: Additional argument expected.", u"", u"", true},
        {{u"-log", u"L"}, u"Command line error: Additional argument expected.", u"", u"", false},
        {{u"-log", u"a", u"-log", u"b", u"out"}, u"Command line already has key: [log].", u"", u"", false},
        {{u"-opt", u"-x", u"out"}, u"No value for key: [opt].", u"", u"", false},
        {{u"-x", u"-X", u"out"}, u"Command line already has flag: [x].", u"", u"", false},
        {{u"out1", u"out2"}, u"Unexpected parameters in the command line.", u"out1", u"", false},
        {{u"-parseFS", u"no", u"X"}, u"Unexpected parameters in the command line.", u"no", u"", false},
        {{u"-", u"X"}, u"Unexpected parameters in the command line.", u"X", u"", false},
    };
    for (const auto& c : cases) {
        const TOutcome o = TakeAll(c.args);
        SCOPED_TRACE(std::string(o.error.begin(), o.error.end()));
        EXPECT_EQ(o.error, c.error);
        EXPECT_EQ(o.empty, c.empty);
        EXPECT_EQ(o.opt, c.opt);
        EXPECT_EQ(o.outputDir, c.outputDir);
    }
}

}  // namespace
