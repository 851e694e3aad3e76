// Record rows: each field's width and order on disk, and a read of those
// bytes that gives the same row back.
#include <gtest/gtest.h>

#include <functional>

#include "store/buff_file_reader.h"
#include "store/file_writer.h"
#include "store/records.h"
#include "store/store_test_util.h"

using namespace store_testing;

namespace {

// The little-endian bytes of the n-byte values and counted strings given.
struct TBytes {
    std::vector<uint8_t> b;
    TBytes& N(uint64_t v, int n) {
        for (int i = 0; i < n; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
        return *this;
    }
    TBytes& S(std::u16string_view s) {
        N(s.size(), 4);
        for (char16_t c : s) N(c, 2);
        return *this;
    }
};

TEST(Records, RowBytesAndRoundTrips) {
    rec::CFileRecord file;
    file.m_Name = u"r\U0001F600.txt";
    file.m_ParentId = 0x1122;
    file.m_Owner = 0x33445566;
    file.m_ModificationTime = 0x01D9'0000'1234'5678ull;
    file.m_Size = ~uint64_t{0};
    rec::CDirRecord folder;
    folder.m_Name = u"Windows";
    folder.m_ParentId = 3;
    rec::COwnerRecord owner;
    owner.m_Sid = u"S-1-5-21-1-2-3-1001";
    owner.m_Second = u"DOMAIN";
    owner.m_Third = u"user";
    rec::CReparseRecord link;
    link.m_ParentId = 9;
    link.m_Name = u"link";
    link.m_Substitute = u"\\??\\C:\\target";
    const struct {
        const char* what;
        const idxdata::IRecord& row;
        std::function<std::unique_ptr<idxdata::IRecord>()> empty;
        std::vector<uint8_t> bytes;
    } cases[] = {
        {"file", file, [] { return std::make_unique<rec::CFileRecord>(); },
         TBytes().S(file.m_Name).N(0x1122, 8).N(0x33445566, 4).N(file.m_ModificationTime, 8).N(~0ull, 8).b},
        {"dir", folder, [] { return std::make_unique<rec::CDirRecord>(); }, TBytes().S(u"Windows").N(3, 8).b},
        {"owner", owner, [] { return std::make_unique<rec::COwnerRecord>(); },
         TBytes().S(owner.m_Sid).S(u"DOMAIN").S(u"user").b},
        {"reparse", link, [] { return std::make_unique<rec::CReparseRecord>(); },
         TBytes().N(9, 8).S(u"link").S(link.m_Substitute).b},
        {"empty owner", rec::COwnerRecord(), [] { return std::make_unique<rec::COwnerRecord>(); },
         std::vector<uint8_t>(12, 0)},
    };
    CTempDir dir;
    auto write = [&](const idxdata::IRecord& row) {
        idxdata::CFileWriter out;
        out.Create(dir.Path(u"r.bin"));
        row.Serialize(out);
        out.Close();
        return ReadAll(dir.Native("r.bin"));
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(write(c.row), c.bytes);
        auto back = c.empty();
        idxdata::CBuffFileReader in;
        in.Open(dir.Path(u"r.bin"));
        back->Deserialize(in);
        EXPECT_EQ(in.GetCurFilePos(), c.bytes.size());
        in.Close();
        EXPECT_EQ(write(*back), c.bytes);
    }
}

}  // namespace
