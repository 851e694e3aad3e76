#pragma once
// Errors of the platform layer.
//
// Every platform operation reports failure the Win32 way: it returns false
// (or an invalid handle) and sets the calling thread's last error to a Win32
// error number, on both platforms. The POSIX side maps errno to those
// numbers (see kErr* below), so the core tests the same codes everywhere.
//
// CWin32Exc and CComExc are the exceptions that carry such errors; their
// system line reads the same on both platforms.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/exc.h"

namespace platform {

// Win32 error numbers the core tests.
inline constexpr uint32_t kErrSuccess = 0;
inline constexpr uint32_t kErrInvalidFunction = 1;
inline constexpr uint32_t kErrFileNotFound = 2;
inline constexpr uint32_t kErrPathNotFound = 3;
inline constexpr uint32_t kErrTooManyOpenFiles = 4;
inline constexpr uint32_t kErrAccessDenied = 5;
inline constexpr uint32_t kErrInvalidHandle = 6;
inline constexpr uint32_t kErrNotEnoughMemory = 8;
inline constexpr uint32_t kErrInvalidData = 13;
inline constexpr uint32_t kErrOutOfMemory = 14;
inline constexpr uint32_t kErrInvalidDrive = 15;
inline constexpr uint32_t kErrNoMoreFiles = 18;
inline constexpr uint32_t kErrWriteProtect = 19;
inline constexpr uint32_t kErrNotReady = 21;
inline constexpr uint32_t kErrCrc = 23;
inline constexpr uint32_t kErrSeek = 25;
inline constexpr uint32_t kErrWriteFault = 29;
inline constexpr uint32_t kErrReadFault = 30;
inline constexpr uint32_t kErrGenFailure = 31;
inline constexpr uint32_t kErrSharingViolation = 32;
inline constexpr uint32_t kErrLockViolation = 33;
inline constexpr uint32_t kErrHandleEof = 38;
inline constexpr uint32_t kErrHandleDiskFull = 39;
inline constexpr uint32_t kErrNotSupported = 50;
inline constexpr uint32_t kErrFileExists = 80;
inline constexpr uint32_t kErrInvalidParameter = 87;
inline constexpr uint32_t kErrBrokenPipe = 109;
inline constexpr uint32_t kErrDiskFull = 112;
inline constexpr uint32_t kErrInsufficientBuffer = 122;
inline constexpr uint32_t kErrInvalidName = 123;
inline constexpr uint32_t kErrDirNotEmpty = 145;
inline constexpr uint32_t kErrBusy = 170;
inline constexpr uint32_t kErrAlreadyExists = 183;
inline constexpr uint32_t kErrFilenameExcedRange = 206;
inline constexpr uint32_t kErrMoreData = 234;
inline constexpr uint32_t kErrNoMoreItems = 259;
inline constexpr uint32_t kErrDirectory = 267;
inline constexpr uint32_t kErrNotAReparsePoint = 4390;
inline constexpr uint32_t kErrInvalidReparseData = 4392;
inline constexpr uint32_t kErrNotFound = 1168;
inline constexpr uint32_t kErrPrivilegeNotHeld = 1314;
inline constexpr uint32_t kErrNoneMapped = 1332;
inline constexpr uint32_t kErrInvalidSid = 1337;
inline constexpr uint32_t kErrUnrecognizedVolume = 1005;
inline constexpr uint32_t kErrFileInvalid = 1006;
inline constexpr uint32_t kErrFileCorrupt = 1392;
inline constexpr uint32_t kErrCantAccessFile = 1920;
inline constexpr uint32_t kErrCantResolveFilename = 1921;
inline constexpr uint32_t kErrNoUnicodeTranslation = 1113;
inline constexpr uint32_t kErrNotEnoughQuota = 1816;
// SetPriorityClass: the process is already in background processing mode.
inline constexpr uint32_t kErrProcessModeAlreadyBackground = 402;
inline constexpr uint32_t kErrProcessModeNotBackground = 403;
inline constexpr uint32_t kErrNotSameDevice = 17;
inline constexpr uint32_t kErrSharingBufferExceeded = 36;
inline constexpr uint32_t kErrBadPathname = 161;
inline constexpr uint32_t kErrBadExeFormat = 193;
inline constexpr uint32_t kErrEnvVarNotFound = 203;
inline constexpr uint32_t kErrFileTooLarge = 223;
inline constexpr uint32_t kErrArithmeticOverflow = 534;
inline constexpr uint32_t kErrOperationAborted = 995;
inline constexpr uint32_t kErrNoAccess = 998;
inline constexpr uint32_t kErrBadDb = 1009;  // the registry store is damaged
inline constexpr uint32_t kErrIoDevice = 1117;
inline constexpr uint32_t kErrTooManyLinks = 1142;
inline constexpr uint32_t kErrDeviceNotConnected = 1167;
inline constexpr uint32_t kErrTimeout = 1460;
inline constexpr uint32_t kErrResourceTypeNotFound = 1813;

// The calling thread's last error.
uint32_t GetLastError();
void SetLastError(uint32_t error);

// The system's text for a Win32 error, as FormatMessageW gives it (language
// 0x0400, text from the system), with the system's own line end; empty when
// the system has no text for it.
std::u16string GetErrorText(uint32_t error);

// The description of the thread's current COM error object; empty where the
// platform has none or the description is empty.
std::u16string GetComErrorDescription();

}  // namespace platform

// A Win32 failure. The error kReadLastError (0xFFFFFFFF, -1) means: read the
// thread's last error now. Lines: the formatted context (if any) first, then
// "Win32 error:" + system text + " Code: " + the error in signed decimal.
// The code is the normalised HRESULT of the error.
class CWin32Exc : public CExc {
public:
    static constexpr uint32_t kReadLastError = 0xFFFFFFFFu;

    // Last error, no context line.
    CWin32Exc();
    explicit CWin32Exc(std::u16string_view message, uint32_t error = kReadLastError);
    CWin32Exc(std::u16string_view format, std::u16string_view a1,
              uint32_t error = kReadLastError);
    CWin32Exc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
              uint32_t error = kReadLastError);
    CWin32Exc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
              std::u16string_view a3, uint32_t error = kReadLastError);

    uint32_t GetWin32Error() const { return m_Win32Error; }

    std::shared_ptr<CExc> Clone() const override;
    [[noreturn]] void Rethrow() const override;

private:
    void Init(uint32_t error);
    uint32_t m_Win32Error = 0;
};

// A COM failure. The code is stored as given, without normalisation. The
// system line, added first: "COM error: " + the description of the thread's
// error object + " Code: " + the code as "0x%x".
class CComExc : public CExc {
public:
    CComExc(std::u16string_view message, int32_t hr);
    CComExc(std::u16string_view format, std::u16string_view a1, int32_t hr);
    CComExc(std::u16string_view format, std::u16string_view a1, std::u16string_view a2,
            int32_t hr);
    // With the failure's error-info object (opaque; may be empty).
    CComExc(std::u16string_view message, int32_t hr, std::shared_ptr<void> errorInfo);

    const std::shared_ptr<void>& GetErrorInfo() const { return m_ErrorInfo; }

    std::shared_ptr<CExc> Clone() const override;
    [[noreturn]] void Rethrow() const override;

private:
    void AddSystemLine(int32_t hr);
    std::shared_ptr<void> m_ErrorInfo;
};
