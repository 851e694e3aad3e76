// The Win32 registry and process calls under Windows or Wine. The
// registry keys are made here with the Win32 calls themselves (the platform
// layer only reads) under HKEY_CURRENT_USER and removed afterwards.

#include "platform/win32/win32_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/errors.h"
#include "platform/process.h"
#include "platform/registry.h"

namespace platform {
namespace {

class Win32RegistryTest : public testing::Test {
protected:
    void SetUp() override {
        m_SubKey = u"Software\\NgiWin32Test" + std::u16string(u"-") +
                   FromNumber(::GetCurrentProcessId());
        HKEY key = nullptr;
        ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, Wide(m_SubKey), 0, nullptr, 0, KEY_ALL_ACCESS,
                                    nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        DWORD dword = 0x01020304;
        ::RegSetValueExW(key, L"Priority", 0, REG_DWORD, reinterpret_cast<BYTE*>(&dword), 4);
        const wchar_t text[] = L"BACKGROUND";
        ::RegSetValueExW(key, L"Mode", 0, REG_SZ, reinterpret_cast<const BYTE*>(text), sizeof(text));
        const wchar_t multi[] = L"a\0bc\0";  // with the literal's own null: two at the end
        ::RegSetValueExW(key, L"List", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(multi),
                         sizeof(multi));
        HKEY child = nullptr;
        ::RegCreateKeyExW(key, L"Child", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &child, nullptr);
        ::RegCloseKey(child);
        ::RegCloseKey(key);
    }
    void TearDown() override { ::RegDeleteTreeW(HKEY_CURRENT_USER, Wide(m_SubKey)); }

    static std::u16string FromNumber(uint32_t n) {
        std::string s = std::to_string(n);
        return std::u16string(s.begin(), s.end());
    }
    const wchar_t* Wide(const std::u16string& s) { return reinterpret_cast<const wchar_t*>(s.c_str()); }

    std::u16string m_SubKey;
};

TEST_F(Win32RegistryTest, ReadsValuesAndEnumerates) {
    CRegKey key;
    ASSERT_TRUE(RegOpenKey(kHkeyCurrentUser, m_SubKey, kKeyRead, key)) << GetLastError();
    uint32_t type = 0;
    std::vector<uint8_t> data;
    ASSERT_TRUE(RegQueryValue(key, u"mode", type, data));  // names ignore case
    EXPECT_EQ(type, kRegSz);
    EXPECT_EQ(RegDataToString(data), u"BACKGROUND");
    ASSERT_TRUE(RegQueryValue(key, u"List", type, data));
    EXPECT_EQ(type, kRegMultiSz);
    EXPECT_EQ(data.size(), 12u);  // "a", "bc", each with its null, one null more

    uint32_t value = 0;
    ASSERT_TRUE(RegReadDword(kHkeyCurrentUser, m_SubKey, u"Priority", value));
    EXPECT_EQ(value, 0x01020304u);
    EXPECT_FALSE(RegReadDword(kHkeyCurrentUser, m_SubKey, u"Mode", value));
    EXPECT_EQ(GetLastError(), kErrInvalidData);

    std::u16string name;
    ASSERT_TRUE(RegEnumKey(key, 0, name));
    EXPECT_EQ(name, u"Child");
    EXPECT_FALSE(RegEnumKey(key, 1, name));
    EXPECT_EQ(GetLastError(), kErrNoMoreItems);

    std::vector<std::u16string> names;
    for (uint32_t i = 0; RegEnumValue(key, i, name, type, data); ++i) names.push_back(name);
    EXPECT_EQ(GetLastError(), kErrNoMoreItems);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::u16string>{u"List", u"Mode", u"Priority"}));
}

TEST(Win32Process, FileVersion) {
    uint16_t parts[4] = {};
    std::u16string self;
    ASSERT_TRUE(GetModuleFileName(self));
    // The test program has no resources at all: 1812 (1813 where it has
    // resources but no version).
    EXPECT_FALSE(GetFileVersion(self, parts));
    EXPECT_TRUE(GetLastError() == 1812u || GetLastError() == kErrResourceTypeNotFound)
        << GetLastError();
    // A system library has one (Windows' and Wine's alike).
    EXPECT_TRUE(GetFileVersion(u"C:\\windows\\system32\\kernel32.dll", parts)) << GetLastError();
    EXPECT_NE(parts[0], 0);
}

}  // namespace
}  // namespace platform
