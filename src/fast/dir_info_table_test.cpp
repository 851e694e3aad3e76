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
    for (const auto& [low, range] : std::vector<std::pair<uint64_t, uint64_t>>{
             {0, 31}, {0, 32}, {0, 40000}, {16, 1 << 20}, {1000, 33}}) {
        SCOPED_TRACE("low " + std::to_string(low) + " range " + std::to_string(range));
        CDirInfoTable table(low, range);
        std::map<uint64_t, uint64_t> oracle;
        std::mt19937_64 rng(range);
        uint64_t key = low;
        for (int step = 0; step < 20000; ++step) {
            // Mostly near the last key (as folder rows come), sometimes anywhere.
            key = rng() % 8 == 0 ? low + rng() % (range + 1) : std::min(low + range, std::max(low, key + rng() % 5 - 2));
            if (rng() % 3 == 0) {
                const uint64_t id = rng();
                ASSERT_TRUE(table.Set(key, Info(id)));
                oracle[key] = id;
            }
            const TDirInfo* got = table.Get(key);
            const auto want = oracle.find(key);
            ASSERT_EQ(got != nullptr, want != oracle.end()) << "key " << key;
            if (got) {
                ASSERT_EQ(got->DirId, want->second) << "key " << key;
            }
        }
        // Outside the range: nothing stored, nothing found.
        for (const uint64_t outside : {low + range + 1, low - 1}) {
            if (outside == ~uint64_t{0}) continue;
            EXPECT_FALSE(table.Set(outside, Info(1)));
            EXPECT_EQ(table.Get(outside), nullptr);
        }
    }
}

}  // namespace
