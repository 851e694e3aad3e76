#pragma once
// The reparse data of one entry that the directory walk meets: what it is
// (symbolic link or mount point) and where it leads (the substitute name).
//
// CPeparsePointProcessor (spelled so, as its failure text is) opens the
// entry itself, without following it, and reads its reparse data with
// FSCTL_GET_REPARSE_POINT (platform/reparse.h) into a buffer that starts at
// 28 bytes and grows to what the data asks for.
//
// Errors: the open throws CWin32Exc "Cannot open reparse point [%1]."; a
// failed query throws CWin32Exc "CPeparsePointProcessor::Parse fail!
// FSCTL_GET_REPARSE_POINT nonzero exit code!"; data whose substitute lies
// outside the bytes returned throws CExc "Reparse point [%1] has damaged
// data: ..." (DecodeReparseData). One thread.

#include <cstdint>
#include <string>
#include <string_view>

#include "base/buf.h"
#include "platform/file.h"

namespace indexer {

inline constexpr uint32_t kReparseTagMountPoint = 0xA0000003u;
inline constexpr uint32_t kReparseTagSymlink = 0xA000000Cu;

struct SReparsePointInfo {
    uint32_t tag = 0;
    std::u16string fullPath;    // logical parent path + "\" + entry name
    std::u16string substitute;  // as stored, in the NT namespace ("\??\C:\dir")
};

// What a reparse point means to the walk.
enum EReparseClass : uint32_t {
    ReparseSkipped = 0,     // relative link, no volume name, or a loop
    ReparseFollow = 1,      // target on this volume
    ReparseOtherVolume = 2, // target on another volume
    ReparseSkippedUnc = 3,  // UNC target, or every reparse point skipped by setting
};

// Reads the tag of `size` bytes of reparse data and, for a symbolic link or
// mount point, where its substitute name lies in them (`length` in
// characters); false for any other tag. Throws CExc "Reparse point [%1] has
// damaged data: ..." (`path` as %1) when the bytes are too few for the
// fields or the name lies outside them.
bool DecodeReparseData(const uint8_t* data, size_t size, std::u16string_view path,
                       const char16_t*& substitute, size_t& length, uint32_t& tag);

class CPeparsePointProcessor {
public:
    static constexpr uint32_t kFirstBufferSize = 28;

    // Opens the entry at `path` for its attributes and reparse data.
    explicit CPeparsePointProcessor(std::u16string_view path);
    CPeparsePointProcessor(const CPeparsePointProcessor&) = delete;
    CPeparsePointProcessor& operator=(const CPeparsePointProcessor&) = delete;

    // The substitute name (a view into the processor's buffer, valid until
    // the next Parse) and the tag. False for a tag other than symbolic link
    // and mount point (the out arguments then hold only the tag).
    bool Parse(const char16_t*& substitute, size_t& length, uint32_t& tag);
    bool Parse(std::u16string& substitute, uint32_t& tag);

private:
    std::u16string m_Path;
    platform::CHandle m_Handle;
    CBuf<uint8_t> m_Buffer;
};

}  // namespace indexer
