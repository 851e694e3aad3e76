#pragma once
// POSIX side only: the registry file, text in the `reg export` format.
//
//   Windows Registry Editor Version 5.00        (or REGEDIT4; optional)
//   ; a comment
//   [HKEY_LOCAL_MACHINE\SOFTWARE\NorvA]          a key (parents implied)
//   "MAX_LOGS_COUNT"=dword:0000001e              REG_DWORD, 1 to 8 hex digits
//   "Name"="text with \\ and \""                 REG_SZ
//   @="default value"                            the key's unnamed value
//   "Bin"=hex:01,02,ff                           REG_BINARY
//   "Exp"=hex(2):25,00,41,00,00,00               any type: hex(<type in hex>)
//   "Long"=hex:01,02,\                           a line ending in "\" goes on
//     03,04                                        in the next one
//   "Gone"=-                                     deletes the value
//   [-HKEY_LOCAL_MACHINE\SOFTWARE\Old]           deletes the key and its subkeys
//
// The bytes are UTF-16LE after the mark FF FE (what `reg export` writes), or
// UTF-8 with or without its mark. Lines end in LF or CR LF. Root names are
// HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT, HKEY_USERS,
// HKEY_CURRENT_CONFIG or their short forms (HKLM, HKCU, HKCR, HKU, HKCC).
// Key and value names compare without regard to case; a later definition of
// a value replaces the earlier one in its place.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace platform::posix {

struct TRegValue {
    std::u16string name;
    uint32_t type = 0;
    std::vector<uint8_t> data;
};

struct TRegKeyNode {
    std::vector<TRegValue> values;                    // in the order of the file
    std::map<std::u16string, std::u16string> children;  // folded name -> name
};

class CRegistryData {
public:
    CRegistryData();
    // Replaces the contents by those of the file's bytes. False with a
    // description ("line 7: value outside of a key") when they don't parse;
    // the contents are then empty.
    bool Parse(std::string_view bytes, std::u16string& problem);

    // The key root\path (path components separated by "\", empty for the
    // root itself); null when absent or the root is unknown.
    const TRegKeyNode* Find(uint32_t root, std::u16string_view path) const;

private:
    TRegKeyNode& _Create(const std::vector<std::u16string>& components);
    void _Delete(const std::vector<std::u16string>& components);
    std::map<std::u16string, TRegKeyNode> m_Keys;  // folded full path -> key
};

}  // namespace platform::posix
