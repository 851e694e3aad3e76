#include "store/file_reader.h"

#include <cstring>

#include "base/exc.h"
#include "platform/errors.h"
#include "store/table_format.h"

namespace idxdata {

namespace {
// A string is read in steps of this many bytes, so that a damaged count does
// not allocate more than the file can give.
constexpr uint32_t kStringStep = 0x10000;
}  // namespace

CFileReader::~CFileReader() { Close(); }

// Missing bytes stay as the caller zeroed them.
uint32_t CFileReader::_Read(void* buffer, uint32_t size, const char16_t* failText) {
    uint32_t done = 0;
    if (!platform::FileRead(m_Handle.Get(), buffer, size, &done)) throw CWin32Exc(failText);
    return done;
}

uint16_t CFileReader::ReadWord() {
    uint8_t b[2] = {};
    _Read(b, 2, u"Cannot read file in CFileReader::ReadWord");
    return GetU16(b);
}

uint32_t CFileReader::ReadDWord() {
    uint8_t b[4] = {};
    _Read(b, 4, u"Cannot read file in CFileReader::ReadDWord");
    return GetU32(b);
}

uint64_t CFileReader::ReadLongLong() {
    uint8_t b[8] = {};
    _Read(b, 8, u"Cannot read file in CFileReader::ReadLongLong");
    return GetU64(b);
}

std::u16string CFileReader::ReadString() {
    static constexpr char16_t kFail[] = u"Cannot read file in CFileReader::ReadString";
    uint8_t b[4] = {};
    _Read(b, 4, kFail);
    uint64_t left = uint64_t{GetU32(b)} * 2;
    std::u16string text;
    while (left > 0) {
        const uint32_t step = left < kStringStep ? static_cast<uint32_t>(left) : kStringStep;
        const size_t old = text.size();
        text.resize(old + step / 2);
        const uint32_t got = _Read(text.data() + old, step, kFail);
        if (got < step) {
            text.resize(old + got / 2);
            break;
        }
        left -= step;
    }
    return text;
}

void CFileReader::Open(std::u16string_view name) {
    m_Handle = platform::FileOpen(name, platform::kGenericRead, platform::kShareRead,
                                  platform::kOpenExisting, platform::kAttrNormal);
    if (!m_Handle.IsValid()) throw CWin32Exc(u"Cannot open file CFileReader::Open");
    m_FileName = name;
}

void CFileReader::Close() {
    if (m_Handle.IsValid()) m_Handle.Close();
    if (m_DeleteOnClose && !m_FileName.empty()) platform::FileDelete(m_FileName);
    m_FileName.clear();
}

uint64_t CFileReader::GetCurFilePos() {
    int64_t pos = 0;
    if (!platform::FileSeek(m_Handle.Get(), 0, &pos, platform::kFileCurrent))
        throw CWin32Exc(u"Error in CFileWriter::GetCurFilePos");
    return static_cast<uint64_t>(pos);
}

void CFileReader::SetCurFilePos(uint64_t position) {
    if (!platform::FileSeek(m_Handle.Get(), static_cast<int64_t>(position), nullptr,
                            platform::kFileBegin))
        throw CWin32Exc(u"Error in CFileReader::SetCurFilePos");
}

void CFileReader::ReadPrefix(char* buffer) {
    if (!buffer) throw CExc(u"Invalid argument in CFileReader::ReadPrefix", kHrInvalidArg);
    std::memset(buffer, 0, 4);
    _Read(buffer, 4, u"Cannot read file in CFileReader::ReadPrefix");
}

uint32_t CFileReader::ReadBuf(void* buffer, uint32_t size) {
    if (size == 0) return 0;
    return _Read(buffer, size, u"Cannot read file in CFileReader::ReadWord");
}

}  // namespace idxdata
