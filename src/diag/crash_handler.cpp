#include "diag/crash_handler.h"

#include "base/exc.h"
#include "diag/log.h"
#include "diag/log_lock.h"
#include "platform/errors.h"
#include "platform/process.h"

namespace crash {

namespace {

class CFunctionHandler : public deinit_handler_t {
public:
    explicit CFunctionHandler(std::function<void()> fn) : m_Fn(std::move(fn)) {}
    void Deinit() override { m_Fn(); }

private:
    std::function<void()> m_Fn;
};

}  // namespace

void deinit_seq_t::Add(std::shared_ptr<deinit_handler_t> handler) {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    m_Handlers.push_back(std::move(handler));
}

void deinit_seq_t::Add(std::function<void()> handler) {
    Add(std::make_shared<CFunctionHandler>(std::move(handler)));
}

void deinit_seq_t::Run() {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    for (auto& handler : m_Handlers) handler->Deinit();
}

std::unique_ptr<win32::dump_gen_base_t> ChooseDumpGenerator(
    const TDumpSettings& settings, std::span<const uint8_t> recorderImage) {
    if (!settings.processDumpsSupported) return std::make_unique<win32::legacy_dump_gen_t>();
    if (settings.outOfProcDumpGen != 0) {
        try {
            return std::make_unique<win32::COutOfProcDumpGen>(settings, recorderImage);
        } catch (CExc& e) {
            GetLog().LogException(u"Failed to create out-of-process dump generator", e);
        } catch (const std::exception& e) {
            GetLog().LogException(u"Failed to create out-of-process dump generator", CExc(e));
        }
    }
    try {
        return std::make_unique<win32::minidump_gen_t>();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace crash

CCrashHandler::CCrashHandler()
    : m_DeinitSeq(std::make_shared<crash::deinit_seq_t>()),
      m_SettingsReader(crash::ReadDumpSettings) {}

CCrashHandler& CCrashHandler::Instance() {
    static CCrashHandler handler;
    return handler;
}

void CCrashHandler::Install(std::span<const uint8_t> recorderImage) {
    CCrashHandler& self = Instance();
    try {
        self.m_RecorderImage = recorderImage;
        platform::CrashFilter previous = platform::SetCrashFilter(&OnUnhandledException);
        if (previous != &OnUnhandledException) self.m_PrevFilter = previous;

        std::u16string module;
        platform::SetLastError(0);
        if (platform::GetModuleFileName(module) && platform::GetLastError() == 0) {
            const size_t slash = module.find_last_of(u"\\/");
            if (slash != std::u16string::npos) self.m_DumpFolder = module.substr(0, slash);
        }
    } catch (CExc& e) {
        GetLog().LogException(u"Cannot supersede crash handler.", e);
    } catch (const std::exception& e) {
        GetLog().LogException(u"Cannot supersede crash handler.", CExc(e));
    }
}

void CCrashHandler::SetDumpLocation(std::u16string_view folder, std::u16string_view name) {
    CCrashHandler& self = Instance();
    if (!folder.empty()) self.m_DumpFolder = folder;
    self.m_DumpName = name;
}

void CCrashHandler::SetSettingsReader(std::function<crash::TDumpSettings()> reader) {
    m_SettingsReader = std::move(reader);
}

int32_t CCrashHandler::OnUnhandledException(const platform::TCrashInfo& info) {
    return Instance()._Handle(info);
}

int32_t CCrashHandler::_Handle(const platform::TCrashInfo& info) {
    if (m_Disabled) return platform::kCrashExecuteHandler;
    // The crash may have come while a log lock was held, by this thread or
    // by one that will never let go: from here on no log line waits for it.
    diag::EnterCrashMode();
    try {
        _GenerateDump(info);
        _RunCrashHandlers();
        return m_PrevFilter ? m_PrevFilter(info) : platform::kCrashExecuteHandler;
    } catch (CExc& e) {
        GetLog().LogException(u"Cannot process an unhandled exception.", e);
    } catch (...) {
        GetLog().Error(u"Cannot process an unhandled exception.");
    }
    return platform::kCrashExecuteHandler;
}

void CCrashHandler::_GenerateDump(const platform::TCrashInfo& info) {
    try {
        const crash::TDumpSettings settings = m_SettingsReader();
        auto generator = crash::ChooseDumpGenerator(settings, m_RecorderImage);
        if (generator) generator->GenerateDump(m_DumpFolder, m_DumpName, info);
    } catch (CExc& e) {
        GetLog().LogException(u"Cannot generate crash dump.", e);
    } catch (const std::exception& e) {
        GetLog().LogException(u"Cannot generate crash dump.", CExc(e));
    }
}

void CCrashHandler::_RunCrashHandlers() {
    try {
        GetLog().Info(u"Executing crash handlers.");
        m_DeinitSeq->Run();
        GetLog().Info(u"Crash handlers were successfully executed.");
    } catch (CExc& e) {
        GetLog().LogException(u"Crash handlers cannot be executed.", e);
    } catch (const std::exception& e) {
        GetLog().LogException(u"Crash handlers cannot be executed.", CExc(e));
    }
}
