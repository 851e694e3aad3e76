#include "app/entry.h"

#include <set>

#include "app/command_line.h"
#include "app/priority_guard.h"
#include "app/run_drivers.h"
#include "base/format.h"
#include "diag/crash_handler.h"
#include "diag/log.h"
#include "diag/log_setup.h"
#include "platform/console.h"
#include "platform/registry.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "platform/time.h"

namespace indexer {

namespace {

constexpr char16_t kLogBaseName[] = u"NorvaGuestIndexer";
constexpr char16_t kProgramFileName[] = u"NorvaGuestIndexer.exe";

// The executable's file name, as the usage shows it.
std::u16string ProgramFileName() {
    std::u16string path;
    if (!platform::GetModuleFileName(path) || path.empty()) return kProgramFileName;
    const size_t cut = path.find_last_of(u"\\/");
    return cut == std::u16string::npos ? path : path.substr(cut + 1);
}

// CoInitializeEx / CoUninitialize around the run, also when it throws.
class CComApartment {
public:
    CComApartment() { platform::ComInitialize(); }
    ~CComApartment() { platform::ComUninitialize(); }
    CComApartment(const CComApartment&) = delete;
    CComApartment& operator=(const CComApartment&) = delete;
};

}  // namespace

void PrintUsage() {
    GetLog().Detail(u"Printing usage.");
    using platform::WriteStdOut;
    WriteStdOut(u"Norva command line utility for indexing NTFS volumes. Version 2.0.\n\n");
    WriteStdOut(u"Usage:\n\n");
    WriteStdOut(FormatMessageArgs(
        u"  %1 [-log log_file_name] [-opt <yes|no> [-parseFS <yes|no>]] <outputdir>\n",
        {ProgramFileName()}));
    WriteStdOut(u"    - Generates binary index files in output directory\n\n");
    WriteStdOut(u"  -log - optional parameter. Defines full path to log file.\n");
    WriteStdOut(u"  -opt - optional parameter. If parameter have value 'yes', when used optimized "
                u"algorithm. in other cases used old algorithm.\n");
    WriteStdOut(u"  -parse_fs - optional parameter. if parameter used with value 'no', when used "
                u"primitive FindFirst/FindNext algorithm. In other cases used parsing FS "
                u"algorithm.\n\n");
    WriteStdOut(u"\n");
}

int RunIndexer(const std::vector<std::u16string>& args) {
    try {
        // Held to the end of the run; never released explicitly.
        platform::CHandle instance = platform::CreateNamedMutex(kInstanceMutexName, true);
        if (!instance.IsValid()) throw CWin32Exc(u"Cannot create mutex.");
        if (platform::GetLastError() == platform::kErrAlreadyExists) {
            platform::WriteStdErr(u"Error: Other instance of indexer detected.\n");
            return 1;
        }

        CCommandLine commandLine(args, {u"log", u"opt", u"parse_fs"});
        if (commandLine.IsEmpty()) {
            PrintUsage();
            platform::WriteStdErr(u"Error: Parameters not found.\n");
            return 1;
        }
        const std::u16string logFolder = commandLine.GetKeyValue(u"log");
        const std::u16string opt = commandLine.GetKeyValue(u"opt");
        const std::u16string parseFs = commandLine.GetKeyValue(u"parse_fs");

        CCrashHandler::SetDumpLocation(logFolder, u"Indexer");
        diag::InitLog(logFolder, kLogBaseName, false, LogDetail, u"");
        // Only the exact "yes" picks the optimized run; "Yes" is a mistake
        // that would silently take the legacy run.
        if (!opt.empty() && opt != u"yes" && opt != u"no")
            GetLog().Warning(u"Option -opt has the value [%1], which is neither \"yes\" nor \"no\"; the "
                             u"legacy run is used.",
                             opt);

        std::u16string outputDir;
        try {
            outputDir = commandLine.GetNextArgument();
            commandLine.CheckEmpty();
        } catch (const CExc& e) {
            GetLog().Error(u"Wrong command line: %1.", e.GetDescription());
            platform::WriteStdErr(u"Wrong command line: " + e.GetDescription() + u"\n");
            PrintUsage();
            return 1;
        }

        // On POSIX the registry file also holds the volume table: a damaged
        // one would silently index the machine's own mounts instead.
        const std::u16string registryProblem = platform::GetRegistryProblem();
        if (!registryProblem.empty()) throw CExc(registryProblem);

        const uint32_t start = platform::GetTickCount();
        {
            CPriorityGuard priority(u"NorvaGuestIndexerPriority", u"BACKGROUND");
            {
                CComApartment apartment;
                if (opt == u"yes")
                    IndexVolumesOptimized(outputDir, parseFs);
                else
                    IndexVolumes(outputDir);
            }
            priority.Restore();
        }
        GetLog().Detail(u"Algorithm execute time: %1 ms",
                        util::ToStr(static_cast<int32_t>(platform::GetTickCount() - start)));
        return 0;
    } catch (const CExc& e) {
        GetLog().Error(u"Error: %1.", e.GetDescription());
        platform::WriteStdErr(u"Error: " + e.GetDescription() + u"\n");
        return 1;
    }
}

}  // namespace indexer
