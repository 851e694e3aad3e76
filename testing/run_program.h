#pragma once
// Tests only: runs a command line through the system's shell and collects
// its exit code, standard output and standard error (as bytes).

#include <string>

#include "testing/temp_dir.h"

namespace ngitest {

struct TProgramResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// The command's words are as the shell takes them: quote paths with "".
TProgramResult RunProgram(const std::string& commandLine);

// The path of a program built into the folder of the running test program.
std::string ProgramBeside(const std::string& name);

}  // namespace ngitest
