#include "walk/reparse_processor.h"

#include "base/format.h"
#include "platform/errors.h"
#include "platform/reparse.h"

namespace indexer {

namespace {

uint32_t ReadU16(const uint8_t* p) { return p[0] | (p[1] << 8); }
uint32_t ReadU32(const uint8_t* p) { return ReadU16(p) | (ReadU16(p + 2) << 16); }

}  // namespace

bool DecodeReparseData(const uint8_t* data, size_t size, std::u16string_view path,
                       const char16_t*& substitute, size_t& length, uint32_t& tag) {
    if (size < platform::kReparseHeaderSize)
        throw CExc(u"Reparse point [%1] has damaged data: only %2 bytes returned.", path,
                   util::ToStrU64(size));
    tag = ReadU32(data);
    size_t pathBuffer = 0;
    if (tag == kReparseTagSymlink) pathBuffer = 20;
    else if (tag == kReparseTagMountPoint) pathBuffer = 16;
    else return false;
    if (size < pathBuffer)
        throw CExc(u"Reparse point [%1] has damaged data: only %2 bytes returned.", path,
                   util::ToStrU64(size));
    const size_t offset = ReadU16(data + 8);
    const size_t bytes = ReadU16(data + 10);
    const size_t begin = pathBuffer + offset;
    if (begin + bytes > size || begin % 2 != 0)
        throw CExc(FormatMessageArgs(u"Reparse point [%1] has damaged data: the substitute name "
                                     u"at offset %2 of %3 bytes lies outside the %4 bytes returned.",
                                     {path, util::ToStrU64(begin), util::ToStrU64(bytes),
                                      util::ToStrU64(size)}));
    substitute = reinterpret_cast<const char16_t*>(data + begin);
    length = bytes >> 1;
    return true;
}

CPeparsePointProcessor::CPeparsePointProcessor(std::u16string_view path) : m_Path(path) {
    m_Handle = platform::FileOpen(path, platform::kFileReadAttributes,
                                  platform::kShareRead | platform::kShareWrite | platform::kShareDelete,
                                  platform::kOpenExisting,
                                  platform::kFlagOpenReparsePoint | platform::kFlagBackupSemantics);
    if (!m_Handle.IsValid()) throw CWin32Exc(u"Cannot open reparse point [%1].", path);
}

bool CPeparsePointProcessor::Parse(const char16_t*& substitute, size_t& length, uint32_t& tag) {
    if (!m_Buffer.Get()) m_Buffer.Allocate(kFirstBufferSize);
    uint32_t returned = 0;
    while (!platform::GetReparsePoint(m_Handle.Get(), m_Buffer.Get(),
                                      static_cast<uint32_t>(m_Buffer.Count()), &returned)) {
        const uint32_t error = platform::GetLastError();
        if (error != platform::kErrMoreData)
            throw CWin32Exc(u"CPeparsePointProcessor::Parse fail! FSCTL_GET_REPARSE_POINT nonzero "
                            u"exit code!",
                            error);
        // The header now tells the length of the whole data. It can only
        // ask for more than the buffer holds, so the retries end.
        const size_t size = ReadU16(m_Buffer.Get() + 4) + size_t{kFirstBufferSize};
        if (size <= m_Buffer.Count())
            throw CExc(u"Reparse point [%1] has damaged data: a length of %2 bytes that does not grow.",
                       m_Path, util::ToStrU64(size));
        m_Buffer.Allocate(size);
    }

    return DecodeReparseData(m_Buffer.Get(), returned, m_Path, substitute, length, tag);
}

bool CPeparsePointProcessor::Parse(std::u16string& substitute, uint32_t& tag) {
    const char16_t* text = nullptr;
    size_t length = 0;
    if (!Parse(text, length, tag)) return false;
    substitute.assign(text, length);
    return true;
}

}  // namespace indexer
