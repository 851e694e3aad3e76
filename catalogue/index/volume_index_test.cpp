// CVolumeIndex at its row limits: an index whose directory or owner table
// claims one row more than CIndexBaseReader::kMaxDirs or kMaxOwners is
// refused before anything is kept. The rows are zero bytes (empty names,
// parent 0) left as a hole in the file, so the 1.5 GiB directory table costs
// no disk, and the tool streams the file, so none of it is read.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/index/volume_index.h"
#include "store/index_base_reader.h"
#include "store/store_test_util.h"
#include "testing/temp_dir.h"

namespace {

// Files (no row), directories (`dirs` rows), owners (`owners` rows), no
// reparse table: each table's header, then its rows as a hole.
void WriteZeroRowIndex(const std::filesystem::path& path, uint64_t dirs, uint64_t owners) {
    std::vector<uint8_t> bytes;
    auto header = [&](uint64_t next, uint32_t id, const std::vector<uint16_t>& types, uint64_t rows) {
        const std::vector<uint8_t> h = store_testing::TableHeaderBytes(next, id, types, rows);
        bytes.insert(bytes.end(), h.begin(), h.end());
    };
    constexpr uint64_t kFilesEnd = 46, kDirsHeader = 40;
    const uint64_t ownersStart = kFilesEnd + kDirsHeader + dirs * 12;
    header(kFilesEnd, 1, {2, 1, 3, 1, 1}, 0);
    header(ownersStart, 2, {2, 1}, dirs);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.clear();
    header(0, 3, {2, 2, 2}, owners);
    out.seekp(static_cast<std::streamoff>(ownersStart));
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    std::filesystem::resize_file(path, ownersStart + bytes.size() + owners * 12);
}

TEST(CatalogueVolumeIndex, RowLimits) {
    struct TCase {
        uint64_t dirs, owners;
        std::u16string expected;  // the deepest message; empty: accepted
    } cases[] = {
        {1, 1, u""},
        {indexer::CIndexBaseReader::kMaxDirs + 1, 0,
         u"catalogue::CVolumeIndex::_LoadDirs fail. Too many directories! [0x0000000008000001]."},
        {1, indexer::CIndexBaseReader::kMaxOwners + 1,
         u"catalogue::CVolumeIndex::_LoadOwners fail. Too many owners! [0x0000000001000001]."},
    };
    ngitest::CTempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(util::Utf16ToUtf8(c.expected));
        WriteZeroRowIndex(dir.Native() / "limit.ifd", c.dirs, c.owners);
        std::u16string failure;
        try {
            catalogue::CVolumeIndex index(dir.Path(u"limit.ifd"));
            EXPECT_EQ(index.GetDirCount(), c.dirs);
        } catch (const CExc& e) {
            failure = e.GetMessages().back();
        }
        EXPECT_EQ(failure, c.expected);
    }
}

}  // namespace
