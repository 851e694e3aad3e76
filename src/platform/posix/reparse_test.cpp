// FSCTL_GET_REPARSE_POINT on Linux: symbolic links as link data (absolute
// targets in the volume namespace, relative ones kept), folders of other
// volumes as mount points, and the buffer contract (122, 234, 4390).
#include "platform/reparse.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "platform/errors.h"
#include "platform/find.h"
#include "platform/posix/volume_table.h"
#include "testing/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace platform;

constexpr char16_t kVolC[] = u"\\\\?\\Volume{0000000c-0000-0000-0000-00000000000c}\\";
constexpr char16_t kVolD[] = u"\\\\?\\Volume{0000000d-0000-0000-0000-00000000000d}\\";

uint32_t U16(const std::vector<uint8_t>& b, size_t at) { return b[at] | (b[at + 1] << 8); }
uint32_t U32(const std::vector<uint8_t>& b, size_t at) { return U16(b, at) | (U16(b, at + 2) << 16); }
std::u16string Text(const std::vector<uint8_t>& b, size_t at, size_t bytes) {
    std::u16string t;
    for (size_t i = 0; i < bytes; i += 2) t += static_cast<char16_t>(U16(b, at + i));
    return t;
}

class ReparseData : public ::testing::Test {
protected:
    ReparseData() {
        fs::create_directories(m_Dir.Native() / "c" / "mnt" / "d");
        TVolumeTableEntry c, d;
        c.mountPoints = {u"C:"};
        c.volumeName = kVolC;
        c.folder = (m_Dir.Native() / "c").string();
        d.mountPoints = {u"C:\\mnt\\d"};
        d.volumeName = kVolD;
        d.folder = (m_Dir.Native() / "c" / "mnt" / "d").string();
        posix::SetSystemVolumeTable(std::make_shared<CVolumeTable>(std::vector{c, d}, std::vector<TShadowTableEntry>{}));
    }
    ~ReparseData() override { posix::SetSystemVolumeTable(nullptr); }

    // The whole reparse data of the entry, or the error.
    std::vector<uint8_t> Get(const std::u16string& path, uint32_t* error = nullptr) {
        CHandle h = FileOpen(path, kFileReadAttributes, kShareRead | kShareWrite | kShareDelete, kOpenExisting,
                             kFlagOpenReparsePoint | kFlagBackupSemantics);
        EXPECT_TRUE(h.IsValid());
        std::vector<uint8_t> data(kMaxReparseDataSize);
        uint32_t returned = 0;
        const bool ok = GetReparsePoint(h.Get(), data.data(), static_cast<uint32_t>(data.size()), &returned);
        if (error) *error = ok ? 0 : GetLastError();
        data.resize(returned);
        return data;
    }

    ngitest::CTempDir m_Dir;
};

TEST_F(ReparseData, AbsoluteLinkTargetsSpeakTheVolumeNamespace) {
    ASSERT_EQ(::symlink((m_Dir.Native() / "c" / "x" / ".." / "target").c_str(), (m_Dir.Native() / "c" / "l").c_str()), 0);
    const auto b = Get(u"C:\\l");
    ASSERT_GE(b.size(), 20u);
    EXPECT_EQ(U32(b, 0), kReparseTagSymlink);
    EXPECT_EQ(U16(b, 4), b.size() - 8);
    EXPECT_EQ(U32(b, 16), 0u);  // absolute
    EXPECT_EQ(Text(b, 20 + U16(b, 8), U16(b, 10)), u"\\??\\C:\\target");
    EXPECT_EQ(Text(b, 20 + U16(b, 12), U16(b, 14)), u"C:\\target");
}

TEST_F(ReparseData, RelativeTargetsStayRelative) {
    ASSERT_EQ(::symlink("../up/f", (m_Dir.Native() / "c" / "r").c_str()), 0);
    const auto b = Get(u"C:\\r");
    EXPECT_EQ(U32(b, 16), kSymlinkFlagRelative);
    EXPECT_EQ(Text(b, 20 + U16(b, 8), U16(b, 10)), u"..\\up\\f");
}

TEST_F(ReparseData, AFolderOfAnotherVolumeIsAMountPoint) {
    TFindData data;
    CFindHandle find = FindFirst(u"C:\\mnt\\*", data);
    ASSERT_TRUE(find.IsValid());
    bool seen = false;
    do {
        if (data.name == u"d") {
            seen = true;
            EXPECT_EQ(data.attributes, kAttrDirectory | kAttrReparsePoint);
            EXPECT_EQ(data.reparseTag, kReparseTagMountPoint);
        } else {
            EXPECT_EQ(data.attributes & kAttrReparsePoint, 0u) << std::string(data.name.begin(), data.name.end());
        }
    } while (FindNext(find, data));
    EXPECT_TRUE(seen);
    const auto b = Get(u"C:\\mnt\\d");
    EXPECT_EQ(U32(b, 0), kReparseTagMountPoint);
    EXPECT_EQ(Text(b, 16 + U16(b, 8), U16(b, 10)), u"\\??\\Volume{0000000d-0000-0000-0000-00000000000d}\\");
}

TEST_F(ReparseData, BufferContract) {
    ASSERT_EQ(::symlink("a-rather-long-relative-target", (m_Dir.Native() / "c" / "l").c_str()), 0);
    CHandle h = FileOpen(u"C:\\l", kFileReadAttributes, kShareRead, kOpenExisting,
                         kFlagOpenReparsePoint | kFlagBackupSemantics);
    uint8_t small[28];
    uint32_t returned = 99;
    EXPECT_FALSE(GetReparsePoint(h.Get(), small, 7, &returned));
    EXPECT_EQ(GetLastError(), kErrInsufficientBuffer);
    EXPECT_EQ(returned, 0u);
    EXPECT_FALSE(GetReparsePoint(h.Get(), small, sizeof small, &returned));
    EXPECT_EQ(GetLastError(), kErrMoreData);
    EXPECT_EQ(returned, sizeof small);
    EXPECT_EQ(U16(std::vector<uint8_t>(small, small + 28), 4), 12u + 4 * 29);  // the length needed

    uint32_t error = 0;
    fs::create_directories(m_Dir.Native() / "c" / "plain");
    Get(u"C:\\plain", &error);
    EXPECT_EQ(error, kErrNotAReparsePoint);
}

}  // namespace
