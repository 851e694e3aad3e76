#include "catalogue/index/volume_index.h"

#include <algorithm>

#include "base/case.h"
#include "base/exc.h"
#include "base/format.h"
#include "store/index_base_reader.h"

namespace catalogue {

CVolumeIndex::CVolumeIndex(std::u16string_view fileName, const std::function<void(const CIfdTables&)>& beforeLoad)
    : m_Tables(fileName) {
    if (beforeLoad) beforeLoad(m_Tables);
    _LoadDirs();
    _LoadOwners();
}

void CVolumeIndex::_LoadDirs() {
    const uint64_t count = m_Tables.GetDirCount();
    if (count > indexer::CIndexBaseReader::kMaxDirs)
        throw CExc(u"%1 fail. Too many directories! [0x%2].", u"catalogue::CVolumeIndex::_LoadDirs",
                   util::Hex16(count));
    m_Parents.reserve(static_cast<size_t>(count));
    m_NameAt.reserve(static_cast<size_t>(count) + 1);
    m_NameAt.push_back(0);
    idxdata::CTableStream rows = m_Tables.Dirs();
    // The names take what the table holds beyond the length and parent of
    // each row: reserved at once, the name store is not copied as it grows.
    const idxdata::TTableInfo& table = rows.GetTable();
    const uint64_t tableBytes = table.end - table.start;
    if (tableBytes > count * 12) m_Names.reserve(static_cast<size_t>((tableBytes - count * 12) / 2));
    while (rows.Next()) {
        const uint64_t id = rows.GetRowId();
        const std::u16string_view name = rows.String(kDirName);
        const uint64_t parent = rows.Qword(kDirParent);
        if (id == 0 && parent != 0)
            rows.ThrowDamagedRow(FormatMessageArgs(u"the root row names the parent 0x%1 instead of itself",
                                                   {util::Hex16(parent)}));
        if (id != 0 && name.empty())
            rows.ThrowDamagedRow(FormatMessageArgs(u"Empty DirName. ID=0x%1", {util::Hex16(id)}));
        if (id != 0 && parent >= id)
            rows.ThrowDamagedRow(FormatMessageArgs(
                parent >= count ? u"row 0x%1 names the parent directory 0x%2 of 0x%3"
                                : u"row 0x%1 names the parent directory 0x%2, which does not come before it",
                {util::Hex16(id), util::Hex16(parent), util::Hex16(count)}));
        m_Names.append(name);
        m_NameAt.push_back(m_Names.size());
        m_Parents.push_back(static_cast<uint32_t>(parent));
    }
}

void CVolumeIndex::_LoadOwners() {
    const uint64_t count = m_Tables.GetOwnerCount();
    if (count > indexer::CIndexBaseReader::kMaxOwners)
        throw CExc(u"%1 fail. Too many owners! [0x%2].", u"catalogue::CVolumeIndex::_LoadOwners",
                   util::Hex16(count));
    m_Owners.reserve(static_cast<size_t>(count));
    idxdata::CTableStream rows = m_Tables.Owners();
    while (rows.Next()) {
        TOwner owner;
        owner.sid = rows.String(kOwnerSid);
        const std::u16string_view name = rows.String(kOwnerName);
        const std::u16string_view domain = rows.String(kOwnerDomain);
        if (!name.empty()) {
            if (!domain.empty()) owner.account.append(domain).append(u"\\");
            owner.account.append(name);
        }
        m_Owners.push_back(std::move(owner));
    }
}

std::u16string CVolumeIndex::DirPath(uint64_t id) const {
    if (id == 0) return u"\\";
    std::vector<uint64_t> chain;  // leaf first; parents come before children, so this ends
    for (; id != 0; id = m_Parents[id]) chain.push_back(id);
    std::u16string path;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) path.append(u"\\").append(DirName(*it));
    return path;
}

const std::u16string& CVolumeIndex::EntryPath(uint64_t dirId, std::u16string_view name) {
    if (dirId != m_CachedDir) {
        m_CachedPath = DirPath(dirId);
        if (dirId != 0) m_CachedPath += u'\\';
        m_CachedDir = dirId;
    }
    m_EntryPath.assign(m_CachedPath).append(name);
    return m_EntryPath;
}

std::optional<uint64_t> CVolumeIndex::FindDir(std::u16string_view path) const {
    if (m_Parents.empty()) return std::nullopt;
    uint64_t current = 0;
    size_t at = 0;
    while (at < path.size()) {
        const size_t end = std::min(path.find_first_of(u"\\/", at), path.size());
        const std::u16string_view part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty() || part == u".") continue;
        std::optional<uint64_t> found;
        for (uint64_t id = current + 1; id < m_Parents.size(); ++id)
            if (m_Parents[id] == current && util::EqualNoCase(DirName(id), part)) {
                found = id;
                break;
            }
        if (!found) return std::nullopt;
        current = *found;
    }
    return current;
}

void CVolumeIndex::_ThrowBadParent(const idxdata::CTableStream& rows, uint64_t parent) const {
    rows.ThrowDamagedRow(FormatMessageArgs(u"row 0x%1 names the parent directory 0x%2 of 0x%3",
                                               {util::Hex16(rows.GetRowId()), util::Hex16(parent),
                                                util::Hex16(m_Parents.size())}));
}

std::u16string CVolumeIndex::OwnerText(uint64_t id) const {
    const TOwner* owner = Owner(id);
    if (!owner) return u"#" + util::ToStrU64(id);
    return owner->account.empty() ? owner->sid : owner->account;
}

}  // namespace catalogue
