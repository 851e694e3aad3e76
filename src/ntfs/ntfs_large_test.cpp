// The folder of 100,000 entries: its $I30 walks in ascending key order and
// gives exactly the generated names, each with its own record, and the
// lookup finds an even spread of them in upper case. The image is too large
// to commit; scripts/test-ntfs.sh builds it (scripts/make-ntfs-fixtures.sh
// --large) and names it in NGI_NTFS_LARGE. Skipped without it.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

#include "base/utf.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_test_util.h"

using namespace indexer::fast_ntfs_indexer;

namespace {

TEST(NtfsLarge, HundredThousandEntriesWalkInOrderAndAreAllFound) {
    const char* image = std::getenv("NGI_NTFS_LARGE");
    if (!image || !std::filesystem::exists(image)) GTEST_SKIP() << "NGI_NTFS_LARGE not set (scripts/test-ntfs.sh)";
    try {
        ngitest::ntfs::CImageVolume v;
        v.Open(image);
        CNtfsVolume& volume = v.Volume();
        CNtfsIndex index(&volume);
        std::vector<uint8_t> root(volume.GetVolumeGeometry().FileRecordSize), folder(root.size());
        volume.GetFileRecord(5, root.data(), 1);
        const uint64_t big = index.FindFileInDirectory(root.data(), 5, u"BIG");
        ASSERT_NE(big, 0u);
        volume.GetFileRecord(big, folder.data(), 1);

        std::vector<std::pair<std::u16string, uint64_t>> entries;
        index.ParseIndexFileRecord_Process(
            folder.data(), big, u"$I30",
            [&](const TIndexEntryView& e, uint64_t, uint64_t) -> uint8_t {
                const uint8_t* key = e.Key();
                std::u16string name(key[kFnNameLength], u'\0');
                for (size_t i = 0; i < name.size(); ++i) name[i] = static_cast<char16_t>(Le16(key + kFnName + 2 * i));
                entries.push_back({name, e.FileReference() & kFrnMask});
                return 1;
            },
            0, 0);
        ASSERT_EQ(entries.size(), 100000u);
        // Keys collate by their upper-case form: "file_000000.DAT" and
        // "File_000001.dat" alternate in number order.
        std::set<uint64_t> records;
        for (size_t i = 0; i < entries.size(); ++i) {
            char expected[32];
            std::snprintf(expected, sizeof expected, i % 2 ? "File_%06zu.dat" : "file_%06zu.DAT", i);
            ASSERT_EQ(util::Utf16ToUtf8(entries[i].first), expected) << i;
            records.insert(entries[i].second);
        }
        EXPECT_EQ(records.size(), entries.size());
        // A lookup walks the folder's entries in order up to the match, so
        // looking up all 100,000 would take hours: every 997th, and the last.
        std::vector<size_t> probes;
        for (size_t i = 0; i < entries.size(); i += 997) probes.push_back(i);
        probes.push_back(entries.size() - 1);
        for (size_t i : probes) {
            std::u16string upper = entries[i].first;
            for (char16_t& c : upper)
                if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
            EXPECT_EQ(index.FindFileInDirectory(folder.data(), big, upper), entries[i].second) << i;
        }
        EXPECT_EQ(index.FindFileInDirectory(folder.data(), big, u"file_100000.dat"), 0u);

    } catch (const CExc& e) {
        FAIL() << util::Utf16ToUtf8(e.GetDescription());
    }
}

}  // namespace
