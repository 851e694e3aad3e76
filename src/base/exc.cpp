#include "base/exc.h"

#include "base/format.h"
#include "base/utf.h"

int32_t NormaliseCode(int32_t code) {
    if (code <= 0) return code;
    return static_cast<int32_t>((static_cast<uint32_t>(code) & 0xFFFFu) | 0x80070000u);
}

CExc::CExc(std::u16string_view message, int32_t code) : m_Code(NormaliseCode(code)) {
    AddMessage(message);
}

CExc::CExc(std::u16string_view format, std::u16string_view a1, int32_t code)
    : m_Code(NormaliseCode(code)) {
    AddMessage(FormatMessageArgs(format, {a1}));
}

CExc::CExc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
           int32_t code)
    : m_Code(NormaliseCode(code)) {
    AddMessage(FormatMessageArgs(format, {a1, a2}));
}

CExc::CExc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
           std::u16string_view a3, int32_t code)
    : m_Code(NormaliseCode(code)) {
    AddMessage(FormatMessageArgs(format, {a1, a2, a3}));
}

CExc::CExc(const std::exception& e) : m_Code(kHrFail) {
    const char* what = e.what();
    AddMessage(what ? util::Utf8ToUtf16(what) : std::u16string(u"Unknown exception"));
}

std::shared_ptr<CExc> CExc::Clone() const { return std::make_shared<CExc>(*this); }

void CExc::Rethrow() const { throw CExc(*this); }

void CExc::AddMessage(std::u16string_view message) { m_Messages.emplace_front(message); }

void CExc::AddContext(std::u16string_view format) { AddMessage(FormatMessageArgs(format, {})); }

void CExc::AddContext(std::u16string_view format, std::u16string_view a1) {
    AddMessage(FormatMessageArgs(format, {a1}));
}

void CExc::AddContext(std::u16string_view format, std::u16string_view a1,
                      std::u16string_view a2) {
    AddMessage(FormatMessageArgs(format, {a1, a2}));
}

void CExc::AddContext(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
                      std::u16string_view a3) {
    AddMessage(FormatMessageArgs(format, {a1, a2, a3}));
}

void CExc::AddContextNumber(std::u16string_view format, int32_t number) {
    AddContext(format, util::ToStr(number));
}

void CExc::AddFailContext(std::u16string_view operation) { AddContext(u"%1 fail.", operation); }

std::u16string CExc::GetDescription() const {
    std::u16string result;
    bool first = true;
    for (const auto& message : m_Messages) {
        if (!first) result += u"\r\n";
        first = false;
        std::u16string_view text = message;
        if (text.size() >= 2 && text.substr(text.size() - 2) == u"\r\n")
            text.remove_suffix(2);
        result += text;
    }
    return result;
}

namespace indexer {

std::shared_ptr<CExc> CRecursionBreakExc::Clone() const {
    return std::make_shared<CRecursionBreakExc>(*this);
}

void CRecursionBreakExc::Rethrow() const { throw CRecursionBreakExc(*this); }

}  // namespace indexer
