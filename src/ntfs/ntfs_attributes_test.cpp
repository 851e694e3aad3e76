// Unit tests of CNtfsAttributes and the resident side of CAttributeContent
// and of the attribute list, on records built in memory.
#include <gtest/gtest.h>

#include <functional>

#include "base/utf.h"
#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_record_builder.h"
#include "ntfs/ntfs_volume.h"

using namespace indexer::fast_ntfs_indexer;
using namespace ngitest::ntfs;

namespace {

// The record's attributes, as views, in order.
struct TParsed {
    TBytes record;
    std::vector<CAttrHeader> attrs;
};

TParsed Parse(const std::vector<TBytes>& attributes) {
    TParsed p{FileRecord(attributes), {}};
    ForEachAttribute(p.record.data(), p.record.size(), 77, kNoLimit, [&](const CAttrHeader& a) {
        p.attrs.push_back(a);
        return true;
    });
    return p;
}

TEST(NtfsAttributes, DosOnlyNamesAreRefusedAndAllOthersKept) {
    struct Case {
        uint8_t nameSpace;
        bool kept;
    } cases[] = {{0, true}, {1, true}, {2, false}, {3, true}};
    CNtfsAttributes attributes(nullptr);
    for (const Case& c : cases) {
        TParsed p = Parse({ResidentAttr(0x30, FileNameValue(0x0005000000000123ull, u"Name.txt", c.nameSpace))});
        TFileNamePropsList list;
        attributes.GetFileNameProps(p.attrs[0], list);
        ASSERT_EQ(list.size(), c.kept ? 1u : 0u) << int(c.nameSpace);
        if (c.kept) {
            EXPECT_EQ(list[0]->FileName, u"Name.txt");
            EXPECT_EQ(list[0]->ParentFileRef, 0x123u);  // sequence number dropped
        }
    }
}

TEST(NtfsAttributes, NameLongerThanItsValueFails) {
    CNtfsAttributes attributes(nullptr);
    TFileNamePropsList list;
    for (uint8_t claimed : {200, 4}) {  // far past the value, and one character past
        TBytes value = FileNameValue(5, u"abc", 1);
        value[0x40] = claimed;
        TParsed p = Parse({ResidentAttr(0x30, value)});
        EXPECT_THROW(attributes.GetFileNameProps(p.attrs[0], list), CExc) << int{claimed};
    }
    TParsed tiny = Parse({ResidentAttr(0x30, TBytes(0x20, 0))});
    EXPECT_THROW(attributes.GetFileNameProps(tiny.attrs[0], list), CExc);
}

TEST(NtfsAttributes, SecurityIdAndTimeKeepTheirShortBounds) {
    struct Case {
        size_t length;
        int idResult, timeResult;
    } cases[] = {{8, 0, 0}, {9, 0, 1}, {48, 0, 1}, {52, 0, 1}, {53, 1, 1}, {72, 1, 1}};
    CNtfsAttributes attributes(nullptr);
    for (const Case& c : cases) {
        TBytes value(c.length, 0);
        if (c.length >= 16) Put64(value, 8, 0x01D0000000000001ull);
        if (c.length >= 0x38) Put32(value, 0x34, 0x103);
        TParsed p = Parse({ResidentAttr(0x10, value)});
        uint32_t id = 0;
        uint64_t time = 0;
        EXPECT_EQ(attributes.GetSecurityId(p.attrs[0], id), c.idResult) << c.length;
        EXPECT_EQ(attributes.GetLastWriteTime(p.attrs[0], time), c.timeResult) << c.length;
        EXPECT_EQ(id, c.length >= 72 ? 0x103u : c.idResult ? 0u : 0xFFFFFFFFu) << c.length;
        EXPECT_EQ(time, c.timeResult ? (c.length >= 16 ? 0x01D0000000000001ull : 0u) : ~0ull) << c.length;
    }
    TParsed nr = Parse({NonResidentAttr(0x10, {0x11, 1, 1}, 0, 4096, 72, 72)});
    uint32_t id;
    EXPECT_THROW(attributes.GetSecurityId(nr.attrs[0], id), CExc);
}

TEST(NtfsAttributes, UnnamedDataSizeTakesTheFirstUnnamedValueOnly) {
    CNtfsAttributes attributes(nullptr);
    TParsed p = Parse({ResidentAttr(0x80, TBytes(11, 0), u"ads"), ResidentAttr(0x80, TBytes(5, 0)),
                       NonResidentAttr(0x80, {0x11, 1, 1}, 0, 4096, 3000, 3000),
                       NonResidentAttr(0x80, {0x11, 1, 1}, 7, 4096, 9000, 9000)});
    uint64_t size = 0;
    EXPECT_EQ(attributes.GetUnnamedDataSize(p.attrs[0], size), 0);  // named
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(attributes.GetUnnamedDataSize(p.attrs[1], size), 1);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(attributes.GetUnnamedDataSize(p.attrs[2], size), 0);  // already set
    EXPECT_EQ(size, 5u);
    size = 0;
    EXPECT_EQ(attributes.GetUnnamedDataSize(p.attrs[3], size), 0);  // not the first extent
    EXPECT_EQ(attributes.GetUnnamedDataSize(p.attrs[2], size), 1);
    EXPECT_EQ(size, 3000u);
}

TBytes ListEntry(uint64_t reference, uint16_t length = 0x20) {
    TBytes e(length, 0);
    Put32(e, 0, 0x80);
    Put16(e, 4, length);
    Put64(e, 0x10, reference);
    return e;
}

TEST(NtfsAttributeList, NamesEachOtherRecordOnce) {
    TBytes list;
    for (uint64_t ref : {7ull, 0x0001000000000014ull, 21ull, 0x0002000000000014ull, 7ull}) {
        const TBytes e = ListEntry(ref);
        list.insert(list.end(), e.begin(), e.end());
    }
    TParsed p = Parse({ResidentAttr(0x20, list)});
    CNtfsVolume volume;
    std::vector<uint64_t> records;
    volume._ProcessAttributeList(7, p.attrs[0], records);
    EXPECT_EQ(records, (std::vector<uint64_t>{20, 21}));
}

TEST(NtfsAttributeList, DamagedEntriesFailNamingTheBaseRecord) {
    CNtfsVolume volume;
    std::vector<uint64_t> records;
    TBytes zero = ListEntry(9), cut = ListEntry(9);
    Put16(zero, 4, 0);
    cut.resize(0x12);
    for (const TBytes& entry : {zero, cut}) {
        TParsed p = Parse({ResidentAttr(0x20, entry)});
        try {
            volume._ProcessAttributeList(7, p.attrs[0], records);
            ADD_FAILURE();
        } catch (const CExc& e) {
            EXPECT_NE(e.GetDescription().find(u"FRN=0x0000000000000007 is corrupted"), std::u16string::npos);
        }
    }
}

TEST(NtfsAttributeContent, ResidentValueIsReadAndRefusesMoreContent) {
    CNtfsVolume volume;
    TParsed p = Parse({ResidentAttr(0x80, {'a', 'b', 'c'}, u"s", 4), NonResidentAttr(0x80, {0x11, 1, 1}, 0, 4096, 5, 5)});
    CAttributeContent content(&volume, 77, u"s");
    // Each failure names the attribute and its record.
    auto fails = [&](const std::function<void()>& f, std::u16string_view text) {
        try {
            f();
            ADD_FAILURE() << util::Utf16ToUtf8(std::u16string(text));
        } catch (const CExc& e) {
            EXPECT_NE(e.GetDescription().find(text), std::u16string::npos) << util::Utf16ToUtf8(e.GetDescription());
            EXPECT_NE(e.GetDescription().find(u"Attribute [s] of file record FRN=0x000000000000004d."),
                      std::u16string::npos);
        }
    };
    char out[8] = {};
    EXPECT_EQ(content.GetSize(), 0u);
    fails([&] { content.Read(0, out, 1); }, u"Attribute isn`t initialized.");
    content.ParseAttribute(p.attrs[0]);
    EXPECT_EQ(content.GetSize(), 3u);
    EXPECT_EQ(content.Read(1, out, 8), 2u);
    EXPECT_EQ(std::string(out, 2), "bc");
    fails([&] { content.Read(3, out, 0); }, u"Invalid offset 0x0000000000000003. Resident data length=0x0000000000000003.");
    EXPECT_THROW(content.ParseAttribute(p.attrs[0]), CExc);  // it has content already
    EXPECT_THROW(content.ParseAttribute(p.attrs[1]), CExc);
    EXPECT_EQ(content.GetState(), Resident);
}

}  // namespace
