#pragma once
// indexer::fast_ntfs_indexer::CWarningLimit: a bound on the warnings that a
// volume can give once for each of its records. Some volumes give the same
// warning for every file (the short $STANDARD_INFORMATION of volumes made by
// other systems): a million lines would make the log unreadable and the run
// slow. Each format is written its first `most` times a volume; at the
// volume's end one line tells how many more there were.
//
// Formats are compared by text; REQUIRES: they outlive the object (string
// literals). Single-threaded.

#include <cstdint>
#include <string_view>
#include <vector>

namespace indexer::fast_ntfs_indexer {

class CWarningLimit {
public:
    static constexpr uint64_t kMaxWritten = 1000;

    explicit CWarningLimit(uint64_t most = kMaxWritten) : m_Most(most) {}

    // Counts one warning of `format`; true while it is to be written.
    bool Admit(std::u16string_view format);

    // A Warning line for each format given more than the bound: "The warning
    // [%1] was given %2 more times; only its first %3 were written."
    void LogSuppressed() const;

private:
    struct TCount {
        std::u16string_view Format;
        uint64_t Count;
    };
    uint64_t m_Most;
    std::vector<TCount> m_Counts;
};

}  // namespace indexer::fast_ntfs_indexer
