#pragma once
// Tests only: every file record of an NTFS image as libfsntfs sees it, read
// from one run of `fsntfsinfo -E all` (a second reader, written apart from
// ours and from the Sleuth Kit, that also opens the 2 MiB-cluster sample).
//
// Per record: allocated or not, extension or base, the $STANDARD_INFORMATION
// last-write time (full 100 ns precision) and security id, every $FILE_NAME
// (name, parent, namespace), the unnamed $DATA size, whether an $I30 index
// root makes it a folder, and the tag and substitute name of a reparse point.
// libfsntfs gathers a base record's attributes from its extension records,
// so a base record carries everything its $ATTRIBUTE_LIST names.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "ntfs/ntfs_test_util.h"

namespace ngitest::ntfs {

struct TFsntfsName {
    std::string Name;  // UTF-8
    uint64_t Parent = 0;
    int Namespace = 0;  // 0 POSIX, 1 Win32, 2 DOS, 3 Win32 and DOS
};

struct TFsntfsRecord {
    bool Allocated = false;
    bool Extension = false;
    bool HasStandardInformation = false;
    uint64_t ModificationTime = 0;  // FILETIME
    std::optional<uint32_t> SecurityId;
    std::vector<TFsntfsName> Names;
    std::optional<uint64_t> DataSize;  // unnamed $DATA
    bool Directory = false;            // has an $I30 index root
    std::optional<uint32_t> ReparseTag;
    std::string SubstituteName;
};

// "Nov 21, 2026 13:04:54.333516400 UTC" as 100 ns ticks since 1601; 0 when
// the text is not in that form.
inline uint64_t ParseFsntfsTime(const std::string& text) {
    static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    int month = -1;
    for (int i = 0; i < 12; ++i)
        if (text.compare(0, 3, kMonths[i]) == 0) month = i + 1;
    unsigned day = 0, year = 0, hour = 0, minute = 0, second = 0;
    char fraction[16] = {};
    if (month < 0 || std::sscanf(text.c_str() + 3, " %u, %u %u:%u:%u.%9[0-9]", &day, &year, &hour, &minute, &second,
                                 fraction) != 6)
        return 0;
    // Days from 1601-01-01 by the civil calendar (the proleptic Gregorian
    // day count of the date minus that of 1601-01-01).
    auto daysFromCivil = [](int64_t y, unsigned m, unsigned d) {
        y -= m <= 2;
        const int64_t era = (y >= 0 ? y : y - 399) / 400;
        const unsigned yoe = static_cast<unsigned>(y - era * 400);
        const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
        const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
        return era * 146097 + static_cast<int64_t>(doe);
    };
    const int64_t days = daysFromCivil(year, static_cast<unsigned>(month), day) - daysFromCivil(1601, 1, 1);
    std::string digits(fraction);
    digits.resize(9, '0');
    const uint64_t nanoseconds = std::stoull(digits);
    return (static_cast<uint64_t>(days) * 86400 + hour * 3600ull + minute * 60ull + second) * 10000000ull +
           nanoseconds / 100;
}

// Runs fsntfsinfo over `image`; empty when the tool is missing or fails.
inline std::map<uint64_t, TFsntfsRecord> RunFsntfsinfo(const std::filesystem::path& image) {
    std::map<uint64_t, TFsntfsRecord> records;
    std::istringstream in(RunCommand("fsntfsinfo -E all " + Quote(image) + " 2>/dev/null"));
    TFsntfsRecord* record = nullptr;
    std::map<std::string, std::string> attribute;  // key to value of the attribute being read
    auto finishAttribute = [&] {
        if (!record || attribute.empty()) return;
        const std::string& type = attribute["Type"];
        auto number = [&](const char* key) { return std::strtoull(attribute[key].c_str(), nullptr, 10); };
        if (type.rfind("$STANDARD_INFORMATION", 0) == 0) {
            record->HasStandardInformation = true;
            record->ModificationTime = ParseFsntfsTime(attribute["Modification time"]);
            if (attribute.count("Security descriptor identifier"))
                record->SecurityId = static_cast<uint32_t>(number("Security descriptor identifier"));
        } else if (type.rfind("$FILE_NAME", 0) == 0) {
            const std::string& space = attribute["Name space"];
            const size_t open = space.rfind('(');
            record->Names.push_back({attribute["Name"], number("Parent file reference"),
                                     open == std::string::npos ? -1 : std::atoi(space.c_str() + open + 1)});
        } else if (type.rfind("$DATA", 0) == 0) {
            // Only the first extent (VCN 0) of the unnamed stream has the size.
            const bool first = !attribute.count("Data VCN range") || attribute["Data VCN range"].rfind("0 ", 0) == 0;
            if (!attribute.count("Name") && first && !record->DataSize) record->DataSize = number("Data size");
        } else if (type.rfind("$INDEX_ROOT", 0) == 0) {
            if (attribute["Name"] == "$I30") record->Directory = true;
        } else if (type.rfind("$REPARSE_POINT", 0) == 0) {
            record->ReparseTag = static_cast<uint32_t>(std::strtoul(attribute["Tag"].c_str(), nullptr, 16));
            record->SubstituteName = attribute["Substitute name"];
        }
        attribute.clear();
    };
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("MFT entry: ", 0) == 0) {
            finishAttribute();
            record = &records[std::stoull(line.substr(11))];
            continue;
        }
        if (line.rfind("Attribute: ", 0) == 0) {
            finishAttribute();
            continue;
        }
        // "\tKey\t\t\t: value"; deeper lines (flag texts, ACL entries) are skipped.
        if (!record || line.size() < 2 || line[0] != '\t' || line[1] == '\t') continue;
        const size_t tab = line.find('\t', 1);
        if (tab == std::string::npos) continue;
        const size_t colon = line.find(": ", tab);
        const std::string key = line.substr(1, tab - 1);
        const std::string value = colon == std::string::npos ? "" : line.substr(colon + 2);
        if (key == "Is allocated") {
            record->Allocated = value == "true";
        } else if (key == "Base record file reference") {
            record->Extension = value.rfind("Not set", 0) != 0;
        } else if (key != "Number of attributes" && key != "File reference" && key != "Journal sequence number") {
            attribute.emplace(key, value);  // the first of repeated keys counts
        }
    }
    finishAttribute();
    return records;
}

// The base records in use from 16 on, and the root: what an index of the
// volume is made from.
inline bool IsUserRecord(uint64_t number, const TFsntfsRecord& r) {
    return r.Allocated && !r.Extension && (number >= 16 || number == 5);
}

}  // namespace ngitest::ntfs
