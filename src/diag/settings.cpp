#include "diag/settings.h"

#include <algorithm>
#include <vector>

#include "base/format.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/registry.h"

namespace settings {

namespace {

uint32_t ReadDword(std::u16string_view name, uint32_t defaultValue) {
    uint32_t value = 0;
    // Every value of this key is read with the key opened for reading and
    // writing (0x2001F), as the family's programs open it.
    if (platform::RegReadDword(platform::kHkeyLocalMachine, kSettingsKey, name, value, platform::kKeyReadWrite))
        return value;
    if (platform::GetLastError() == platform::kErrInvalidData)
        WarnUnusableValue(kSettingsKey, name, u"not a DWORD", util::ToStrU32(defaultValue));
    return defaultValue;
}

// A value outside [low, high] is named and replaced by its default.
uint32_t ReadDwordInRange(std::u16string_view name, uint32_t defaultValue, uint32_t low, uint32_t high) {
    const uint32_t value = ReadDword(name, defaultValue);
    if (value >= low && value <= high) return value;
    WarnUnusableValue(kSettingsKey, name,
                      FormatMessageArgs(u"%1, outside %2 to %3",
                                        {util::ToStrU32(value), util::ToStrU32(low), util::ToStrU32(high)}),
                      util::ToStrU32(defaultValue));
    return defaultValue;
}

bool ReadBool(std::u16string_view name, bool defaultValue) {
    return ReadDword(name, defaultValue ? 1 : 0) != 0;
}

}  // namespace

uint32_t GetReadAheadDepth() {
    return ReadDwordInRange(u"IndexerReadAheadDepth", kDefaultReadAheadDepth, 0, kMaxReadAheadDepth);
}
bool IsReadAheadOn() {
    uint32_t value = 0;
    return !platform::RegReadDword(platform::kHkeyLocalMachine, kSettingsKey, u"IndexerReadAheadDepth", value,
                                   platform::kKeyReadWrite) ||
           value != 0;
}
uint32_t GetReadAheadKiB() { return ReadDwordInRange(u"IndexerReadAheadKiB", kDefaultReadAheadKiB, 256, 16384); }
bool IsDirectIoForImages() { return ReadBool(u"IndexerDirectIoImages", false); }

uint32_t GetMaxNestedFolders() { return ReadDword(u"IndexerMaxNestedFolders", 0); }
bool IsSkipReparsePoints() { return ReadBool(u"IndexerSkipReparsePoints", false); }
bool IsSkipReparsePointUNC() { return ReadBool(u"IndexerSkipReparsePointUNC", true); }
bool IsSkipOwnersParsing() { return ReadBool(u"IndexerSkipOwnersParsing", false); }
bool IsOutOfProcDumpGen() { return ReadBool(u"OutOfProcDumpGen", false); }
uint32_t GetMiniDumpModeMask() { return ReadDword(u"MiniDumpModeMask", 0); }

std::u16string GetSqlTempLogPath() {
    constexpr size_t kMaxChars = 32;
    platform::CRegKey key;
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (!platform::RegOpenKey(platform::kHkeyLocalMachine, kSettingsKey, platform::kKeyReadWrite,
                              key) ||
        !platform::RegQueryValue(key, u"SqlTempLogPath", type, data))
        return {};
    if (type != platform::kRegSz && type != platform::kRegExpandSz) {
        WarnUnusableValue(kSettingsKey, u"SqlTempLogPath", u"not a string", u"");
        return {};
    }
    std::u16string text = platform::RegDataToString(data);
    if (text.size() <= kMaxChars) return text;
    WarnUnusableValue(kSettingsKey, u"SqlTempLogPath", u"longer than 32 characters", u"");
    return {};
}

void WarnUnusableValue(std::u16string_view key, std::u16string_view name, std::u16string_view problem,
                       std::u16string_view defaultText) {
    GetLog().Warning(u"Registry value [HKLM\\%1\\%2] is %3; the default [%4] is used instead.", key, name,
                     problem, defaultText);
}

}  // namespace settings
