#include "base/exc.h"

#include <gtest/gtest.h>

#include "base/buf.h"
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

TEST(CExc, EmptyDescriptionAndThreeArguments) {
    CExc e(u"x");
    EXPECT_EQ(CExc(u"%1/%2/%3", u"a", u"b", u"c", 5).GetDescription(), u"a/b/c");
    EXPECT_EQ(CExc(u"%1/%2", u"a", u"b").GetCode(), kHrFail);
    // A context that ends in CR LF followed by another gives one line end.
    e.AddContext(u"ctx %1\r\n", u"1");
    e.AddContextNumber(u"n=%1", -5);
    EXPECT_EQ(e.GetDescription(), u"n=-5\r\nctx 1\r\nx");
    // NTSTATUS values and HRESULTs are negative: kept.
    EXPECT_EQ(NormaliseCode(static_cast<int32_t>(0xC0000005)), static_cast<int32_t>(0xC0000005));
    EXPECT_EQ(NormaliseCode(0x10005), static_cast<int32_t>(0x80070005));
}

TEST(CExc, DescriptionOfNoMessagesIsEmpty) {
    struct CBare : CExc {
        CBare() : CExc(NoMessage{}, 0) {}
    };
    EXPECT_EQ(CBare().GetDescription(), u"");
}

TEST(CBuf, AllocateResizeAndAbsurdCounts) {
    CBuf<uint32_t> buf(4);
    EXPECT_EQ(buf.SizeInBytes(), 16u);
    buf.Zero();
    buf[3] = 7;
    buf.Resize(8);
    EXPECT_EQ(buf[3], 7u);
    buf.Reserve(2);  // never shrinks
    EXPECT_EQ(buf.Count(), 8u);
    CBuf<uint32_t> moved(std::move(buf));
    EXPECT_EQ(moved.Count(), 8u);
    EXPECT_EQ(buf.Count(), 0u);
    try {
        moved.Allocate(SIZE_MAX / 2);  // the byte size would wrap
        FAIL();
    } catch (const CExc& e) {
        EXPECT_EQ(e.GetDescription().rfind(u"Failed to allocate ", 0), 0u);
    }
    try {
        moved.Allocate(1);
        moved.Resize(SIZE_MAX / 2);
        FAIL();
    } catch (const CExc& e) {
        EXPECT_EQ(e.GetDescription().rfind(u"Cannot reallocate memory buffer. Requested size of the "
                                           u"buffer is ", 0),
                  0u);
    }
    EXPECT_EQ(moved.Count(), 1u);  // a failed growth keeps the block
}
