// Directory search through FindFirstFileW / FindNextFileW / FindClose.

#include "platform/find.h"

#include "platform/errors.h"
#include "platform/win32/win32_util.h"

namespace platform {

class CFindState {
public:
    explicit CFindState(HANDLE h) : m_Handle(h) {}
    ~CFindState() { ::FindClose(m_Handle); }
    CFindState(const CFindState&) = delete;
    CFindState& operator=(const CFindState&) = delete;
    HANDLE Handle() const { return m_Handle; }

private:
    HANDLE m_Handle;
};

CFindHandle::CFindHandle() = default;
CFindHandle::CFindHandle(std::unique_ptr<CFindState> state) : m_State(std::move(state)) {}
CFindHandle::~CFindHandle() = default;
CFindHandle::CFindHandle(CFindHandle&&) noexcept = default;
CFindHandle& CFindHandle::operator=(CFindHandle&&) noexcept = default;

namespace {

void Convert(const WIN32_FIND_DATAW& from, TFindData& to) {
    to.attributes = from.dwFileAttributes;
    to.creationTime = win32::FromFileTime(from.ftCreationTime);
    to.lastAccessTime = win32::FromFileTime(from.ftLastAccessTime);
    to.lastWriteTime = win32::FromFileTime(from.ftLastWriteTime);
    to.size = (static_cast<uint64_t>(from.nFileSizeHigh) << 32) | from.nFileSizeLow;
    // dwReserved0 holds the tag only for a reparse point; otherwise it is undefined.
    to.reparseTag = (from.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ? from.dwReserved0 : 0;
    to.name = win32::FromWide(from.cFileName);
    to.alternateName = win32::FromWide(from.cAlternateFileName);
}

}  // namespace

CFindHandle FindFirst(std::u16string_view pattern, TFindData& data) {
    WIN32_FIND_DATAW found;
    HANDLE h = ::FindFirstFileW(win32::ToWide(pattern).c_str(), &found);
    if (h == INVALID_HANDLE_VALUE && win32::FailedOnVolumeName()) {
        const std::wstring other = win32::PathThroughMountPoint(pattern);
        if (!other.empty()) h = ::FindFirstFileW(other.c_str(), &found);
    }
    if (h == INVALID_HANDLE_VALUE) return CFindHandle();
    Convert(found, data);
    return CFindHandle(std::make_unique<CFindState>(h));
}

bool FindNext(CFindHandle& handle, TFindData& data) {
    if (!handle.IsValid()) return win32::Fail(kErrInvalidHandle);
    WIN32_FIND_DATAW found;
    if (!::FindNextFileW(handle.State()->Handle(), &found)) return false;
    Convert(found, data);
    return true;
}

}  // namespace platform
