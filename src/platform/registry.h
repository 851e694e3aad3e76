#pragma once
// The registry, as thin wrappers of RegOpenKeyExW, RegQueryValueExW,
// RegEnumKeyExW and RegEnumValueW.
//
// Every call returns false on failure and sets the thread's last error to
// the status the registry call would return (platform/errors.h):
//   2   the key or the value does not exist;
//   259 an enumeration index is past the end (kErrNoMoreItems);
//   1009 the registry store is damaged (POSIX: the registry file does not
//        parse; every open fails alike, so settings fall back to defaults);
//   6   the key handle is not open.
// Key and value names compare without regard to case. Value data is handed
// back as the registry stores it: REG_SZ and REG_EXPAND_SZ as UTF-16LE with
// the terminating null, REG_DWORD as four little-endian bytes, REG_MULTI_SZ
// as null-separated strings ending in two nulls.
//
// POSIX: the registry is a text file in the `reg export` format, named by the
// environment variable NGI_REGISTRY_FILE (default kDefaultRegistryFile); it
// is read afresh at every RegOpenKey, and an open key keeps the snapshot it
// was opened on. A missing file is an empty registry. Writes are not offered:
// nothing in the program writes the registry. See docs/platform.md.
//
// Thread-safety: calls on distinct keys may run on any threads; one CRegKey
// is not to be used by two threads at once.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Predefined root keys, with the values of the HKEY constants.
using RegRoot = uint32_t;
inline constexpr RegRoot kHkeyClassesRoot = 0x80000000u;
inline constexpr RegRoot kHkeyCurrentUser = 0x80000001u;
inline constexpr RegRoot kHkeyLocalMachine = 0x80000002u;
inline constexpr RegRoot kHkeyUsers = 0x80000003u;
inline constexpr RegRoot kHkeyCurrentConfig = 0x80000005u;

// Access masks.
inline constexpr uint32_t kKeyRead = 0x20019u;           // KEY_READ
inline constexpr uint32_t kKeyReadWrite = 0x2001Fu;      // KEY_READ | KEY_WRITE

// Value types.
inline constexpr uint32_t kRegNone = 0, kRegSz = 1, kRegExpandSz = 2, kRegBinary = 3,
                          kRegDword = 4, kRegMultiSz = 7, kRegQword = 11;

// POSIX: the file that stands for the registry, and the variable that names
// another one.
inline constexpr char kRegistryFileVariable[] = "NGI_REGISTRY_FILE";
inline constexpr char kDefaultRegistryFile[] = "/etc/norva-guest-indexer/registry.reg";

class CRegKeyState;  // the implementation's open key

// Owns one open key; closes it at destruction (RegCloseKey). Move-only.
class CRegKey {
public:
    CRegKey();
    explicit CRegKey(std::unique_ptr<CRegKeyState> state);
    ~CRegKey();
    CRegKey(CRegKey&&) noexcept;
    CRegKey& operator=(CRegKey&&) noexcept;
    bool IsValid() const { return m_State != nullptr; }
    CRegKeyState* State() const { return m_State.get(); }

private:
    std::unique_ptr<CRegKeyState> m_State;
};

// RegOpenKeyExW(root, subKey, 0, access). An empty subKey opens the root.
// Errors: 2 no such key, 1009 damaged store, 87 unknown root.
bool RegOpenKey(RegRoot root, std::u16string_view subKey, uint32_t access, CRegKey& key);

// Empty when the registry store can be read. POSIX: where the registry file
// exists but cannot be read or does not parse, a text naming the file and
// the problem ("Registry file [path] is damaged: line 3: ..."); the program
// refuses to run on it, since the file also holds the volume table.
// Windows: always empty.
std::u16string GetRegistryProblem();
// RegQueryValueExW; an empty name is the key's default value. Errors: 2, 6.
bool RegQueryValue(const CRegKey& key, std::u16string_view name, uint32_t& type,
                   std::vector<uint8_t>& data);
// RegEnumKeyExW: the name of subkey `index` (in the order of case-insensitive
// names on POSIX). Error 259 past the end.
bool RegEnumKey(const CRegKey& key, uint32_t index, std::u16string& name);
// RegEnumValueW: value `index` (in the order of the file on POSIX). 259 past the end.
bool RegEnumValue(const CRegKey& key, uint32_t index, std::u16string& name, uint32_t& type,
                  std::vector<uint8_t>& data);

// Helpers over the calls above, the same on both platforms (registry.cpp).

// Opens root\subKey with `access` and reads a REG_DWORD value. False (last
// error set; 13 when the value has another type or size) on any failure.
bool RegReadDword(RegRoot root, std::u16string_view subKey, std::u16string_view name,
                  uint32_t& value, uint32_t access = kKeyRead);
// The text of REG_SZ / REG_EXPAND_SZ / REG_MULTI_SZ data: UTF-16LE up to
// the first null (the whole data when it has none; an odd last byte is dropped).
std::u16string RegDataToString(const std::vector<uint8_t>& data);

}  // namespace platform
