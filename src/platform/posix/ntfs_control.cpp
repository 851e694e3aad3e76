// The NTFS device controls have no Linux driver behind them; the owner of a
// file comes from the Windows descriptor that ntfs-3g keeps, else from the
// Unix owner in the form Samba gives it.

#include "platform/ntfs_control.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <string>

#include "platform/accounts.h"
#include "platform/errors.h"
#include "platform/posix/native_path.h"
#include "platform/posix/posix_errors.h"

namespace platform {

namespace {

constexpr char kNtfsAclAttribute[] = "system.ntfs_acl";
// A self-relative descriptor: revision, Sbz1, control (16 bits), then the
// 32-bit offsets of owner, group, SACL and DACL.
constexpr size_t kSdOwnerOffset = 4;
constexpr size_t kSdHeaderSize = 20;
constexpr size_t kMaxDescriptorSize = 64 * 1024;

uint32_t Le32(const uint8_t* p) {
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

// The owner of a descriptor; false (13) when the bytes are no descriptor
// or its owner lies outside them.
bool OwnerOfDescriptor(const std::vector<uint8_t>& sd, std::vector<uint8_t>& sid) {
    if (sd.size() < kSdHeaderSize || sd[0] != 1) return posix::Fail(kErrInvalidData);
    const uint32_t at = Le32(sd.data() + kSdOwnerOffset);
    sid.clear();
    if (at == 0) return true;
    if (at >= sd.size()) return posix::Fail(kErrInvalidData);
    const size_t length = GetLengthSid(sd.data() + at, sd.size() - at);
    if (length == 0) return posix::Fail(kErrInvalidData);
    sid.assign(sd.begin() + at, sd.begin() + at + static_cast<std::ptrdiff_t>(length));
    return true;
}

// "S-1-22-1-<uid>".
std::vector<uint8_t> UnixUserSid(uint32_t uid) {
    std::vector<uint8_t> sid = {1, 2, 0, 0, 0, 0, 0, 22, 1, 0, 0, 0};
    for (int i = 0; i < 4; ++i) sid.push_back(static_cast<uint8_t>(uid >> (8 * i)));
    return sid;
}

}  // namespace

bool GetNtfsVolumeData(NativeHandle, TNtfsVolumeData&) { return posix::Fail(kErrInvalidFunction); }

bool GetNtfsFileRecord(NativeHandle, uint64_t, uint8_t*, uint32_t, uint32_t& returned) {
    returned = 0;
    return posix::Fail(kErrInvalidFunction);
}

bool GetFileOwnerSid(std::u16string_view path, std::vector<uint8_t>& sid) {
    posix::TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return false;
    const posix::CFd fd(::openat(at.dir, at.name.c_str(), O_PATH | O_CLOEXEC));
    if (fd.Get() < 0) return posix::FailErrnoAt(at);
    // getxattr does not take an O_PATH descriptor; its /proc entry names the
    // same file.
    const std::string self = "/proc/self/fd/" + std::to_string(fd.Get());
    std::vector<uint8_t> sd(kMaxDescriptorSize);
    const ssize_t n = ::getxattr(self.c_str(), kNtfsAclAttribute, sd.data(), sd.size());
    if (n >= 0) {
        sd.resize(static_cast<size_t>(n));
        return OwnerOfDescriptor(sd, sid);
    }
    struct stat st {};
    if (::fstat(fd.Get(), &st) != 0) return posix::FailErrno();
    sid = UnixUserSid(static_cast<uint32_t>(st.st_uid));
    return true;
}

}  // namespace platform
