#include "fast/warning_limit.h"

#include "base/format.h"
#include "diag/log.h"

namespace indexer::fast_ntfs_indexer {

bool CWarningLimit::Admit(std::u16string_view format) {
    // A few formats at most: a scan, by address first (the same literal).
    for (TCount& c : m_Counts)
        if (c.Format.data() == format.data() || c.Format == format) return ++c.Count <= m_Most;
    m_Counts.push_back({format, 1});
    return m_Most != 0;
}

void CWarningLimit::LogSuppressed() const {
    for (const TCount& c : m_Counts)
        if (c.Count > m_Most)
            GetLog().Warning(u"The warning [%1] was given %2 more times; only its first %3 were written.", c.Format,
                             util::ToStrU64(c.Count - m_Most), util::ToStrU64(m_Most));
}

}  // namespace indexer::fast_ntfs_indexer
