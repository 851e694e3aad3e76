#include "store/file_writer.h"

#include <cstring>

#include "base/exc.h"
#include "platform/errors.h"
#include "store/table_format.h"

namespace idxdata {

void CFileWriter::_Write(const void* data, uint32_t size, const char16_t* closedText,
                         const char16_t* failText) {
    if (!m_Handle.IsValid()) throw CExc(closedText, kHrInvalidArg);
    uint32_t done = 0;
    if (!platform::FileWrite(m_Handle.Get(), data, size, &done)) throw CWin32Exc(failText);
}

void CFileWriter::WriteWord(uint16_t value) {
    uint8_t b[2];
    PutU16(b, value);
    _Write(b, 2, u"Cannot write word in CFileWriter::WriteWord",
           u"Cannot write file in CFileWriter::WriteWord");
}

void CFileWriter::WriteDWord(uint32_t value) {
    uint8_t b[4];
    PutU32(b, value);
    _Write(b, 4, u"Cannot write word in CFileWriter::WriteDWord",
           u"Cannot write file in CFileWriter::WriteDWord");
}

void CFileWriter::WriteLongLong(uint64_t value) {
    uint8_t b[8];
    PutU64(b, value);
    _Write(b, 8, u"Cannot write word in CFileWriter::WriteLongLong",
           u"Cannot write file in CFileWriter::WriteLongLong");
}

// The count as one write, then the units as a second; nothing for "".
void CFileWriter::WriteString(std::u16string_view text) {
    static constexpr char16_t kClosed[] = u"Cannot write in CFileWriter::WriteString";
    static constexpr char16_t kFail[] = u"Cannot write file in CFileWriter::WriteString";
    if (text.size() > 0x7FFFFFFFu) throw CExc(u"Invalid argument in CFileWriter::WriteString", kHrInvalidArg);
    const auto n = static_cast<uint32_t>(text.size());
    uint8_t b[4];
    PutU32(b, n);
    _Write(b, 4, kClosed, kFail);
    if (n == 0) return;
    _Write(text.data(), n * 2, kClosed, kFail);
}

void CFileWriter::Create(std::u16string_view name) {
    m_Handle = platform::FileOpen(name, platform::kGenericWrite, platform::kShareRead,
                                  platform::kCreateAlways, platform::kAttrNormal);
    if (!m_Handle.IsValid())
        throw CWin32Exc(u"%1 fail. Cannot create file [%2].", u"idxdata::CFileWriter::Create", name);
}

void CFileWriter::Open(std::u16string_view name, bool seekToEnd, uint64_t* position) {
    m_Handle = platform::FileOpen(name, platform::kGenericWrite, platform::kShareRead,
                                  platform::kOpenExisting, platform::kAttrNormal);
    if (!m_Handle.IsValid())
        throw CWin32Exc(u"%1 fail. Cannot create file [%2]", u"idxdata::CFileWriter::Open", name);
    if (!seekToEnd) return;
    int64_t end = 0;
    if (!platform::FileSeek(m_Handle.Get(), 0, &end, platform::kFileEnd))
        throw CWin32Exc(u"%1 fail. Cannot set file pointer for file [%2]",
                        u"idxdata::CFileWriter::Open", name);
    if (position) *position = static_cast<uint64_t>(end);
}

void CFileWriter::WriteBuf(const void* buffer, uint32_t size) {
    _Write(buffer, size, u"Cannot write buf in CFileWriter::WriteBuf",
           u"Cannot write file in CFileWriter::WriteBuf");
}

void CFileWriter::WritePrefix(const char* text) {
    if (!text) throw CExc(u"Invalid argument in CFileWriter::WritePrefix", kHrInvalidArg);
    if (std::strlen(text) != 4)
        throw CExc(u"Invalid length of prefix CFileWriter::WritePrefix", kHrInvalidArg);
    uint32_t done = 0;
    if (!platform::FileWrite(m_Handle.Get(), text, 4, &done))
        throw CWin32Exc(u"Cannot write file in CFileWriter::WritePrefix");
}

void CFileWriter::WriteVersion(uint16_t major, uint16_t minor) {
    WriteWord(major);
    WriteWord(minor);
}

uint64_t CFileWriter::GetCurFilePos() {
    int64_t pos = 0;
    if (!platform::FileSeek(m_Handle.Get(), 0, &pos, platform::kFileCurrent))
        throw CWin32Exc(u"Error in CFileWriter::GetCurFilePos");
    return static_cast<uint64_t>(pos);
}

void CFileWriter::SetCurFilePos(uint64_t position) {
    if (!platform::FileSeek(m_Handle.Get(), static_cast<int64_t>(position), nullptr,
                            platform::kFileBegin))
        throw CWin32Exc(u"Error in CFileWriter::SetCurFilePos");
}

void CFileWriter::Flush() {
    if (m_Handle.IsValid()) platform::FileFlush(m_Handle.Get());
}

void CFileWriter::Close() {
    if (m_Handle.IsValid()) m_Handle.Close();
}

}  // namespace idxdata
