#include "diag/settings.h"

#include <algorithm>
#include <vector>

#include "platform/registry.h"

namespace settings {

namespace {

uint32_t ReadDword(std::u16string_view name, uint32_t defaultValue) {
    uint32_t value = 0;
    return platform::RegReadDword(platform::kHkeyLocalMachine, kSettingsKey, name, value)
               ? value
               : defaultValue;
}

bool ReadBool(std::u16string_view name, bool defaultValue) {
    return ReadDword(name, defaultValue ? 1 : 0) != 0;
}

}  // namespace

uint32_t GetReadAheadDepth() { return ReadDword(u"IndexerReadAheadDepth", kDefaultReadAheadDepth); }
uint32_t GetReadAheadKiB() {
    return std::clamp<uint32_t>(ReadDword(u"IndexerReadAheadKiB", kDefaultReadAheadKiB), 256, 16384);
}
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
        !platform::RegQueryValue(key, u"SqlTempLogPath", type, data) ||
        (type != platform::kRegSz && type != platform::kRegExpandSz))
        return {};
    std::u16string text = platform::RegDataToString(data);
    return text.size() <= kMaxChars ? text : std::u16string();
}

}  // namespace settings
