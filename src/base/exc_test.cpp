#include "base/exc.h"

#include <gtest/gtest.h>

#include "base/format.h"

TEST(FormatMessageArgs, Table) {
    struct Case {
        std::u16string format;
        std::u16string expected;
    } cases[] = {
        {u"%1 fail.", u"a fail."},
        {u"100%", u"100%"},
        {u"%2-%1-%1", u"b-a-a"},
        {u"%3 stays", u"%3 stays"},
        {u"%0", u"%0"},
        {u"%%1", u"%a"},
        {u"x% 2y", u"xby"},
        {u"%-1", u"%-1"},
        {u"%+2", u"b"},
        {u"%x", u"%x"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(FormatMessageArgs(c.format, {u"a", u"b"}), c.expected);
    EXPECT_EQ(FormatMessageArgs(u"%1 fail.", {}), u"%1 fail.");
    EXPECT_EQ(FormatMessageArgs(u"%1", {u"%1"}), u"%1");  // not rescanned
}

TEST(CExc, CodeNormalisation) {
    EXPECT_EQ(CExc(u"m", 5).GetCode(), static_cast<int32_t>(0x80070005));
    EXPECT_EQ(CExc(u"m", kHrFail).GetCode(), kHrFail);
    EXPECT_EQ(CExc(u"m", 0).GetCode(), 0);
    EXPECT_EQ(CExc(u"m", 0x12345).GetCode(), static_cast<int32_t>(0x80072345));
    EXPECT_EQ(CExc(u"m").GetCode(), kHrFail);
}

TEST(CExc, DescriptionOrderAndLineEnds) {
    CExc e(u"Cannot open volume: [%1].", u"C:");
    e.AddFailContext(u"IndexVolumesOptimized");
    EXPECT_EQ(e.GetDescription(),
              u"IndexVolumesOptimized fail.\r\nCannot open volume: [C:].");

    CExc f(u"deep\r\n");
    f.AddMessage(u"outer\r\n");
    EXPECT_EQ(f.GetDescription(), u"outer\r\ndeep");
}

TEST(CExc, CloneAndRethrowKeepType) {
    indexer::CRecursionBreakExc e(u"limit");
    e.AddMessage(u"ctx");
    std::shared_ptr<CExc> copy = e.Clone();
    try {
        copy->Rethrow();
        FAIL();
    } catch (const indexer::CRecursionBreakExc& r) {
        EXPECT_EQ(r.GetDescription(), u"ctx\r\nlimit");
    }
}

TEST(CExc, FromStdException) {
    std::runtime_error r("boom");
    EXPECT_EQ(CExc(r).GetDescription(), u"boom");
}

TEST(Format, Numbers) {
    EXPECT_EQ(util::Hex16(0x1234), u"0000000000001234");
    EXPECT_EQ(util::Hex8(0xABC), u"00000abc");
    EXPECT_EQ(util::HexCode(0x80004005u), u"0x80004005");
    EXPECT_EQ(util::ToStr(-7), u"-7");
    EXPECT_EQ(util::ToStrU64(18446744073709551615ull), u"18446744073709551615");
}
