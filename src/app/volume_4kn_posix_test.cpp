// A volume of 4096-byte sectors, as a disk of 4096-byte logical sectors
// gives it: the same files on an NTFS volume made with 4096-byte sectors (so
// 4096-byte records) and on one with 512-byte sectors, each attached as a
// loop device of its own sector size and read unbuffered (O_DIRECT, as a
// block device named as a volume always is). The boot-sector probe meets the
// device's refusals of 512, 1024 and 2048 bytes and reads at the fourth
// round; both volumes give the same rows.
//
// Needs root, losetup, mkntfs and ntfs-3g with FUSE; skips without them.
#include <gtest/gtest.h>

#include "app/volume_access.h"
#include "fast/fast_test_util.h"
#include "platform/volume_io.h"
#include "testing/log_capture.h"

using namespace ngitest::fast;
using ngitest::ntfs::Quote;
using ngitest::ntfs::RunCommand;

namespace {

// The same tree with the same times on every volume: folders, a deep chain,
// small and large files, a hard link.
constexpr char kFill[] = R"PY(
import os, sys
root = sys.argv[1]
for d in range(12):
    path = os.path.join(root, "dir%02d" % d, "sub")
    os.makedirs(path)
    for f in range(30):
        with open(os.path.join(path, "file%03d.txt" % f), "w") as out:
            out.write("y" * (f * 97 + d))
deep = os.path.join(root, *["level%d" % i for i in range(20)])
os.makedirs(deep)
with open(os.path.join(deep, "big.bin"), "wb") as out:
    out.write(os.urandom(300000))
os.link(os.path.join(deep, "big.bin"), os.path.join(root, "dir00", "link.bin"))
for base, dirs, files in os.walk(root, topdown=False):
    for name in files + dirs:
        os.utime(os.path.join(base, name), (1600000000, 1600000000 + len(name)))
)PY";

// A volume made by mkntfs with `sectorSize`, filled, attached as a loop
// device of that sector size, detached at the end.
struct TLoopVolume {
    TLoopVolume(const ngitest::CTempDir& dir, uint32_t sectorSize) {
        const std::string s = std::to_string(sectorSize), image = Quote(dir.Native() / ("ntfs-" + s + ".img"));
        const fs::path mnt = dir.Native() / ("mnt-" + s), script = dir.Native() / "fill.py";
        fs::create_directories(mnt);
        std::ofstream(script) << kFill;
        Device = RunCommand("truncate -s 40M " + image + " && mkntfs -F -q -Q -s " + s + " -c 4096 " + image +
                            " >/dev/null 2>&1 && ntfs-3g " + image + " " + Quote(mnt) + " && python3 " +
                            Quote(script) + " " + Quote(mnt) + "; sync; umount " + Quote(mnt) +
                            " && losetup --find --show --direct-io=on --sector-size " + s + " " + image + " 2>/dev/null");
        while (!Device.empty() && Device.back() == '\n') Device.pop_back();
    }
    ~TLoopVolume() {
        if (!Device.empty()) RunCommand("losetup -d " + Device);
    }
    std::string Device;
};

struct TResult {
    TIndexContent Content;
    uint32_t Alignment = 0;
    std::u16string Log;
};

TResult Index(const std::string& device, const ngitest::CTempDir& out) {
    TResult r;
    ngitest::CLogCapture capture;
    platform::CHandle handle = indexer::OpenVolume(util::Utf8ToUtf16(device));
    r.Alignment = platform::GetReadAlignment(handle.Get());
    EXPECT_EQ(indexer::GetVolumeFileSystemType(handle.Get()), indexer::kFsTypeNtfs);
    indexer::CIndexBase base;
    base.Open(out.Path(), false, u"volume.C.ifd");
    base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
    indexer::CIndexingVolumeInfo description;
    description.m_Name = u"C:";
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    indexer::fast_ntfs_indexer::CVolumeNTFSIndexer().IndexVolume(handle.Get(), description, u"", root, base);
    base.Close();
    r.Log = capture.Text();
    r.Content = ReadIndex(out.Native() / "volume.C.ifd");
    return r;
}

TEST(Volume4Kn, IndexesAsTheSameFilesOn512ByteSectors) {
    for (const char* tool : {"losetup", "mkntfs", "ntfs-3g", "python3"})
        if (!ngitest::ntfs::HaveTool(tool)) GTEST_SKIP() << tool << " missing";
    if (geteuid() != 0 || !fs::exists("/dev/fuse")) GTEST_SKIP() << "needs root and FUSE";
    ngitest::CTempDir dir;
    TLoopVolume v4096(dir, 4096), v512(dir, 512);
    if (v4096.Device.empty() || v512.Device.empty()) GTEST_SKIP() << "no loop device could be made";

    ngitest::CTempDir out4096, out512;
    const TResult r4096 = Index(v4096.Device, out4096);
    const TResult r512 = Index(v512.Device, out512);
    EXPECT_EQ(r4096.Alignment, 4096u);
    EXPECT_EQ(r512.Alignment, 512u);
    // Three refused rounds, then the fourth.
    EXPECT_NE(r4096.Log.find(u"Boot sector was read with sector size 4096 bytes."), std::u16string::npos);
    EXPECT_NE(r512.Log.find(u"Boot sector was read with sector size 512 bytes."), std::u16string::npos);
    EXPECT_NE(r4096.Log.find(u"BytesPerSector = 0x1000"), std::u16string::npos);
    EXPECT_NE(r4096.Log.find(u"    mtf record size = 0x00001000"), std::u16string::npos);

    EXPECT_EQ(r4096.Content.Files.size(), 12u * 30 + 2);
    EXPECT_EQ(r4096.Content.Dirs, r512.Content.Dirs);
    EXPECT_EQ(r4096.Content.Files, r512.Content.Files);
    EXPECT_EQ(r4096.Content.DirRows, r512.Content.DirRows);
    EXPECT_EQ(r4096.Content.FileParents, r512.Content.FileParents);
}

}  // namespace
