// The log core: levels, line cutting, depth, exceptions, blocks.

#include "diag/log.h"

#include <gtest/gtest.h>

#include "testing/log_capture.h"

namespace {

using ngitest::CMemoryLogWriter;

struct CLogFixture : ::testing::Test {
    CLog log;
    std::shared_ptr<CMemoryLogWriter> writer = std::make_shared<CMemoryLogWriter>();
    CLogFixture() { log.SetWriter(writer); }
    std::vector<std::u16string> Texts() const {
        std::vector<std::u16string> out;
        for (const auto& l : writer->m_Lines) out.push_back(l.text);
        return out;
    }
};

TEST_F(CLogFixture, ThresholdAndNoWriter) {
    CLog silent;
    EXPECT_FALSE(silent.IsEnabled(LogError));  // no writer: nothing is enabled
    log.SetLevel(LogWarning);
    log.Info(u"hidden");
    log.Warning(u"shown %1", u"w");
    log.SuspendLogging();
    log.Error(u"hidden");
    log.RestoreLogging();
    EXPECT_EQ(log.GetLevel(), LogWarning);
    log.Error(u"%2%1", u"a", u"b");
    EXPECT_EQ(Texts(), (std::vector<std::u16string>{u"shown w", u"ba"}));
    EXPECT_EQ(writer->m_Lines[1].level, LogError);
}

TEST_F(CLogFixture, MessagesAreCutAtLineEnds) {
    log.Detail(u"one\r\ntwo\nthree\r\n");
    log.Detail(u"a\n\nb");
    log.Detail(u"");
    EXPECT_EQ(Texts(), (std::vector<std::u16string>{u"one", u"two", u"three", u"a", u"", u"b", u""}));
}

TEST_F(CLogFixture, ExceptionLinesOneStepDeeper) {
    CExc e(u"deep cause");
    e.AddContext(u"middle\r\nof two lines");
    e.AddFailContext(u"Outer");
    log.IncDepth();
    log.LogException(u"Lead text", e);
    ASSERT_EQ(writer->m_Lines.size(), 5u);
    EXPECT_EQ(Texts(), (std::vector<std::u16string>{u"Lead text", u"Outer fail.", u"middle",
                                                     u"of two lines", u"deep cause"}));
    EXPECT_EQ(writer->m_Lines[0].depth, 1);
    for (size_t i = 1; i < 5; ++i) {
        EXPECT_EQ(writer->m_Lines[i].depth, 2);
        EXPECT_EQ(writer->m_Lines[i].level, LogError);
    }
    EXPECT_EQ(log.GetDepth(), 1);
}

TEST_F(CLogFixture, BlocksCloseOkOrFailed) {
    {
        CLogBlock block(log, u"Indexing [%1]", u"C:");
        log.Detail(u"inside");
        block.Complete();
        block.Complete();  // adds nothing
    }
    try {
        CLogBlock block(log, u"Failing");
        throw CExc(u"x");
    } catch (const CExc&) {
    }
    {
        CLogBlockInfo block(log, u"Info block");
        block.Complete(u"Closed otherwise");
    }
    EXPECT_EQ(Texts(), (std::vector<std::u16string>{u"Indexing [C:]", u"inside",
                                                     u"Indexing [C:]. Ok.", u"Failing",
                                                     u"Failing. Failed.", u"Info block",
                                                     u"Closed otherwise. Ok."}));
    const int depths[] = {1, 2, 1, 1, 1, 1, 1};
    for (size_t i = 0; i < 7; ++i) EXPECT_EQ(writer->m_Lines[i].depth, depths[i]) << i;
    EXPECT_EQ(writer->m_Lines[5].level, LogInfo);
    EXPECT_EQ(log.GetDepth(), 0);
}

TEST_F(CLogFixture, BlockOfADisabledLevelWritesNothing) {
    log.SetLevel(LogInfo);
    {
        CLogBlock block(log, u"detail block");
    }
    EXPECT_TRUE(writer->m_Lines.empty());
    EXPECT_EQ(log.GetDepth(), 0);
}

}  // namespace
