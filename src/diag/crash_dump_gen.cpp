#include "diag/crash_dump_gen.h"

#include <cwctype>
#include <random>

#include "base/format.h"
#include "diag/crash_dump_path.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "diag/settings.h"

namespace crash {

namespace {

bool EqualsNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::towlower(a[i]) != std::towlower(b[i])) return false;
    return true;
}

// A new GUID as "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (version 4, random).
std::u16string NewGuidText() {
    std::random_device random;
    uint8_t bytes[16];
    for (auto& b : bytes) b = static_cast<uint8_t>(random());
    bytes[6] = (bytes[6] & 0x0F) | 0x40;
    bytes[8] = (bytes[8] & 0x3F) | 0x80;
    std::u16string text = u"{";
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += u'-';
        text += u"0123456789ABCDEF"[bytes[i] >> 4];
        text += u"0123456789ABCDEF"[bytes[i] & 15];
    }
    return text + u"}";
}

}  // namespace

TDumpSettings ReadDumpSettings() {
    TDumpSettings settings;
    settings.processDumpsSupported = platform::ProcessDumpsSupported();
    platform::GetUserTempFolder(settings.tempFolder);
    settings.outOfProcDumpGen = settings::IsOutOfProcDumpGen() ? 1 : 0;
    settings.miniDumpModeMask = settings::GetMiniDumpModeMask();
    settings.dumpModeName = settings::GetSqlTempLogPath();
    return settings;
}

uint32_t GetDumpType(uint32_t modeMask, std::u16string_view modeName) {
    if (modeMask != 0) return modeMask;
    if (EqualsNoCase(modeName, u"Full")) return kFullDumpType;
    return 0;  // "Normal" and anything else
}

std::u16string RecorderExitCodeText(uint32_t code) {
    switch (code) {
        case 0: return u"success";
        case 1: return u"unspecified failure";
        case 101: return u"invalid count of arguments";
        case 102: return u"invalid arguments";
        case 103: return u"cannot create dump folder";
        case 104: return u"cannot delete old dumps";
        case 105: return u"invalid dump name";
        case 106: return u"cannot create dump file";
        case 107: return u"cannot write dump content";
        case 108: return u"NTDLL is not loaded";
        case 109: return u"memset is not exported from NTDLL";
        case 110: return u"_vsnwprintf is not exported from NTDLL";
        default: return util::ToStrU32(code);
    }
}

CExc RecorderFailure(uint32_t code) {
    return CExc(u"Dump generator process failed with %1: %2", util::ToStrU32(code),
                RecorderExitCodeText(code));
}

namespace win32 {

void legacy_dump_gen_t::GenerateDump(const std::u16string& folder, const std::u16string& name,
                                     const platform::TCrashInfo& info) {
    try {
        const std::u16string path = NextDumpPath(folder, name, u"log");
        GetLog().Info(u"Writing legacy dump. Dump path: %1.", path);
        // A report appends to what the file holds, as a report file does.
        platform::CHandle file = platform::FileOpen(path, platform::kGenericWrite,
                                                    platform::kShareRead, platform::kOpenAlways,
                                                    platform::kAttrNormal);
        if (!file.IsValid()) throw CWin32Exc(u"Cannot create crash report file [%1].", path);
        if (!platform::FileSeek(file.Get(), 0, nullptr, platform::kFileEnd) ||
            !platform::WriteCrashReport(file.Get(), info))
            throw CWin32Exc(u"Cannot write crash report file [%1].", path);
    } catch (CExc& e) {
        e.AddContext(u"Crash details cannot be stored in legacy format.");
        throw;
    }
}

void minidump_gen_t::GenerateDump(const std::u16string& folder, const std::u16string& name,
                                  const platform::TCrashInfo& info) {
    try {
        const std::u16string path = NextDumpPath(folder, name, u"mdmp");
        GetLog().Info(u"Writing dump. Dump path: %1.", path);
        platform::CHandle file = platform::FileOpen(
            path, platform::kGenericRead | platform::kGenericWrite, 0, platform::kCreateAlways,
            platform::kAttrNormal);
        if (!file.IsValid())
            throw CWin32Exc(u"Cannot create a blank minidump file. File path: [%1].", path);
        if (!platform::WriteProcessDump(file.Get(), info, platform::kDumpNormal))
            throw CWin32Exc(u"MiniDumpWriteDump() function call has failed.");
    } catch (CExc& e) {
        e.AddContext(u"Crash details cannot be stored in minidump.");
        throw;
    }
}

COutOfProcDumpGen::COutOfProcDumpGen(const TDumpSettings& settings,
                                     std::span<const uint8_t> recorderImage)
    : m_DumpType(GetDumpType(settings.miniDumpModeMask, settings.dumpModeName)) {
    if (!settings.tempFolder.empty()) platform::DirCreate(settings.tempFolder);  // may exist
    m_RecorderPath = JoinDumpPath(settings.tempFolder, u"NorvaDumpRecorder" + NewGuidText());

    m_Process = platform::DuplicateCurrentProcess();
    if (m_Process == 0)
        throw CWin32Exc(u"Cannot initialize out-of-process dump generator: failed to duplicate "
                        u"current process handle");

    platform::CHandle file = platform::ProgramFileCreate(m_RecorderPath);
    if (!file.IsValid()) throw CWin32Exc(u"Failed to create dump recorder file: %1", m_RecorderPath);
    uint32_t done = 0;
    const bool written =
        !recorderImage.empty() && recorderImage.size() <= UINT32_MAX &&
        platform::FileWrite(file.Get(), recorderImage.data(),
                            static_cast<uint32_t>(recorderImage.size()), &done) &&
        done == recorderImage.size();
    file.Close();
    if (!written) {
        CExc e(u"Failed to write dump recorder code to %1", m_RecorderPath);
        platform::FileDelete(m_RecorderPath);  // no half-written program stays behind
        throw e;
    }

    m_RecorderFile = platform::ProgramFileOpenForDeletion(m_RecorderPath);
    if (!m_RecorderFile.IsValid()) {
        CWin32Exc e(u"Failed to re-open dump recorder for deletion: %1", m_RecorderPath);
        platform::FileDelete(m_RecorderPath);
        throw e;
    }
}

std::u16string COutOfProcDumpGen::BuildCommandLine(const std::u16string& folder,
                                                   const std::u16string& name,
                                                   const platform::TCrashInfo& info) const {
    // The recorder reads the TCrashInfo (the "exception pointers") from the
    // crashed process at this address while the crashing thread waits.
    return u"\"" + m_RecorderPath + u"\" " + util::ToStrU64(m_Process) + u" " +
           util::ToStrU64(reinterpret_cast<uintptr_t>(&info)) + u" " +
           util::ToStrU32(info.threadId) + u" " + util::ToStrU32(m_DumpType) + u" " +
           util::ToStrU32(kRecorderDumpLimit) + u" \"" + (folder.empty() ? u"." : folder) +
           u"\" \"" + name + u"_crash_\"";
}

void COutOfProcDumpGen::GenerateDump(const std::u16string& folder, const std::u16string& name,
                                     const platform::TCrashInfo& info) {
    CLogBlock block(GetLog(), u"Generating dump to %1", folder);
    const std::u16string commandLine = BuildCommandLine(folder, name, info);
    platform::TChildProcess process;
    if (!platform::ProcessStart(m_RecorderPath, m_RecorderFile.Get(), commandLine, process))
        throw CWin32Exc(u"Failed to start dump generator process. File: %1", m_RecorderPath);
    if (!platform::ProcessWait(process))
        throw CWin32Exc(u"Failed to wait for dump generator process to complete");
    uint32_t code = 0;
    if (!platform::ProcessGetExitCode(process, &code))
        throw CWin32Exc(u"Failed to retrieve dump generator process exit code");
    if (code != 0) throw RecorderFailure(code);
    block.Complete();
}

}  // namespace win32
}  // namespace crash
