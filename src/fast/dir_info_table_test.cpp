// CDirInfoTable against a std::map: random sets, replacements and lookups,
// present and absent keys next to each other (the remembered leaf must never
// answer for a slot that changed or a group it does not hold), keys at and
// past both ends of the range.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "fast/dir_info_table.h"

using indexer::fast_ntfs_indexer::CDirInfoTable;
using indexer::fast_ntfs_indexer::TDirInfo;

namespace {

std::unique_ptr<TDirInfo> Info(uint64_t id) {
    auto info = std::make_unique<TDirInfo>();
    info->DirId = id;
    return info;
}

TEST(DirInfoTable, AgreesWithAMap) {
    struct TCase {
        uint64_t low, range;
    };
    for (const TCase& t : {TCase{0, 31}, TCase{0, 32}, TCase{0, 40000}, TCase{16, 1 << 20}, TCase{1000, 33}}) {
        SCOPED_TRACE("low " + std::to_string(t.low) + " range " + std::to_string(t.range));
        CDirInfoTable table(t.low, t.range);
        std::map<uint64_t, uint64_t> oracle;
        std::mt19937_64 rng(t.range);
        uint64_t key = t.low;
        for (int step = 0; step < 20000; ++step) {
            // Mostly near the last key (as folder rows come), sometimes anywhere.
            if (rng() % 8 == 0)
                key = t.low + rng() % (t.range + 1);
            else
                key = std::min(t.low + t.range, std::max(t.low, key + rng() % 5 - 2));
            if (rng() % 3 == 0) {
                const uint64_t id = rng();
                ASSERT_TRUE(table.Set(key, Info(id)));
                oracle[key] = id;
            }
            const TDirInfo* got = table.Get(key);
            const auto want = oracle.find(key);
            if (want == oracle.end()) {
                ASSERT_EQ(got, nullptr) << "key " << key;
            } else {
                ASSERT_NE(got, nullptr) << "key " << key;
                ASSERT_EQ(got->DirId, want->second) << "key " << key;
            }
        }
        // Outside the range: nothing stored, nothing found.
        EXPECT_FALSE(table.Set(t.low + t.range + 1, Info(1)));
        EXPECT_EQ(table.Get(t.low + t.range + 1), nullptr);
        if (t.low > 0) {
            EXPECT_FALSE(table.Set(t.low - 1, Info(1)));
            EXPECT_EQ(table.Get(t.low - 1), nullptr);
        }
    }
}

}  // namespace
