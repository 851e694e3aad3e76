// catalogue_web_fixture SCRATCH DB: makes the web tests' catalogue
// (web_fixture.h) for scripts/test-web.sh.

#include <cstdio>
#include <exception>

#include "catalogue/testing/web_fixture.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "Usage: catalogue_web_fixture SCRATCH DB\n");
        return 2;
    }
    try {
        cattest::MakeWebCatalogue(argv[1], argv[2]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "catalogue_web_fixture: %s\n", e.what());
        return 1;
    }
    return 0;
}
