#include "store/buff_file_reader.h"

#include <cstring>

#include "base/exc.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "store/table_format.h"

namespace idxdata {

void CBuffFileReader::_Take(void* out, uint32_t size) {
    if (size == 0) return;
    if (uint64_t{m_Pos} + size > m_Size) throw CExc(u"The specified size is out of the buffer boundary.");
    std::memcpy(out, m_Buffer.Get() + m_Pos, size);
    m_Pos += size;
}

uint16_t CBuffFileReader::ReadWord() {
    uint8_t b[2];
    _Take(b, 2);
    return GetU16(b);
}

uint32_t CBuffFileReader::ReadDWord() {
    uint8_t b[4];
    _Take(b, 4);
    return GetU32(b);
}

uint64_t CBuffFileReader::ReadLongLong() {
    uint8_t b[8];
    _Take(b, 8);
    return GetU64(b);
}

// The count is checked against the bytes held before the string is sized,
// so a damaged count throws instead of allocating.
std::u16string CBuffFileReader::ReadString() {
    const uint32_t start = m_Pos;
    const uint32_t n = ReadDWord();
    if (uint64_t{m_Pos} + uint64_t{n} * 2 > m_Size) {
        m_Pos = start;
        throw CExc(u"The specified size is out of the buffer boundary.");
    }
    std::u16string text(n, u'\0');
    _Take(text.data(), n * 2);
    return text;
}

void CBuffFileReader::Open(std::u16string_view name) {
    if (m_Opened) return;
    platform::CHandle file = platform::FileOpen(name, platform::kGenericRead, platform::kShareRead,
                                                platform::kOpenExisting, platform::kAttrNormal);
    if (!file.IsValid()) throw CWin32Exc(u"Cannot open file CBuffFileReader::Open");
    int64_t size = 0;
    if (!platform::FileGetSize(file.Get(), &size))
        throw CWin32Exc(u"Cannot get file size CBuffFileReader::Open");
    if (size < 0 || static_cast<uint64_t>(size) > 0xFFFFFFFFu)
        throw CWin32Exc(u"Cannot alloc memory CBuffFileReader::Open", platform::kErrNotSupported);
    CBuf<uint8_t> buffer(static_cast<size_t>(size));
    uint32_t done = 0;
    if (size > 0 &&
        !platform::FileRead(file.Get(), buffer.Get(), static_cast<uint32_t>(size), &done))
        throw CWin32Exc(u"Cannot read file in CBuffFileReader::Open");
    // A file that shrank between the size and the read holds what was read.
    m_Buffer = std::move(buffer);
    m_Size = done;
    m_Pos = 0;
    m_Opened = true;
}

void CBuffFileReader::Close() {
    if (!m_Opened) return;
    m_Buffer.Allocate(0);
    m_Size = 0;
    m_Pos = kClosedPos;
    m_Opened = false;
}

void CBuffFileReader::SetCurFilePos(uint64_t position) {
    if (position >= kClosedPos)
        throw CWin32Exc(u"Cannot set file position CBuffFileReader::SetCurFilePos",
                        platform::kErrNotSupported);
    m_Pos = static_cast<uint32_t>(position);
}

void CBuffFileReader::ReadPrefix(char* buffer) {
    if (!buffer) throw CExc(u"Invalid argument in CFileReader::ReadPrefix", kHrInvalidArg);
    _Take(buffer, 4);
}

}  // namespace idxdata
