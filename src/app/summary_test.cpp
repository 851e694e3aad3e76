// summary.txt of an optimized run: the flat lines and the Volumes subtree,
// with VolumeId and IsCluster only where they say something.
#include "app/summary.h"

#include <gtest/gtest.h>

#include "base/utf.h"
#include "testing/temp_dir.h"

namespace {

// The UTF-16LE text after its mark, as UTF-8.
std::string TextOf(const ngitest::CTempDir& dir, const char* name) {
    const std::string bytes = dir.ReadFile(name);
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    std::u16string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
        text += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) | (static_cast<uint8_t>(bytes[i + 1]) << 8));
    return util::Utf16ToUtf8(text);
}

TEST(WriteSummary, ListsEachVolumeTwiceInOrder) {
    ngitest::CTempDir dir;
    auto c = std::make_shared<indexer::CVolumeSummary>();
    c->MountPointName = u"C";
    c->DataFileName = u"volume.C_.ifd";
    auto mnt = std::make_shared<indexer::CVolumeSummary>();
    mnt->MountPointName = u"c:\\mnt\\data";
    mnt->DataFileName = u"volume.c__mnt_data.ifd";
    ASSERT_TRUE(indexer::ParseGuid(u"0F6C1D3E-1111-4222-8333-944455556666", mnt->VolumeId));
    mnt->IsCluster = true;
    indexer::WriteSummary(dir.Path(), {c, mnt});

    std::string text = TextOf(dir, "summary.txt");
    std::erase(text, '\r');
    EXPECT_EQ(text,
              "type=ifd\n"
              "volume.C=volume.C_.ifd\n"
              "volume.c:\\mnt\\data=volume.c__mnt_data.ifd\n"
              "Volumes.0.MountPointName=C\n"
              "Volumes.0.DataFileName=volume.C_.ifd\n"
              "Volumes.1.MountPointName=c:\\mnt\\data\n"
              "Volumes.1.DataFileName=volume.c__mnt_data.ifd\n"
              "Volumes.1.VolumeId={0f6c1d3e-1111-4222-8333-944455556666}\n"
              "Volumes.1.IsCluster=true");  // the meta-file ends without a line end
}

}  // namespace
