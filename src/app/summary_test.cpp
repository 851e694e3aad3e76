// summary.txt of an optimized run: the flat lines and the Volumes subtree,
// with VolumeId and IsCluster only where they say something.
#include "app/summary.h"

#include <gtest/gtest.h>

#include "app/run_test_env.h"

namespace {

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

    std::string text = runtest::TextOf(dir.Native() / "summary.txt");
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
