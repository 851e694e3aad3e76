// ngi-catalogue: looks files up in the index files of NorvaGuestIndexer
// without the backup they describe, and keeps every machine's restore
// points in one database. See docs/catalogue.md and docs/catalogue-db.md.

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "catalogue/cmd/commands.h"

int main(int argc, char** argv) {
    // A closed pipe (| head -1) ends the program quietly, as it ends ls and
    // find, even when the caller left SIGPIPE ignored.
    std::signal(SIGPIPE, SIG_DFL);
    std::vector<std::string> words(argv + 1, argv + argc);
    catalogue::CTextOut out(stdout);
    catalogue::CTextOut err(stderr);
    int code = catalogue::RunCatalogue(words, out, err, isatty(STDERR_FILENO) == 1);
    out.Flush();
    if (out.Failed()) {
        // Output that cannot be written (a full disk) is an error.
        err << "ngi-catalogue: cannot write standard output: " << std::strerror(out.Failed()) << "\n";
        if (code == 0) code = 1;
    }
    err.Flush();
    return code;
}
