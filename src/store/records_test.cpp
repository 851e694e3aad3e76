// Record schemas: field lists, their failure texts, row sizes and round trips.
#include <gtest/gtest.h>

#include <functional>

#include "store/records.h"
#include "store/store_test_util.h"

using namespace store_testing;

namespace {

struct TSchemaCase {
    const char* name;
    std::function<std::unique_ptr<idxdata::IRecord>()> make;
    std::vector<uint32_t> types;
    std::u16string wrongIdText;
};

const TSchemaCase kSchemas[] = {
    {"file", [] { return std::make_unique<rec::CFileRecord>(); }, {2, 1, 3, 1, 1},
     u"Wrong id in CFileRecord::GetFieldType"},
    {"dir", [] { return std::make_unique<rec::CDirRecord>(); }, {2, 1},
     u"Wrong id in CDirRecord::GetFieldType"},
    // The owner record reports with the directory record's text, on purpose.
    {"owner", [] { return std::make_unique<rec::COwnerRecord>(); }, {2, 2, 2},
     u"Wrong id in CDirRecord::GetFieldType"},
    {"reparse", [] { return std::make_unique<rec::CReparseRecord>(); }, {1, 2, 2},
     u"Wrong id in CDirRecord::GetFieldType"},
};

TEST(Records, FieldListsAndTheIdPastTheEnd) {
    for (const auto& c : kSchemas) {
        SCOPED_TRACE(c.name);
        auto record = c.make();
        ASSERT_EQ(record->GetFieldCount(), c.types.size());
        for (uint32_t i = 0; i < c.types.size(); ++i) EXPECT_EQ(record->GetFieldType(i), c.types[i]);
        EXPECT_CEXC(record->GetFieldType(record->GetFieldCount()), {
            EXPECT_EQ(Deepest(e), c.wrongIdText);
            EXPECT_EQ(e.GetCode(), kHrFail);
        });
    }
}

TEST(Records, RowSizes) {
    CMemWriter file;
    rec::CFileRecord().Serialize(file);
    EXPECT_EQ(file.m_Bytes.size(), 32u);

    rec::CDirRecord dir;
    dir.m_Name = u"Windows";
    CMemWriter dirBytes;
    dir.Serialize(dirBytes);
    EXPECT_EQ(dirBytes.m_Bytes.size(), 12u + 2 * 7);

    CMemWriter owner;
    rec::COwnerRecord().Serialize(owner);
    EXPECT_EQ(owner.m_Bytes, std::vector<uint8_t>(12, 0));
}

TEST(Records, FileRowFieldOrder) {
    rec::CFileRecord f;
    f.m_Name = u"a";
    f.m_ParentId = 0x1122;
    f.m_Owner = 0x33;
    f.m_ModificationTime = 0x44;
    f.m_Size = 0x55;
    CMemWriter out;
    f.Serialize(out);
    const std::vector<uint8_t> expected = {1, 0, 0, 0, 'a', 0,                //
                                           0x22, 0x11, 0, 0, 0, 0, 0, 0,      // parent
                                           0x33, 0, 0, 0,                     // owner
                                           0x44, 0, 0, 0, 0, 0, 0, 0,         // time
                                           0x55, 0, 0, 0, 0, 0, 0, 0};        // size
    EXPECT_EQ(out.m_Bytes, expected);
}

TEST(Records, RoundTrips) {
    rec::CFileRecord f;
    f.m_Name = u"report \U0001F600.docx";
    f.m_ParentId = 42;
    f.m_Owner = 7;
    f.m_ModificationTime = 0x01D9'0000'1234'5678ull;
    f.m_Size = ~uint64_t{0};
    rec::CDirRecord d;
    d.m_Name = u"Program Files";
    d.m_ParentId = 3;
    rec::COwnerRecord o;
    o.m_Sid = u"S-1-5-21-1-2-3-1001";
    o.m_Second = u"DOMAIN";
    o.m_Third = u"user";
    rec::CReparseRecord r;
    r.m_ParentId = 9;
    r.m_Name = u"link";
    r.m_Substitute = u"\\??\\C:\\target";

    auto roundTrip = [](const idxdata::IRecord& in, idxdata::IRecord& out) {
        CMemWriter w;
        in.Serialize(w);
        CMemReader r(w.m_Bytes);
        out.Deserialize(r);
        EXPECT_TRUE(r.AtEnd());
    };
    rec::CFileRecord f2;
    roundTrip(f, f2);
    EXPECT_EQ(f2.m_Name, f.m_Name);
    EXPECT_EQ(f2.m_ParentId, f.m_ParentId);
    EXPECT_EQ(f2.m_Owner, f.m_Owner);
    EXPECT_EQ(f2.m_ModificationTime, f.m_ModificationTime);
    EXPECT_EQ(f2.m_Size, f.m_Size);
    rec::CDirRecord d2;
    roundTrip(d, d2);
    EXPECT_EQ(d2.m_Name, d.m_Name);
    EXPECT_EQ(d2.m_ParentId, d.m_ParentId);
    rec::COwnerRecord o2;
    roundTrip(o, o2);
    EXPECT_EQ(o2.m_Sid, o.m_Sid);
    EXPECT_EQ(o2.m_Second, o.m_Second);
    EXPECT_EQ(o2.m_Third, o.m_Third);
    rec::CReparseRecord r2;
    roundTrip(r, r2);
    EXPECT_EQ(r2.m_ParentId, r.m_ParentId);
    EXPECT_EQ(r2.m_Name, r.m_Name);
    EXPECT_EQ(r2.m_Substitute, r.m_Substitute);
}

}  // namespace
