// The filter tree with many lines under one folder: builds the tree of N
// exclude lines "big\<n>" and asks it about every one of them, once by name
// as the directory walk does and once by file reference as the NTFS
// pipeline does. Prints one line of seconds for each N.
//
//   filter_bench [N...]     (default 10000 100000 1000000)

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "inputs/inc_exc_node.h"

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::u16string Name(size_t i) {
    std::u16string name = u"Folder";
    for (char c : std::to_string(i)) name += static_cast<char16_t>(c);
    return name;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<size_t> counts;
    for (int i = 1; i < argc; ++i) counts.push_back(std::strtoull(argv[i], nullptr, 10));
    if (counts.empty()) counts = {10000, 100000, 1000000};
    std::printf("%10s %10s %12s %14s\n", "lines", "build s", "by name s", "by reference s");
    for (size_t n : counts) {
        std::vector<std::u16string> exclude;
        exclude.reserve(n);
        for (size_t i = 0; i < n; ++i) exclude.push_back(u"big\\" + Name(i));

        auto start = Clock::now();
        indexer::CIncExcNode root(std::vector<std::u16string>{}, exclude);
        const double build = Since(start);

        // The walk in "big": each entry's name, in another case than the line.
        indexer::CIncExcNode& big = root.m_Children.at(0);
        start = Clock::now();
        size_t excluded = 0;
        for (size_t i = 0; i < n; ++i) {
            const indexer::CIncExcNode* child = nullptr;
            std::u16string name = Name(i);
            name[0] = u'f';
            if (!indexer::IsItemIncluded(big.m_IncExcFlag, big, u"c:\\big", name, child)) ++excluded;
        }
        const double byName = Since(start);

        // The pipeline: references as resolution fills them in, then each
        // folder of "big" asked for by its own.
        big.m_Reference = 5;
        for (size_t i = 0; i < n; ++i) big.m_Children[i].m_Reference = 1000 + i;
        start = Clock::now();
        for (size_t i = 0; i < n; ++i)
            if (indexer::GetFlagsByReferences({5}, 1000 + i, root) & indexer::kIncExcExc) ++excluded;
        const double byReference = Since(start);

        if (excluded != 2 * n) {
            std::fprintf(stderr, "filter_bench: %zu of %zu lookups excluded\n", excluded, 2 * n);
            return 1;
        }
        std::printf("%10zu %10.3f %12.3f %14.3f\n", n, build, byName, byReference);
    }
    return 0;
}
