#include "base/exc.h"

#include <gtest/gtest.h>

#include "base/buf.h"
#include "base/format.h"

TEST(FormatMessageArgs, Table) {
    struct Case {
        std::u16string format, expected;
    } cases[] = {
        {u"100%", u"100%"}, {u"%2-%1-%1", u"b-a-a"}, {u"%3 stays", u"%3 stays"}, {u"%0", u"%0"},
        {u"%%1", u"%a"},    {u"x% 2y", u"xby"},      {u"%-1", u"%-1"},           {u"%+2", u"b"},
    };
    for (const auto& c : cases) EXPECT_EQ(FormatMessageArgs(c.format, {u"a", u"b"}), c.expected);
    EXPECT_EQ(FormatMessageArgs(u"%1 fail.", {}), u"%1 fail.");
    EXPECT_EQ(FormatMessageArgs(u"%1", {u"%1"}), u"%1");  // not rescanned
}

TEST(CExc, CodesAndDescriptions) {
    EXPECT_EQ(CExc(u"m", 5).GetCode(), static_cast<int32_t>(0x80070005));
    EXPECT_EQ(CExc(u"m", 0).GetCode(), 0);
    EXPECT_EQ(CExc(u"m", 0x12345).GetCode(), static_cast<int32_t>(0x80072345));
    EXPECT_EQ(CExc(u"m").GetCode(), kHrFail);
    // NTSTATUS values and HRESULTs are negative: kept.
    EXPECT_EQ(NormaliseCode(static_cast<int32_t>(0xC0000005)), static_cast<int32_t>(0xC0000005));
    EXPECT_EQ(CExc(u"%1/%2/%3", u"a", u"b", u"c", 5).GetDescription(), u"a/b/c");
    CExc e(u"Cannot open volume: [%1].", u"C:");
    e.AddFailContext(u"IndexVolumesOptimized");
    EXPECT_EQ(e.GetDescription(), u"IndexVolumesOptimized fail.\r\nCannot open volume: [C:].");
    // A context that ends in CR LF followed by another gives one line end.
    CExc f(u"x\r\n");
    f.AddContext(u"ctx %1\r\n", u"1");
    f.AddContextNumber(u"n=%1", -5);
    EXPECT_EQ(f.GetDescription(), u"n=-5\r\nctx 1\r\nx");
    EXPECT_EQ(CExc(std::runtime_error("boom")).GetDescription(), u"boom");
}

TEST(CExc, CloneAndRethrowKeepType) {
    indexer::CRecursionBreakExc e(u"limit");
    e.AddMessage(u"ctx");
    EXPECT_THROW(e.Clone()->Rethrow(), indexer::CRecursionBreakExc);
}

TEST(Format, Numbers) {
    EXPECT_EQ(util::Hex16(0x1234), u"0000000000001234");
    EXPECT_EQ(util::Hex8(0xABC), u"00000abc");
    EXPECT_EQ(util::HexCode(0x80004005u), u"0x80004005");
    EXPECT_EQ(util::ToStrU64(18446744073709551615ull), u"18446744073709551615");
}

TEST(CBuf, ResizeKeepsContentsAndAbsurdCountsThrow) {
    CBuf<uint32_t> buf(4);
    buf.Zero();
    buf[3] = 7;
    buf.Resize(8);
    EXPECT_EQ(buf[3], 7u);
    buf.Reserve(2);  // never shrinks
    EXPECT_EQ(buf.Count(), 8u);
    EXPECT_THROW(buf.Allocate(SIZE_MAX / 2), CExc);  // the byte size would wrap
    buf.Allocate(1);
    EXPECT_THROW(buf.Resize(SIZE_MAX / 2), CExc);
    EXPECT_EQ(buf.Count(), 1u);  // a failed growth keeps the block
}
