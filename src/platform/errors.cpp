#include "platform/errors.h"

#include "base/format.h"

CWin32Exc::CWin32Exc() : CExc(NoMessage{}, 0) { Init(kReadLastError); }

CWin32Exc::CWin32Exc(std::u16string_view message, uint32_t error) : CExc(NoMessage{}, 0) {
    Init(error);
    AddMessage(message);
}

CWin32Exc::CWin32Exc(std::u16string_view format, std::u16string_view a1, uint32_t error)
    : CExc(NoMessage{}, 0) {
    Init(error);
    AddContext(format, a1);
}

CWin32Exc::CWin32Exc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
                     uint32_t error)
    : CExc(NoMessage{}, 0) {
    Init(error);
    AddContext(format, a1, a2);
}

CWin32Exc::CWin32Exc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
                     std::u16string_view a3, uint32_t error)
    : CExc(NoMessage{}, 0) {
    Init(error);
    AddContext(format, a1, a2, a3);
}

void CWin32Exc::Init(uint32_t error) {
    m_Win32Error = error == kReadLastError ? platform::GetLastError() : error;
    SetCode(NormaliseCode(static_cast<int32_t>(m_Win32Error)));
    AddMessage(u"Win32 error:" + platform::GetErrorText(m_Win32Error) + u" Code: " +
               util::ToStr(static_cast<int32_t>(m_Win32Error)));
}

std::shared_ptr<CExc> CWin32Exc::Clone() const { return std::make_shared<CWin32Exc>(*this); }

void CWin32Exc::Rethrow() const { throw CWin32Exc(*this); }

CComExc::CComExc(std::u16string_view message, int32_t hr) : CExc(NoMessage{}, hr) {
    AddSystemLine(hr);
    AddMessage(message);
}

CComExc::CComExc(std::u16string_view format, std::u16string_view a1, int32_t hr)
    : CExc(NoMessage{}, hr) {
    AddSystemLine(hr);
    AddContext(format, a1);
}

CComExc::CComExc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
                 int32_t hr)
    : CExc(NoMessage{}, hr) {
    AddSystemLine(hr);
    AddContext(format, a1, a2);
}

CComExc::CComExc(std::u16string_view message, int32_t hr, std::shared_ptr<void> errorInfo)
    : CExc(NoMessage{}, hr), m_ErrorInfo(std::move(errorInfo)) {
    AddSystemLine(hr);
    AddMessage(message);
}

void CComExc::AddSystemLine(int32_t hr) {
    AddMessage(u"COM error: " + platform::GetComErrorDescription() + u" Code: " +
               util::HexCode(static_cast<uint32_t>(hr)));
}

std::shared_ptr<CExc> CComExc::Clone() const { return std::make_shared<CComExc>(*this); }

void CComExc::Rethrow() const { throw CComExc(*this); }
