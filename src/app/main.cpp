// The process entry: the crash handler first, then the run; every exception
// that is not a CExc ends here.

#include "app/entry.h"
#include "diag/crash_handler.h"
#include "diag/dump_recorder_image.h"
#include "platform/console.h"
#include "platform/process.h"

int main(int argc, char** argv) {
    CCrashHandler::Install(crash::DumpRecorderImage());
    try {
        return indexer::RunIndexer(platform::GetCommandLineArguments(argc, argv));
    } catch (...) {
        platform::WriteStdErr(u"Error: Unhandled exception.\n");
        return 1;
    }
}
