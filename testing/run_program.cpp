#include "testing/run_program.h"

#include <cstdlib>

#include "platform/process.h"

namespace ngitest {

TProgramResult RunProgram(const std::string& commandLine) {
    CTempDir scratch;
    const auto out = scratch.Native() / "stdout";
    const auto err = scratch.Native() / "stderr";
    const int status = std::system((commandLine + " >\"" + out.string() + "\" 2>\"" + err.string() + "\"").c_str());
    TProgramResult result;
    // A POSIX wait status holds the exit code in its second byte; Windows
    // answers the exit code itself.
    result.exitCode = status >= 256 ? status >> 8 : status;
    result.out = scratch.ReadFile("stdout");
    result.err = scratch.ReadFile("stderr");
    return result;
}

std::string ProgramBeside(const std::string& name) {
    std::u16string self;
    platform::GetModuleFileName(self);
    return (std::filesystem::path(self).parent_path() / name).string();
}

}  // namespace ngitest
