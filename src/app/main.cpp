#include <cstdio>

int main() {
    std::fputs("NorvaGuestIndexer: not built yet\n", stderr);
    return 1;
}
