// NorvaDumpRecorder: writes a dump of a crashed process from outside it.
//
//   NorvaDumpRecorder <process> <crash info> <thread> <dump type> <limit> "<folder>" "<name>"
//
// <process> is what the crashed process passed as its own handle (POSIX: its
// id); <crash info> the address of its platform::TCrashInfo inside it (0:
// none); <thread> the crashing thread. Numbers are decimal or "0x"
// hexadecimal. The dump goes to "<folder>\<name>_<pid>_<tid>_<time>.mdmp",
// <time> the FILETIME of now; the folder is made (one level) if missing.
// <limit> is read and not used: these dumps are not rotated.
//
// Exit codes: 0 done, 101 not 8 arguments, 102 an argument that doesn't
// parse or an empty folder or name, 103 the folder can't be made, 105 the
// path is 260 characters or more, 106 the file can't be created, 107 the
// dump can't be written.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/format.h"
#include "platform/crash.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/time.h"

namespace {

constexpr int kBadArgCount = 101, kBadArgs = 102, kNoFolder = 103, kBadName = 105,
              kNoFile = 106, kWriteFailed = 107;
constexpr size_t kMaxPath = 260;

// Decimal or "0x" hexadecimal, with an optional sign; the whole text.
bool ParseNumber(std::u16string_view text, int64_t& value) {
    bool negative = false;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty() || text.size() > 16) return false;
    uint64_t v = 0;
    for (char16_t c : text) {
        int d = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : 99;
        if (d >= base) return false;
        v = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
    }
    value = negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::u16string> args = platform::GetCommandLineArguments(argc, argv);
    if (args.size() != 8) return kBadArgCount;
    int64_t process = 0, crashInfo = 0, thread = 0, dumpType = 0, limit = 0;
    if (!ParseNumber(args[1], process) || !ParseNumber(args[2], crashInfo) ||
        !ParseNumber(args[3], thread) || !ParseNumber(args[4], dumpType) ||
        !ParseNumber(args[5], limit) || process <= 0 || thread < 0)
        return kBadArgs;
    const std::u16string& folder = args[6];
    const std::u16string& name = args[7];
    if (folder.empty() || name.empty()) return kBadArgs;

    if (!platform::DirCreate(folder) && platform::GetLastError() != platform::kErrAlreadyExists)
        return kNoFolder;

    platform::TSystemTime now;
    platform::GetSystemTime(now);
    uint64_t fileTime = 0;
    platform::SystemTimeToFileTime(now, fileTime);
    const std::u16string path = folder + u"\\" + name + u"_" +
                                util::ToStrU64(static_cast<uint64_t>(process)) + u"_" +
                                util::ToStrU64(static_cast<uint64_t>(thread)) + u"_" +
                                util::ToStrU64(fileTime) + u".mdmp";
    if (path.size() >= kMaxPath) return kBadName;

    platform::CHandle file =
        platform::FileOpen(path, platform::kGenericRead | platform::kGenericWrite,
                           platform::kShareRead, platform::kCreateNew, platform::kAttrNormal);
    if (!file.IsValid()) return kNoFile;
    if (!platform::WriteProcessDumpOf(static_cast<uint64_t>(process), static_cast<uint32_t>(thread),
                                      static_cast<uint64_t>(crashInfo),
                                      static_cast<uint32_t>(dumpType), file.Get()))
        return kWriteFailed;
    return 0;
}
