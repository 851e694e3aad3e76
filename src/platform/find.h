#pragma once
// Directory search, as FindFirstFileW / FindNextFileW.
//
// The pattern is "<folder>\<mask>"; the mask matches by the Windows wildcard
// rules (`*`, and `?` that may also match nothing before a dot or at the end),
// without regard to case. A folder other than a volume root also lists "."
// and "..", as on Windows. Entries are not followed: a symbolic link is a
// reparse point (kAttrReparsePoint, with kAttrDirectory when its target is a
// folder), described by the link itself.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/file.h"  // the kAttr* values of TFindData::attributes

namespace platform {

struct TFindData {
    uint32_t attributes = 0;
    uint64_t creationTime = 0;    // FILETIME ticks
    uint64_t lastAccessTime = 0;
    uint64_t lastWriteTime = 0;
    uint64_t size = 0;
    uint32_t reparseTag = 0;      // dwReserved0 when kAttrReparsePoint is set
    std::u16string name;
    std::u16string alternateName;
};

class CFindState;  // the implementation's search state

// Owns one search. Move-only; closes at destruction (FindClose).
class CFindHandle {
public:
    CFindHandle();
    explicit CFindHandle(std::unique_ptr<CFindState> state);
    ~CFindHandle();
    CFindHandle(CFindHandle&&) noexcept;
    CFindHandle& operator=(CFindHandle&&) noexcept;
    bool IsValid() const { return m_State != nullptr; }
    CFindState* State() const { return m_State.get(); }

private:
    std::unique_ptr<CFindState> m_State;
};

// FindFirstFileW: an invalid handle with last error 2 when nothing matches
// in an existing folder, 3 when the folder is missing, 5 when it can't be read.
CFindHandle FindFirst(std::u16string_view pattern, TFindData& data);
// FindNextFileW: false with last error 18 at the end.
bool FindNext(CFindHandle& handle, TFindData& data);

// The wildcard rule alone, case-insensitive as FindFirst matches.
bool MatchesWildcard(std::u16string_view mask, std::u16string_view name);

}  // namespace platform
