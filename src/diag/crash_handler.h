#pragma once
// CCrashHandler: the process-wide crash handler. Installed at process start,
// it turns an unhandled exception (POSIX: a fatal signal) into a crash dump,
// bounded in number, and then runs the registered crash handlers.
//
// On a crash (OnUnhandledException, on the crashing thread):
//   0. the log stops waiting for its locks (diag::EnterCrashMode);
//   1. the generator is chosen from the settings read at that moment:
//      legacy_dump_gen_t where the system can't write process dumps; else
//      COutOfProcDumpGen when OutOfProcDumpGen is set (a failure to set it
//      up is logged, "Failed to create out-of-process dump generator"); else
//      minidump_gen_t;
//   2. the dump is written; a failure logs "Cannot generate crash dump.";
//   3. the crash handlers of the sequence run in order ("Executing crash
//      handlers.", "Crash handlers were successfully executed."); a failing
//      handler logs "Crash handlers cannot be executed." and skips the rest;
//   4. a previous filter, if one was kept, gives the answer; else
//      kCrashExecuteHandler. Nothing escapes: a failure here logs "Cannot
//      process an unhandled exception.".
//
// Thread-safety: Install and SetDumpLocation run on the main thread at start.
// The sequence has its own lock. A second crashing thread waits (POSIX).

#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "diag/crash_dump_gen.h"
#include "platform/crash.h"

namespace crash {

// One crash handler: runs after the dump, on the crashing thread.
class deinit_handler_t {
public:
    virtual ~deinit_handler_t() = default;
    virtual void Deinit() = 0;
};

// The crash handler sequence: handlers run in the order they were added.
class deinit_seq_t {
public:
    void Add(std::shared_ptr<deinit_handler_t> handler);
    // A handler made of a function.
    void Add(std::function<void()> handler);
    // Runs every handler under the lock; the first exception ends the run and
    // leaves the call.
    void Run();

private:
    std::recursive_mutex m_Lock;
    std::vector<std::shared_ptr<deinit_handler_t>> m_Handlers;
};

// Chooses the generator for a crash with these settings (step 1 above);
// null when none can be made.
std::unique_ptr<win32::dump_gen_base_t> ChooseDumpGenerator(
    const TDumpSettings& settings, std::span<const uint8_t> recorderImage);

}  // namespace crash

class CCrashHandler {
public:
    // The one instance, created on first use.
    static CCrashHandler& Instance();

    // Makes OnUnhandledException the process's crash filter, keeps the
    // previous filter, and sets the dump folder to the executable's folder.
    // `recorderImage` is the dump recorder the program carries
    // (crash::DumpRecorderImage()); without it the out-of-process generator
    // can't be set up and the in-process one is used. Never throws: a
    // failure logs "Cannot supersede crash handler.".
    static void Install(std::span<const uint8_t> recorderImage = {});

    // `folder` is taken only if not empty; `name` always.
    static void SetDumpLocation(std::u16string_view folder, std::u16string_view name);

    // The filter.
    static int32_t OnUnhandledException(const platform::TCrashInfo& info);

    std::shared_ptr<crash::deinit_seq_t> GetDeinitSeq() const { return m_DeinitSeq; }

    // Where the crash-time settings come from (default crash::ReadDumpSettings).
    void SetSettingsReader(std::function<crash::TDumpSettings()> reader);

private:
    CCrashHandler();
    int32_t _Handle(const platform::TCrashInfo& info);
    void _GenerateDump(const platform::TCrashInfo& info);
    void _RunCrashHandlers();

    std::shared_ptr<crash::deinit_seq_t> m_DeinitSeq;
    platform::CrashFilter m_PrevFilter = nullptr;
    std::u16string m_DumpFolder;
    std::u16string m_DumpName = u"VSS";
    bool m_Disabled = false;
    std::span<const uint8_t> m_RecorderImage;
    std::function<crash::TDumpSettings()> m_SettingsReader;
};
