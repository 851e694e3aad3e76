// CFileWriter::Flush must ask the system to put the file on disk: without
// it the bytes still reach the file, and only a crash would show the loss.
// This program's own fsync comes before the C library's in the link, counts
// the calls and passes them on.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>

#include "store/file_writer.h"
#include "store/store_test_util.h"

namespace {
std::atomic<int> g_Fsyncs{0};
}

extern "C" int fsync(int fd) {
    ++g_Fsyncs;
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    return real(fd);
}

namespace {

TEST(FileWriter, FlushSyncsTheFile) {
    store_testing::CTempDir dir;
    idxdata::CFileWriter w;
    w.Create(dir.Path(u"f.bin"));
    w.WriteDWord(1);
    const int before = g_Fsyncs;
    w.Flush();
    EXPECT_EQ(g_Fsyncs, before + 1);
    w.Close();
    w.Flush();  // closed: nothing to sync
    EXPECT_EQ(g_Fsyncs, before + 1);
}

}  // namespace
