#include "platform/registry.h"

#include <gtest/gtest.h>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/posix/registry_file.h"
#include "platform/process.h"
#include "testing/temp_registry.h"

namespace {

using platform::posix::CRegistryData;

std::vector<uint8_t> Utf16z(std::u16string_view s) {
    std::vector<uint8_t> out;
    for (char16_t c : s) {
        out.push_back(static_cast<uint8_t>(c));
        out.push_back(static_cast<uint8_t>(c >> 8));
    }
    out.push_back(0);
    out.push_back(0);
    return out;
}

const platform::posix::TRegValue* Value(const CRegistryData& data, std::u16string_view key,
                                        std::u16string_view name) {
    const auto* node = data.Find(platform::kHkeyLocalMachine, key);
    if (!node) return nullptr;
    for (const auto& v : node->values)
        if (v.name == name) return &v;
    return nullptr;
}

TEST(RegistryFile, ValueForms) {
    CRegistryData data;
    std::u16string problem;
    ASSERT_TRUE(data.Parse("Windows Registry Editor Version 5.00\r\n"
                           "; comment\r\n"
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA]\r\n"
                           "\"MAX_LOGS_COUNT\"=dword:0000001e\r\n"
                           "\"Text\"=\"a \\\"quoted\\\" C:\\\\dir\"\r\n"
                           "@=\"default\"\r\n"
                           "\"Bin\"=hex:01,02,ff\r\n"
                           "\"Long\"=hex(2):41,00,\\\r\n"
                           "  42,00,00,00\r\n"
                           "\"Short\"=dword:7\n"
                           "\"Empty\"=hex:\n",
                           problem))
        << util::Utf16ToUtf8(problem);
    const struct {
        const char16_t* name;
        uint32_t type;
        std::vector<uint8_t> data;
    } cases[] = {
        {u"MAX_LOGS_COUNT", platform::kRegDword, {0x1e, 0, 0, 0}},
        {u"Text", platform::kRegSz, Utf16z(u"a \"quoted\" C:\\dir")},
        {u"", platform::kRegSz, Utf16z(u"default")},
        {u"Bin", platform::kRegBinary, {1, 2, 0xff}},
        {u"Long", platform::kRegExpandSz, Utf16z(u"AB")},
        {u"Short", platform::kRegDword, {7, 0, 0, 0}},
        {u"Empty", platform::kRegBinary, {}},
    };
    for (const auto& c : cases) {
        const auto* v = Value(data, u"SOFTWARE\\NorvA", c.name);
        ASSERT_TRUE(v) << util::Utf16ToUtf8(c.name);
        EXPECT_EQ(v->type, c.type) << util::Utf16ToUtf8(c.name);
        EXPECT_EQ(v->data, c.data) << util::Utf16ToUtf8(c.name);
    }
}

TEST(RegistryFile, Utf16WithMarkAsRegExportWritesIt) {
    std::u16string text = u"Windows Registry Editor Version 5.00\r\n\r\n[HKLM\\Software\\X]\r\n"
                          u"\"N\"=\"\u00e9t\u00e9\"\r\n";
    std::string bytes = "\xFF\xFE";
    for (char16_t c : text) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8);
    }
    CRegistryData data;
    std::u16string problem;
    ASSERT_TRUE(data.Parse(bytes, problem));
    const auto* node = data.Find(platform::kHkeyLocalMachine, u"software\\X");
    ASSERT_TRUE(node);
    ASSERT_EQ(node->values.size(), 1u);
    EXPECT_EQ(platform::RegDataToString(node->values[0].data), u"\u00e9t\u00e9");
}

TEST(RegistryFile, KeysAndValuesDeletedReplacedAndImplied) {
    CRegistryData data;
    std::u16string problem;
    ASSERT_TRUE(data.Parse("[HKEY_LOCAL_MACHINE\\A\\B\\C]\n"
                           "[HKEY_LOCAL_MACHINE\\A]\n"
                           "\"v\"=dword:1\n"
                           "\"V\"=dword:2\n"  // same name in another case: replaced in place
                           "\"w\"=dword:3\n"
                           "\"w\"=-\n"
                           "[HKEY_LOCAL_MACHINE\\A\\D]\n"
                           "[-HKEY_LOCAL_MACHINE\\A\\B]\n",
                           problem));
    EXPECT_TRUE(data.Find(platform::kHkeyLocalMachine, u"a\\d"));
    EXPECT_FALSE(data.Find(platform::kHkeyLocalMachine, u"A\\B"));
    EXPECT_FALSE(data.Find(platform::kHkeyLocalMachine, u"A\\B\\C"));
    const auto* node = data.Find(platform::kHkeyLocalMachine, u"A");
    ASSERT_TRUE(node);
    EXPECT_EQ(node->children.size(), 1u);
    ASSERT_EQ(node->values.size(), 1u);
    EXPECT_EQ(node->values[0].name, u"v");
    EXPECT_EQ(node->values[0].data[0], 2);
}

TEST(RegistryFile, DamagedLinesNameTheLine) {
    struct Case {
        const char* text;
        const char16_t* problem;
    } cases[] = {
        {"\"v\"=dword:1\n", u"line 1: value outside of a key"},
        {"[HKLM\\A]\n\"v\"=dword:123456789\n", u"line 2: bad dword data"},
        {"[HKLM\\A]\n\"v\"=hex:1,2\n", u"line 2: bad hex data"},
        {"[HKLM\\A]\n\"v\"=\"open\n", u"line 2: bad string data"},
        {"[HKLM\\A]\n\"v\" dword:1\n", u"line 2: \"=\" expected after the value name"},
        {"[HKEY_NOWHERE\\A]\n", u"line 1: unknown root key"},
        {"[-HKLM]\n", u"line 1: a root key cannot be deleted"},
        {"\n\nplain words\n", u"line 3: neither a key nor a value"},
    };
    for (const auto& c : cases) {
        CRegistryData data;
        std::u16string problem;
        EXPECT_FALSE(data.Parse(c.text, problem)) << c.text;
        EXPECT_EQ(problem, c.problem) << c.text;
        EXPECT_FALSE(data.Find(platform::kHkeyLocalMachine, u"")) << "emptied after a failure";
    }
}

TEST(Registry, CallsReadTheFileNamedByTheVariable) {
    ngitest::CTempRegistry registry(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\r\n"
        "\"IndexerMaxNestedFolders\"=dword:00000010\r\n"
        "\"Name\"=\"text\"\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\beta]\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Alpha]\r\n");
    platform::CRegKey key;
    ASSERT_TRUE(platform::RegOpenKey(platform::kHkeyLocalMachine,
                                     u"software\\norva\\NORVA ARCHIVE AND MIRROR",
                                     platform::kKeyRead, key));
    uint32_t type = 0;
    std::vector<uint8_t> data;
    ASSERT_TRUE(platform::RegQueryValue(key, u"indexermaxnestedfolders", type, data));
    EXPECT_EQ(type, platform::kRegDword);
    EXPECT_FALSE(platform::RegQueryValue(key, u"Missing", type, data));
    EXPECT_EQ(platform::GetLastError(), platform::kErrFileNotFound);

    std::u16string name;
    ASSERT_TRUE(platform::RegEnumValue(key, 1, name, type, data));
    EXPECT_EQ(name, u"Name");
    EXPECT_EQ(platform::RegDataToString(data), u"text");
    EXPECT_FALSE(platform::RegEnumValue(key, 2, name, type, data));
    EXPECT_EQ(platform::GetLastError(), platform::kErrNoMoreItems);

    platform::CRegKey parent;
    ASSERT_TRUE(platform::RegOpenKey(platform::kHkeyLocalMachine, u"SOFTWARE\\NorvA",
                                     platform::kKeyRead, parent));
    std::vector<std::u16string> subkeys;
    for (uint32_t i = 0; platform::RegEnumKey(parent, i, name); ++i) subkeys.push_back(name);
    EXPECT_EQ(platform::GetLastError(), platform::kErrNoMoreItems);
    EXPECT_EQ(subkeys, (std::vector<std::u16string>{u"Alpha", u"beta", u"Norva Archive and Mirror"}));

    uint32_t value = 0;
    EXPECT_TRUE(platform::RegReadDword(platform::kHkeyLocalMachine,
                                       u"SOFTWARE\\NorvA\\Norva Archive and Mirror",
                                       u"IndexerMaxNestedFolders", value));
    EXPECT_EQ(value, 16u);

    EXPECT_FALSE(platform::RegOpenKey(platform::kHkeyLocalMachine, u"SOFTWARE\\Other",
                                      platform::kKeyRead, key));
    EXPECT_EQ(platform::GetLastError(), platform::kErrFileNotFound);
    EXPECT_FALSE(key.IsValid());
}

TEST(Registry, DamagedOrMissingFile) {
    ngitest::CTempRegistry registry("[HKLM\\K]\n\"v\"=dword:zz\n");
    platform::CRegKey key;
    EXPECT_FALSE(platform::RegOpenKey(platform::kHkeyLocalMachine, u"K", platform::kKeyRead, key));
    EXPECT_EQ(platform::GetLastError(), platform::kErrBadDb);

    platform::SetEnvVar(u"NGI_REGISTRY_FILE", u"/nonexistent/registry.reg");
    EXPECT_FALSE(platform::RegOpenKey(platform::kHkeyLocalMachine, u"K", platform::kKeyRead, key));
    EXPECT_EQ(platform::GetLastError(), platform::kErrFileNotFound);
    EXPECT_TRUE(platform::RegOpenKey(platform::kHkeyLocalMachine, u"", platform::kKeyRead, key));
}

}  // namespace
