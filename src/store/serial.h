#pragma once
// The stream interfaces of the index store (namespace idxdata).
//
// A file on this layer is a plain stream of primitives with no framing: a
// reader must know what comes next. The byte forms (all little-endian):
//   word       2 bytes
//   dword      4 bytes
//   long long  8 bytes; the placeholder -1 is all ones
//   string     dword n (UTF-16 code units, no terminator), then 2n bytes
//   prefix     4 bytes of narrow text, no length
// All operations report failure by throwing a CExc (see each class).

#include <cstdint>
#include <string>
#include <string_view>

namespace idxdata {

// Writes the primitive forms. Not deleted through this interface.
class ISerializator {
public:
    virtual void WriteWord(uint16_t value) = 0;
    virtual void WriteDWord(uint32_t value) = 0;
    virtual void WriteLongLong(uint64_t value) = 0;
    virtual void WriteString(std::u16string_view text) = 0;

protected:
    ~ISerializator() = default;
};

// Reads the primitive forms.
class IDeserializator {
public:
    virtual uint16_t ReadWord() = 0;
    virtual uint32_t ReadDWord() = 0;
    virtual uint64_t ReadLongLong() = 0;
    virtual std::u16string ReadString() = 0;

protected:
    ~IDeserializator() = default;
};

// A reader of one file: the primitive reads plus positioning.
class IReader : public IDeserializator {
public:
    virtual void Open(std::u16string_view name) = 0;
    virtual void Close() = 0;
    virtual uint64_t GetCurFilePos() = 0;
    virtual void SetCurFilePos(uint64_t position) = 0;
    // Reads exactly four bytes into buffer (REQUIRES: room for 4 bytes).
    virtual void ReadPrefix(char* buffer) = 0;
    virtual ~IReader() = default;
};

}  // namespace idxdata
