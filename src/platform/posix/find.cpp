// Directory search on POSIX: a folder read at FindFirst, entries matched by
// the Windows wildcard rules and described without following links.

#include "platform/find.h"

#include <dirent.h>
#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wctype.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "platform/errors.h"
#include "platform/names.h"
#include "platform/posix/file_info.h"
#include "platform/posix/native_path.h"
#include "platform/posix/posix_errors.h"

namespace platform {

// Every matching entry, read and described when the search starts: a walk
// then holds no descriptor per open search, however deep it goes.
class CFindState {
public:
    std::vector<TFindData> m_Entries;
    size_t m_Next = 0;
};

CFindHandle::CFindHandle() = default;
CFindHandle::CFindHandle(std::unique_ptr<CFindState> state) : m_State(std::move(state)) {}
CFindHandle::~CFindHandle() = default;
CFindHandle::CFindHandle(CFindHandle&&) noexcept = default;
CFindHandle& CFindHandle::operator=(CFindHandle&&) noexcept = default;

namespace {

// Wildcards as the file system sees them after FindFirstFileW rewrote the
// mask: '?' is kDosQm, '.' before '?', '*' or the end is kDosDot, '*' before
// '.' is kDosStar.
constexpr char16_t kDosStar = 0xFFF1, kDosQm = 0xFFF2, kDosDot = 0xFFF3;

// Simple upper-case mapping of one UTF-16 unit (surrogates stay).
char16_t Upper(char16_t c) {
    if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
    if (c >= 0xD800 && c <= 0xDFFF) return c;
    static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (!utf8) return c;
    const wint_t u = ::towupper_l(c, utf8);
    return u <= 0xFFFF ? static_cast<char16_t>(u) : c;
}

std::u16string RewriteMask(std::u16string_view mask) {
    if (mask == u"*.*") return u"*";
    std::u16string out(mask);
    for (size_t i = 0; i < out.size(); ++i) {
        const char16_t next = i + 1 < mask.size() ? mask[i + 1] : 0;
        if (mask[i] == u'?') out[i] = kDosQm;
        else if (mask[i] == u'.' && (next == 0 || next == u'?' || next == u'*')) out[i] = kDosDot;
        else if (mask[i] == u'*' && next == u'.') out[i] = kDosStar;
        else out[i] = Upper(mask[i]);
    }
    return out;
}

bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

// "X:", "\\?\Volume{...}" or "\\.\X:" with nothing after it.
bool NamesVolumeRoot(std::u16string_view folder) {
    while (!folder.empty() && IsSeparator(folder.back())) folder.remove_suffix(1);
    if (folder.size() == 2 && folder[1] == u':') return true;
    if (folder.starts_with(u"\\\\?\\") || folder.starts_with(u"\\\\.\\")) {
        std::u16string_view rest = folder.substr(4);
        return std::none_of(rest.begin(), rest.end(), IsSeparator);
    }
    return false;
}

// The folder is the root of a Linux file system (or "/").
bool IsMountRoot(int dirFd) {
    struct stat self, parent;
    if (::fstat(dirFd, &self) != 0 || ::fstatat(dirFd, "..", &parent, 0) != 0) return false;
    return self.st_dev != parent.st_dev || self.st_ino == parent.st_ino;
}

bool Before(const TFindData& a, const TFindData& b) {
    auto rank = [](const std::u16string& n) { return n == u"." ? 0 : n == u".." ? 1 : 2; };
    if (rank(a.name) != rank(b.name)) return rank(a.name) < rank(b.name);
    const size_t n = std::min(a.name.size(), b.name.size());
    for (size_t i = 0; i < n; ++i) {
        const char16_t x = Upper(a.name[i]), y = Upper(b.name[i]);
        if (x != y) return x < y;
    }
    if (a.name.size() != b.name.size()) return a.name.size() < b.name.size();
    return a.name < b.name;
}

}  // namespace

namespace {

// Matches a mask already rewritten by RewriteMask.
bool MatchesExpression(std::u16string_view expr, std::u16string_view name) {
    const size_t m = expr.size(), n = name.size();
    size_t lastDot = std::u16string_view::npos;
    for (size_t j = 0; j < n; ++j)
        if (name[j] == u'.') lastDot = j;
    // can[j]: the expression read so far can end just before name[j].
    std::vector<char> can(n + 1, 0), next(n + 1, 0);
    can[0] = 1;
    for (size_t i = 0; i < m; ++i) {
        std::fill(next.begin(), next.end(), 0);
        const char16_t e = expr[i];
        for (size_t j = 0; j <= n; ++j) {
            if (!can[j]) continue;
            const bool atEnd = j == n;
            switch (e) {
                case u'*':
                    for (size_t k = j; k <= n; ++k) next[k] = 1;
                    break;
                case kDosStar: {
                    // Any run of names, but not past the name's last dot.
                    const size_t limit = (lastDot != std::u16string_view::npos && lastDot >= j) ? lastDot : n;
                    for (size_t k = j; k <= limit; ++k) next[k] = 1;
                    break;
                }
                case kDosQm:
                    if (!atEnd && name[j] != u'.') next[j + 1] = 1;
                    else next[j] = 1;
                    break;
                case kDosDot:
                    if (!atEnd && name[j] == u'.') next[j + 1] = 1;
                    else if (atEnd) next[j] = 1;
                    break;
                default:
                    if (!atEnd && Upper(name[j]) == e) next[j + 1] = 1;
                    break;
            }
        }
        can.swap(next);
        if (std::find(can.begin(), can.end(), 1) == can.end()) return false;
    }
    return can[n] != 0;
}

}  // namespace

bool MatchesWildcard(std::u16string_view mask, std::u16string_view name) {
    return MatchesExpression(RewriteMask(mask), name);
}

namespace {

struct TDirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

// The one entry that a mask without wildcards names as spelled on disk,
// found without reading the folder.
bool FindExact(int fd, std::u16string_view mask, std::vector<TFindData>& entries) {
    if (mask.find_first_of(u"*?") != std::u16string_view::npos || mask == u"." || mask == u"..")
        return false;
    const auto bytes = NameToNative(mask);
    TFindData item;
    if (!bytes || bytes->empty() || !posix::StatAt(fd, bytes->c_str(), item)) return false;
    item.name = std::u16string(mask);
    entries.push_back(std::move(item));
    return true;
}

// Every entry of the folder that the mask matches; false (last error set)
// when the folder can't be read.
bool ReadMatching(DIR* dir, std::u16string_view mask, bool root, std::vector<TFindData>& entries) {
    const int fd = ::dirfd(dir);
    const std::u16string expr = RewriteMask(mask);
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir);
        if (!entry) return errno == 0 || posix::FailErrno();
        const std::string_view bytes = entry->d_name;
        if (root && (bytes == "." || bytes == "..")) continue;
        TFindData item;
        item.name = NameFromNative(bytes);
        if (!MatchesExpression(expr, item.name)) continue;
        if (!posix::StatAt(fd, entry->d_name, item)) {
            if (errno == ENOENT) continue;  // gone since the folder was read
            // Listed but not describable (a folder without search permission).
            item.attributes = entry->d_type == DT_DIR ? kAttrDirectory : kAttrArchive;
        }
        entries.push_back(std::move(item));
    }
}

}  // namespace

CFindHandle FindFirst(std::u16string_view pattern, TFindData& data) {
    size_t sep = pattern.size();
    while (sep > 0 && !IsSeparator(pattern[sep - 1])) --sep;
    const std::u16string_view folder = pattern.substr(0, sep);
    const std::u16string_view mask = pattern.substr(sep);

    std::string native = ".";
    if (!folder.empty() && !posix::ToNativePath(folder, native)) return CFindHandle();
    posix::TNativeAt at;
    if (!posix::OpenNativeAt(native, at)) return CFindHandle();
    const int fd = ::openat(at.dir, at.name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        posix::Fail(err == ENOENT || err == ENOTDIR ? kErrPathNotFound : posix::Win32FromErrno(err));
        return CFindHandle();
    }
    std::unique_ptr<DIR, TDirCloser> dir(::fdopendir(fd));
    if (!dir) {
        posix::FailErrno();
        ::close(fd);
        return CFindHandle();
    }
    auto state = std::make_unique<CFindState>();
    if (!FindExact(fd, mask, state->m_Entries)) {
        const bool root = NamesVolumeRoot(folder) || IsMountRoot(fd);
        if (!ReadMatching(dir.get(), mask, root, state->m_Entries)) return CFindHandle();
    }
    if (state->m_Entries.empty()) {
        posix::Fail(kErrFileNotFound);
        return CFindHandle();
    }
    std::sort(state->m_Entries.begin(), state->m_Entries.end(), Before);
    CFindHandle handle(std::move(state));
    FindNext(handle, data);
    SetLastError(kErrSuccess);
    return handle;
}

bool FindNext(CFindHandle& handle, TFindData& data) {
    CFindState* state = handle.State();
    if (!state) return posix::Fail(kErrInvalidHandle);
    if (state->m_Next >= state->m_Entries.size()) return posix::Fail(kErrNoMoreFiles);
    data = std::move(state->m_Entries[state->m_Next++]);
    return true;
}

}  // namespace platform
