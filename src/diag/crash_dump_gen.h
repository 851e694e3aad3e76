#pragma once
// The crash dump generators and what they share.
//
//   legacy_dump_gen_t   a text report, "<name>_crash_<n>.log"
//   minidump_gen_t      a full dump of the own process, "<name>_crash_<n>.mdmp"
//                       (POSIX: an ELF core written by a forked child)
//   COutOfProcDumpGen   the dump recorder, a separate program carried as
//                       bytes, written to the temporary folder and run at
//                       the crash; its dumps are
//                       "<name>_crash__<pid>_<tid>_<time>.mdmp" and are not
//                       rotated
//
// GenerateDump runs inside the crash filter, on the crashing thread. Each
// throws CExc on failure; the crash handler logs it and goes on.

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "base/exc.h"
#include "platform/crash.h"
#include "platform/file.h"

namespace crash {

// Settings the crash handler reads at the moment of a crash.
struct TDumpSettings {
    bool processDumpsSupported = true;  // the system can write process dumps
    uint32_t outOfProcDumpGen = 0;      // OutOfProcDumpGen: non-zero picks the recorder
    uint32_t miniDumpModeMask = 0;      // MiniDumpModeMask
    std::u16string dumpModeName;        // "SqlTempLogPath": "Normal" or "Full"
    std::u16string tempFolder;          // where the recorder is written
};

// The settings as this machine has them: the registry values of the
// settings key (diag/settings.h), the platform's answer on process dumps,
// the user's temporary folder. Missing or unreadable values give their
// defaults.
TDumpSettings ReadDumpSettings();

// The recorder's dump type: the mask if not 0; else "Normal" 0, "Full"
// 137479 (0x21907: full memory, data segments, handles, thread data and
// info, memory info, inaccessible memory ignored); anything else 0. The mode
// name compares without regard to case.
inline constexpr uint32_t kFullDumpType = 137479;
uint32_t GetDumpType(uint32_t modeMask, std::u16string_view modeName);

// The words for an exit code of the recorder ("cannot create dump file" for
// 106); an unknown code gives its decimal number.
std::u16string RecorderExitCodeText(uint32_t code);
// The failure of a recorder that ended with `code` (not 0):
// "Dump generator process failed with %1: %2".
CExc RecorderFailure(uint32_t code);

// The recorder's exit codes.
inline constexpr uint32_t kRecorderBadArgCount = 101, kRecorderBadArgs = 102,
                          kRecorderNoFolder = 103, kRecorderNoCleanup = 104,
                          kRecorderBadName = 105, kRecorderNoFile = 106,
                          kRecorderWriteFailed = 107;
inline constexpr uint32_t kRecorderDumpLimit = 20;  // passed, not used

namespace win32 {

class dump_gen_base_t {
public:
    virtual ~dump_gen_base_t() = default;
    virtual void GenerateDump(const std::u16string& folder, const std::u16string& name,
                              const platform::TCrashInfo& info) = 0;
};

class legacy_dump_gen_t : public dump_gen_base_t {
public:
    void GenerateDump(const std::u16string& folder, const std::u16string& name,
                      const platform::TCrashInfo& info) override;
};

class minidump_gen_t : public dump_gen_base_t {
public:
    void GenerateDump(const std::u16string& folder, const std::u16string& name,
                      const platform::TCrashInfo& info) override;
};

class COutOfProcDumpGen : public dump_gen_base_t {
public:
    // Writes the recorder image to "<temp>\NorvaDumpRecorder{GUID}" (the
    // folder made if missing) and keeps it open for deletion: the file goes
    // with this object or with the process. Throws CExc when any step fails.
    COutOfProcDumpGen(const TDumpSettings& settings, std::span<const uint8_t> recorderImage);
    void GenerateDump(const std::u16string& folder, const std::u16string& name,
                      const platform::TCrashInfo& info) override;

    const std::u16string& GetRecorderPath() const { return m_RecorderPath; }
    // The recorder's command line for a dump of `info` into folder/name.
    std::u16string BuildCommandLine(const std::u16string& folder, const std::u16string& name,
                                    const platform::TCrashInfo& info) const;

private:
    std::u16string m_RecorderPath;
    platform::CHandle m_RecorderFile;
    uint64_t m_Process = 0;
    uint32_t m_DumpType = 0;
};

}  // namespace win32
}  // namespace crash
