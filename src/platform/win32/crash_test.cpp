// The system's unhandled-exception filter from before ours still answers.

#include "platform/crash.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace {

int g_HostCalls = 0;
int g_OurCalls = 0;

LONG WINAPI HostFilter(EXCEPTION_POINTERS*) {
    ++g_HostCalls;
    return EXCEPTION_CONTINUE_EXECUTION;
}

int32_t OurFilter(const platform::TCrashInfo& info) {
    // Ours runs first, with the fault it was given.
    EXPECT_EQ(g_HostCalls, 0);
    EXPECT_EQ(static_cast<uint32_t>(info.signal), EXCEPTION_ACCESS_VIOLATION);
    ++g_OurCalls;
    return platform::kCrashExecuteHandler;
}

TEST(CrashFilter, ThePreviousSystemFilterGivesTheAnswer) {
    LPTOP_LEVEL_EXCEPTION_FILTER before = ::SetUnhandledExceptionFilter(HostFilter);
    platform::SetCrashFilter(OurFilter);
    LPTOP_LEVEL_EXCEPTION_FILTER top = ::SetUnhandledExceptionFilter(nullptr);
    ASSERT_NE(top, nullptr);
    ASSERT_NE(top, HostFilter);

    EXCEPTION_RECORD record = {};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    CONTEXT context = {};
    EXCEPTION_POINTERS pointers = {&record, &context};
    EXPECT_EQ(top(&pointers), EXCEPTION_CONTINUE_EXECUTION);
    EXPECT_EQ(g_OurCalls, 1);
    EXPECT_EQ(g_HostCalls, 1);

    platform::SetCrashFilter(nullptr);
    ::SetUnhandledExceptionFilter(before);
}

}  // namespace
