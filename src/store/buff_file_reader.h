#pragma once
// idxdata::CBuffFileReader: reads a whole file (at most 0xFFFFFFFF bytes)
// into memory at Open and serves every read from there. The file handle is
// closed before Open returns.
//
// Unlike CFileReader it never invents bytes: a read of n bytes (n > 0) that
// would pass the end throws CExc "The specified size is out of the buffer
// boundary." and leaves the position where it was. It is the reader of the
// reading side (CDataFileReader, CIndexBaseReader).
//
// Errors of Open: "Cannot open file CBuffFileReader::Open", "Cannot get file
// size CBuffFileReader::Open", "Cannot read file in CBuffFileReader::Open"
// (CWin32Exc), "Cannot alloc memory CBuffFileReader::Open" (CWin32Exc 50)
// for a file over 0xFFFFFFFF bytes. SetCurFilePos refuses 0xFFFFFFFF and
// beyond (CWin32Exc 50). One thread at a time.

#include <cstdint>
#include <string>
#include <string_view>

#include "base/buf.h"
#include "store/serial.h"

namespace idxdata {

class CBuffFileReader : public IReader {
public:
    // The position of a closed reader.
    static constexpr uint32_t kClosedPos = 0xFFFFFFFFu;

    CBuffFileReader() = default;
    ~CBuffFileReader() override = default;

    uint16_t ReadWord() override;
    uint32_t ReadDWord() override;
    uint64_t ReadLongLong() override;
    std::u16string ReadString() override;

    // Does nothing when already open (content and position stay).
    void Open(std::u16string_view name) override;
    void Close() override;
    uint64_t GetCurFilePos() override { return m_Pos; }
    // Any position below 0xFFFFFFFF is stored, even past the end.
    void SetCurFilePos(uint64_t position) override;
    void ReadPrefix(char* buffer) override;

    bool IsOpen() const { return m_Opened; }
    // Bytes held (the file's size at Open); 0 when closed.
    uint32_t GetSize() const { return m_Size; }

private:
    // Copies size bytes at the position and moves it on, or throws.
    void _Take(void* out, uint32_t size);

    bool m_Opened = false;
    uint32_t m_Pos = kClosedPos;
    uint32_t m_Size = 0;
    CBuf<uint8_t> m_Buffer;
};

}  // namespace idxdata
