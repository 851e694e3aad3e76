#pragma once
// The exception family of the program.
//
// Every failure is a CExc (or a class derived from it) thrown by value. It
// carries a list of message lines and one HRESULT code. A layer that wants to
// say what it was doing catches by reference, adds one line with AddContext /
// AddFailContext, and rethrows the same object with `throw;`. The first
// message goes into the empty list and each later one is put in front, so
// GetDescription reads from the outermost context to the deepest cause.
//
// Thread-safety: a CExc is a value; Clone and Rethrow move it across threads.

#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

inline constexpr int32_t kHrFail = static_cast<int32_t>(0x80004005);
inline constexpr int32_t kHrInvalidArg = static_cast<int32_t>(0x80070057);

// A code of 0 or below (as a signed number) stays; a positive value v, a
// plain Win32 error, becomes the HRESULT (v & 0xFFFF) | 0x80070000.
int32_t NormaliseCode(int32_t code);

class CExc {
public:
    explicit CExc(std::u16string_view message, int32_t code = kHrFail);
    CExc(std::u16string_view format, std::u16string_view a1, int32_t code = kHrFail);
    CExc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
         int32_t code = kHrFail);
    CExc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
         std::u16string_view a3, int32_t code = kHrFail);
    // One message: the what-text widened, or "Unknown exception"; code kHrFail.
    explicit CExc(const std::exception& e);
    virtual ~CExc() = default;

    CExc(const CExc&) = default;
    CExc& operator=(const CExc&) = default;

    // A heap copy of the object, of its own dynamic type.
    virtual std::shared_ptr<CExc> Clone() const;
    // Throws a copy of the object, of its own dynamic type.
    [[noreturn]] virtual void Rethrow() const;

    int32_t GetCode() const { return m_Code; }
    void SetCode(int32_t code) { m_Code = code; }

    // Inserts the text at the front of the list (outermost context first).
    void AddMessage(std::u16string_view message);
    // Formats with the %1 formatter, then AddMessage.
    void AddContext(std::u16string_view format);
    void AddContext(std::u16string_view format, std::u16string_view a1);
    void AddContext(std::u16string_view format, std::u16string_view a1, std::u16string_view a2);
    void AddContext(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
                    std::u16string_view a3);
    // The number form: %1 is the 32-bit value in signed decimal.
    void AddContextNumber(std::u16string_view format, int32_t number);
    // "%1 fail." with the operation's name, the context used in most places.
    void AddFailContext(std::u16string_view operation);

    // Messages joined by "\r\n", front to back; a message that itself ends in
    // "\r\n" loses that ending. Empty when there are no messages.
    std::u16string GetDescription() const;
    const std::deque<std::u16string>& GetMessages() const { return m_Messages; }

protected:
    // For derived classes that add their own lines in their own order.
    struct NoMessage {};
    CExc(NoMessage, int32_t code) : m_Code(code) {}

private:
    std::deque<std::u16string> m_Messages;
    int32_t m_Code;
};

namespace indexer {

// The signal of the nesting limit of the directory walk.
class CRecursionBreakExc : public CExc {
public:
    using CExc::CExc;
    std::shared_ptr<CExc> Clone() const override;
    [[noreturn]] void Rethrow() const override;
};

}  // namespace indexer
