#pragma once
// The registry settings of the indexer (docs/settings.md). Each reader opens
// the key, reads the value and falls back on its default when the key or the
// value is missing or can't be read. A value that is there but unusable
// (another type, too long) gives the default too, with a Warning line
// (WarnUnusableValue).
//
// They live here, below every subsystem that consumes them (the walk, the
// NTFS pipeline, the crash handler), and read nothing but the registry.

#include <cstdint>
#include <string>
#include <string_view>

namespace settings {

// HKEY_LOCAL_MACHINE keys.
inline constexpr char16_t kSettingsKey[] = u"SOFTWARE\\NorvA\\Norva Archive and Mirror";
inline constexpr char16_t kPriorityKey[] = u"Software\\Norva\\Norva Archive And Mirror";

// IndexerMaxNestedFolders: the deepest folder nesting followed; 0 (the
// default) for no limit.
uint32_t GetMaxNestedFolders();
// IndexerSkipReparsePoints: reparse points are not followed; default false.
bool IsSkipReparsePoints();
// IndexerSkipReparsePointUNC: links to UNC paths are not followed; default true.
bool IsSkipReparsePointUNC();
// IndexerSkipOwnersParsing: owners are not read from the volume; default false.
bool IsSkipOwnersParsing();
// OutOfProcDumpGen: crash dumps are written by a separate process; default false.
bool IsOutOfProcDumpGen();
// MiniDumpModeMask: the dump type mask; default 0.
uint32_t GetMiniDumpModeMask();
// SqlTempLogPath: the dump mode text ("Normal" or "Full") when the mask is
// 0; a string of at most 32 characters (a longer one reads as empty);
// default empty.
std::u16string GetSqlTempLogPath();

// "Registry value [HKLM\<key>\<name>] is <problem>; the default [<default>]
// is used instead." at level Warning.
void WarnUnusableValue(std::u16string_view key, std::u16string_view name, std::u16string_view problem,
                       std::u16string_view defaultText);

// IndexerReadAheadDepth: requests of the $MFT read ahead in flight during
// the NTFS main loop; 0 reads nothing ahead. Default kDefaultReadAheadDepth;
// a value above kMaxReadAheadDepth is named in a Warning and replaced by it.
uint32_t GetReadAheadDepth();
// Whether IndexerReadAheadDepth leaves reading ahead on: anything but a DWORD
// of 0 (an unusable value gives the default, which reads ahead). Read
// quietly, for opening the volume: GetReadAheadDepth names such a value.
bool IsReadAheadOn();
// IndexerReadAheadKiB: the bytes of one such request, in KiB, from 256 (one
// block) to 16384. Default kDefaultReadAheadKiB; a value outside is named in
// a Warning and replaced by the default.
uint32_t GetReadAheadKiB();
// IndexerDirectIoImages: an image file named as a volume or shadow is read
// unbuffered too (O_DIRECT), as a block device always is; Linux only;
// default false.
bool IsDirectIoForImages();

inline constexpr uint32_t kDefaultReadAheadDepth = 8;
static_assert(kDefaultReadAheadDepth > 0, "IsReadAheadOn takes an unusable value as reading ahead");
inline constexpr uint32_t kMaxReadAheadDepth = 64;
inline constexpr uint32_t kDefaultReadAheadKiB = 1024;

}  // namespace settings
