#pragma once
// The body of the program's entry: the single instance, the command line,
// the log, the priority and the run, and every exit code (docs/command-line.md).

#include <string>
#include <vector>

namespace indexer {

// The name of the machine-wide mutex that keeps to one indexer a machine.
inline constexpr char16_t kInstanceMutexName[] = u"Global\\{9D1A3AD8-CB5B-42bf-9295-02C411CBE529}";

// Runs the program on its arguments (args[0] the program) and answers the
// exit code, 0 or 1. A CExc never leaves; any other exception does, for the
// entry point's catch-all.
int RunIndexer(const std::vector<std::u16string>& args);

// The usage text on standard output, after "Printing usage." in the log.
void PrintUsage();

}  // namespace indexer
