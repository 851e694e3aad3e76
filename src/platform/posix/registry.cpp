// The registry on POSIX: a `reg export` file (registry_file.h) read at every
// RegOpenKey, re-parsed only when the file changed.

#include "platform/registry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "base/case.h"
#include "base/utf.h"
#include "platform/errors.h"
#include "platform/posix/posix_errors.h"
#include "platform/posix/registry_file.h"

namespace platform {

class CRegKeyState {
public:
    std::shared_ptr<const posix::CRegistryData> m_Data;  // keeps the node alive
    const posix::TRegKeyNode* m_Node = nullptr;
};

CRegKey::CRegKey() = default;
CRegKey::CRegKey(std::unique_ptr<CRegKeyState> state) : m_State(std::move(state)) {}
CRegKey::~CRegKey() = default;
CRegKey::CRegKey(CRegKey&&) noexcept = default;
CRegKey& CRegKey::operator=(CRegKey&&) noexcept = default;

namespace {

constexpr off_t kMaxRegistryFileSize = 64 * 1024 * 1024;

struct TCache {
    std::mutex mutex;
    std::string path;
    struct stat st {};
    std::shared_ptr<const posix::CRegistryData> data;  // null: the file did not parse
    std::u16string problem;                            // why it did not, naming the file
    bool valid = false;
};

TCache& Cache() {
    static TCache cache;
    return cache;
}

bool SameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The registry as the file now holds it; null with last error on failure.
std::shared_ptr<const posix::CRegistryData> Load() {
    const char* env = std::getenv(kRegistryFileVariable);
    std::string path = env && *env ? env : kDefaultRegistryFile;
    TCache& cache = Cache();
    std::lock_guard<std::mutex> lock(cache.mutex);

    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR) {  // no file: an empty registry
            auto empty = std::make_shared<posix::CRegistryData>();
            std::u16string problem;
            empty->Parse({}, problem);
            return empty;
        }
        posix::FailErrno();
        return nullptr;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        posix::FailErrno();
        ::close(fd);
        return nullptr;
    }
    if (cache.valid && cache.path == path && SameFile(cache.st, st)) {
        ::close(fd);
        if (!cache.data) posix::Fail(kErrBadDb);
        return cache.data;
    }
    std::string bytes;
    bool ok = S_ISREG(st.st_mode) && st.st_size <= kMaxRegistryFileSize;
    if (ok) {
        bytes.resize(static_cast<size_t>(st.st_size));
        size_t done = 0;
        while (done < bytes.size()) {
            ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        bytes.resize(done);
    }
    ::close(fd);
    std::shared_ptr<posix::CRegistryData> data;
    std::u16string problem;
    if (ok) {
        data = std::make_shared<posix::CRegistryData>();
        if (!data->Parse(bytes, problem)) data.reset();
    } else {
        problem = S_ISREG(st.st_mode) ? u"larger than 64 MiB" : u"not a regular file";
    }
    const std::u16string shownPath = util::Utf8ToUtf16(path);
    cache.valid = true;
    cache.path = path;
    cache.st = st;
    cache.data = data;
    cache.problem = data ? std::u16string()
                         : u"Registry file [" + shownPath + u"] is damaged: " + problem + u".";
    if (!data) posix::Fail(kErrBadDb);
    return data;
}

}  // namespace

std::u16string GetRegistryProblem() {
    auto data = Load();
    if (data) return {};
    TCache& cache = Cache();
    std::lock_guard<std::mutex> lock(cache.mutex);
    if (!cache.problem.empty()) return cache.problem;
    return u"The registry file cannot be read:" + GetErrorText(GetLastError());
}

namespace {

const posix::TRegKeyNode* NodeOf(const CRegKey& key) {
    if (!key.IsValid()) {
        posix::Fail(kErrInvalidHandle);
        return nullptr;
    }
    return key.State()->m_Node;
}

}  // namespace

bool RegOpenKey(RegRoot root, std::u16string_view subKey, uint32_t, CRegKey& key) {
    key = CRegKey();
    if (root != kHkeyClassesRoot && root != kHkeyCurrentUser && root != kHkeyLocalMachine &&
        root != kHkeyUsers && root != kHkeyCurrentConfig)
        return posix::Fail(kErrInvalidParameter);
    auto data = Load();
    if (!data) return false;
    const posix::TRegKeyNode* node = data->Find(root, subKey);
    if (!node) return posix::Fail(kErrFileNotFound);
    auto state = std::make_unique<CRegKeyState>();
    state->m_Data = std::move(data);
    state->m_Node = node;
    key = CRegKey(std::move(state));
    SetLastError(kErrSuccess);
    return true;
}

bool RegQueryValue(const CRegKey& key, std::u16string_view name, uint32_t& type,
                   std::vector<uint8_t>& data) {
    const posix::TRegKeyNode* node = NodeOf(key);
    if (!node) return false;
    for (const auto& v : node->values) {
        if (util::EqualNoCase(v.name, name)) {
            type = v.type;
            data = v.data;
            SetLastError(kErrSuccess);
            return true;
        }
    }
    return posix::Fail(kErrFileNotFound);
}

bool RegEnumKey(const CRegKey& key, uint32_t index, std::u16string& name) {
    const posix::TRegKeyNode* node = NodeOf(key);
    if (!node) return false;
    if (index >= node->children.size()) return posix::Fail(kErrNoMoreItems);
    auto it = node->children.begin();
    std::advance(it, index);
    name = it->second;
    SetLastError(kErrSuccess);
    return true;
}

bool RegEnumValue(const CRegKey& key, uint32_t index, std::u16string& name, uint32_t& type,
                  std::vector<uint8_t>& data) {
    const posix::TRegKeyNode* node = NodeOf(key);
    if (!node) return false;
    if (index >= node->values.size()) return posix::Fail(kErrNoMoreItems);
    const auto& v = node->values[index];
    name = v.name;
    type = v.type;
    data = v.data;
    SetLastError(kErrSuccess);
    return true;
}

}  // namespace platform
