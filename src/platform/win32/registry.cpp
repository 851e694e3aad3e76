// The registry through RegOpenKeyExW, RegQueryValueExW, RegEnumKeyExW and
// RegEnumValueW. The Reg* calls return their status instead of setting the
// last error; each failure here hands that status to the last error.

#include "platform/win32/win32_util.h"

#include "platform/errors.h"
#include "platform/registry.h"

namespace platform {

class CRegKeyState {
public:
    explicit CRegKeyState(HKEY key) : m_Key(key) {}
    ~CRegKeyState() { ::RegCloseKey(m_Key); }
    CRegKeyState(const CRegKeyState&) = delete;
    CRegKeyState& operator=(const CRegKeyState&) = delete;
    HKEY Key() const { return m_Key; }

private:
    HKEY m_Key;
};

CRegKey::CRegKey() = default;
CRegKey::CRegKey(std::unique_ptr<CRegKeyState> state) : m_State(std::move(state)) {}
CRegKey::~CRegKey() = default;
CRegKey::CRegKey(CRegKey&&) noexcept = default;
CRegKey& CRegKey::operator=(CRegKey&&) noexcept = default;

namespace {

using win32::Fail;

// The predefined HKEY of a root (the HKEY values are sign-extended on 64-bit
// Windows, so they are named rather than cast); null for anything else.
HKEY RootKey(RegRoot root) {
    switch (root) {
        case kHkeyClassesRoot: return HKEY_CLASSES_ROOT;
        case kHkeyCurrentUser: return HKEY_CURRENT_USER;
        case kHkeyLocalMachine: return HKEY_LOCAL_MACHINE;
        case kHkeyUsers: return HKEY_USERS;
        case kHkeyCurrentConfig: return HKEY_CURRENT_CONFIG;
        default: return nullptr;
    }
}

bool Status(LONG status) { return status == ERROR_SUCCESS ? true : Fail(static_cast<uint32_t>(status)); }

// A value may change size between the size query and the read: a few tries.
constexpr int kReadAttempts = 4;

}  // namespace

bool RegOpenKey(RegRoot root, std::u16string_view subKey, uint32_t access, CRegKey& key) {
    HKEY parent = RootKey(root);
    if (!parent) return Fail(kErrInvalidParameter);
    HKEY opened = nullptr;
    if (!Status(::RegOpenKeyExW(parent, win32::ToWide(subKey).c_str(), 0, access, &opened)))
        return false;
    key = CRegKey(std::make_unique<CRegKeyState>(opened));
    return true;
}

bool RegQueryValue(const CRegKey& key, std::u16string_view name, uint32_t& type,
                   std::vector<uint8_t>& data) {
    if (!key.IsValid()) return Fail(kErrInvalidHandle);
    const std::wstring wideName = win32::ToWide(name);
    for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
        DWORD valueType = 0, size = 0;
        LONG status = ::RegQueryValueExW(key.State()->Key(), wideName.c_str(), nullptr, &valueType,
                                         nullptr, &size);
        if (status != ERROR_SUCCESS) return Status(status);
        data.resize(size);
        status = ::RegQueryValueExW(key.State()->Key(), wideName.c_str(), nullptr, &valueType,
                                    data.data(), &size);
        if (status == ERROR_MORE_DATA) continue;
        if (status != ERROR_SUCCESS) return Status(status);
        data.resize(size);
        type = valueType;
        return true;
    }
    return Fail(kErrMoreData);
}

bool RegEnumKey(const CRegKey& key, uint32_t index, std::u16string& name) {
    if (!key.IsValid()) return Fail(kErrInvalidHandle);
    wchar_t buffer[256];  // a key name has at most 255 characters
    DWORD length = 256;
    if (!Status(::RegEnumKeyExW(key.State()->Key(), index, buffer, &length, nullptr, nullptr,
                                nullptr, nullptr)))
        return false;
    name = win32::FromWide(buffer, length);
    return true;
}

bool RegEnumValue(const CRegKey& key, uint32_t index, std::u16string& name, uint32_t& type,
                  std::vector<uint8_t>& data) {
    if (!key.IsValid()) return Fail(kErrInvalidHandle);
    std::wstring buffer(16384, L'\0');  // a value name has at most 16,383 characters
    for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
        DWORD length = static_cast<DWORD>(buffer.size()), valueType = 0, size = 0;
        LONG status = ::RegEnumValueW(key.State()->Key(), index, buffer.data(), &length, nullptr,
                                      &valueType, nullptr, &size);
        if (status != ERROR_SUCCESS) return Status(status);
        data.resize(size);
        length = static_cast<DWORD>(buffer.size());
        status = ::RegEnumValueW(key.State()->Key(), index, buffer.data(), &length, nullptr,
                                 &valueType, data.data(), &size);
        if (status == ERROR_MORE_DATA) continue;
        if (status != ERROR_SUCCESS) return Status(status);
        data.resize(size);
        name = win32::FromWide(buffer.data(), length);
        type = valueType;
        return true;
    }
    return Fail(kErrMoreData);
}

std::u16string GetRegistryProblem() { return {}; }

}  // namespace platform
