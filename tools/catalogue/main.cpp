// ngi-catalogue: looks files up in the index files of NorvaGuestIndexer
// without the backup they describe. See docs/catalogue.md.

#include <cstdio>
#include <string>
#include <vector>

#include "catalogue/commands.h"

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    catalogue::CTextOut out(stdout);
    catalogue::CTextOut err(stderr);
    const int code = catalogue::RunCatalogue(words, out, err);
    out.Flush();
    err.Flush();
    return code;
}
