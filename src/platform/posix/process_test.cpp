#include "platform/process.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "platform/errors.h"
#include "testing/temp_dir.h"

namespace {

TEST(Process, ModulePathAndArguments) {
    std::u16string path;
    ASSERT_TRUE(platform::GetModuleFileName(path));
    EXPECT_EQ(path.substr(path.rfind(u'/') + 1), u"platform_tests");

    char a0[] = "prog";
    char a1[] = "/tmp/a:b\\c";        // characters a Windows name can't hold
    char a2[] = "/tmp/\xff\xfe-bytes"; // not UTF-8
    char* argv[] = {a0, a1, a2, nullptr};
    auto args = platform::GetCommandLineArguments(3, argv);
    ASSERT_EQ(args.size(), 3u);
    EXPECT_EQ(args[0], u"prog");
    EXPECT_EQ(args[1], u"/tmp/a\uF03Ab\uF05Cc");
    EXPECT_EQ(args[2], u"/tmp/\xDCFF\xDCFE-bytes");
}

TEST(Process, NamedMutexSecondHolderGets183UntilTheFirstCloses) {
    ngitest::CTempDir dir;
    ASSERT_TRUE(platform::SetEnvVar(u"NGI_LOCK_DIR", dir.Path()));
    const char16_t* name = u"Global\\{test-mutex}";
    platform::CHandle first = platform::CreateNamedMutex(name, true);
    ASSERT_TRUE(first.IsValid());
    EXPECT_EQ(platform::GetLastError(), 0u);
    EXPECT_TRUE(std::filesystem::exists(dir.Native() / "Global_{test-mutex}.lock"));
    {
        platform::CHandle second = platform::CreateNamedMutex(name, true);
        EXPECT_TRUE(second.IsValid());
        EXPECT_EQ(platform::GetLastError(), platform::kErrAlreadyExists);
    }
    first = platform::CHandle();
    platform::CHandle third = platform::CreateNamedMutex(name, true);
    EXPECT_TRUE(third.IsValid());
    EXPECT_EQ(platform::GetLastError(), 0u);

    ASSERT_TRUE(platform::SetEnvVar(u"NGI_LOCK_DIR", dir.Path(u"missing")));
    EXPECT_FALSE(platform::CreateNamedMutex(name, true).IsValid());
    EXPECT_EQ(platform::GetLastError(), platform::kErrFileNotFound);
    platform::UnsetEnvVar(u"NGI_LOCK_DIR");
}

int IoClass() { return static_cast<int>(::syscall(SYS_ioprio_get, 1, 0)) >> 13; }

// The priority calls act on the whole test process; each test puts it back.
TEST(Process, PriorityClassesAndBackgroundMode) {
    // Leaving nice 19 again needs the privilege a root test run has.
    if (::geteuid() != 0) GTEST_SKIP() << "needs CAP_SYS_NICE";
    const uint32_t initial = platform::GetPriorityClass();
    ASSERT_NE(initial, 0u);
    const int ioBefore = IoClass();

    EXPECT_FALSE(platform::SetPriorityClass(platform::kProcessModeBackgroundEnd));
    EXPECT_EQ(platform::GetLastError(), platform::kErrProcessModeNotBackground);

    ASSERT_TRUE(platform::SetPriorityClass(platform::kProcessModeBackgroundBegin));
    EXPECT_EQ(IoClass(), 3);  // idle
    EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), 19);
    EXPECT_EQ(platform::GetPriorityClass(), initial);  // the class before, as Windows answers
    // A thread started now is in background mode too, and so is its end.
    int threadNice = 0;
    std::thread([&] { threadNice = ::getpriority(PRIO_PROCESS, 0); }).join();
    EXPECT_EQ(threadNice, 19);
    EXPECT_FALSE(platform::SetPriorityClass(platform::kProcessModeBackgroundBegin));
    EXPECT_EQ(platform::GetLastError(), platform::kErrProcessModeAlreadyBackground);
    ASSERT_TRUE(platform::SetPriorityClass(platform::kProcessModeBackgroundEnd));
    EXPECT_EQ(IoClass(), ioBefore);
    EXPECT_EQ(platform::GetPriorityClass(), initial);

    ASSERT_TRUE(platform::SetPriorityClass(platform::kBelowNormalPriorityClass));
    EXPECT_EQ(platform::GetPriorityClass(), platform::kBelowNormalPriorityClass);
    EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), 10);
    ASSERT_TRUE(platform::SetPriorityClass(initial));
    EXPECT_EQ(platform::GetPriorityClass(), initial);
    EXPECT_FALSE(platform::SetPriorityClass(0x12345));
    EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidParameter);
}

TEST(Process, StartedInTheIdleIoClassIsInBackgroundMode) {
    const int before = static_cast<int>(::syscall(SYS_ioprio_get, 1, 0));
    ASSERT_EQ(::syscall(SYS_ioprio_set, 1, 0, 3 << 13), 0);
    EXPECT_FALSE(platform::SetPriorityClass(platform::kProcessModeBackgroundBegin));
    EXPECT_EQ(platform::GetLastError(), platform::kErrProcessModeAlreadyBackground);
    ::syscall(SYS_ioprio_set, 1, 0, before);
}

}  // namespace
