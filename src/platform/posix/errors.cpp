#include <cerrno>
#include <unordered_map>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/posix/posix_errors.h"

namespace platform {

namespace {
thread_local uint32_t t_LastError = 0;

// The texts Windows gives (US English), with its line end.
const std::unordered_map<uint32_t, const char*>& ErrorTexts() {
    static const std::unordered_map<uint32_t, const char*> texts = {
        {0, "The operation completed successfully."},
        {1, "Incorrect function."},
        {2, "The system cannot find the file specified."},
        {3, "The system cannot find the path specified."},
        {4, "The system cannot open the file."},
        {5, "Access is denied."},
        {6, "The handle is invalid."},
        {8, "Not enough memory resources are available to process this command."},
        {13, "The data is invalid."},
        {14, "Not enough memory resources are available to complete this operation."},
        {15, "The system cannot find the drive specified."},
        {18, "There are no more files."},
        {19, "The media is write protected."},
        {21, "The device is not ready."},
        {23, "Data error (cyclic redundancy check)."},
        {25, "The drive cannot locate a specific area or track on the disk."},
        {29, "The system cannot write to the specified device."},
        {30, "The system cannot read from the specified device."},
        {31, "A device attached to the system is not functioning."},
        {32, "The process cannot access the file because it is being used by another process."},
        {33, "The process cannot access the file because another process has locked a portion "
             "of the file."},
        {38, "Reached the end of the file."},
        {39, "The disk is full."},
        {50, "The request is not supported."},
        {80, "The file exists."},
        {87, "The parameter is incorrect."},
        {109, "The pipe has been ended."},
        {112, "There is not enough space on the disk."},
        {122, "The data area passed to a system call is too small."},
        {123, "The filename, directory name, or volume label syntax is incorrect."},
        {145, "The directory is not empty."},
        {170, "The requested resource is in use."},
        {183, "Cannot create a file when that file already exists."},
        {206, "The filename or extension is too long."},
        {234, "More data is available."},
        {259, "No more data is available."},
        {267, "The directory name is invalid."},
        {402, "The process is already in background processing mode."},
        {403, "The process is not in background processing mode."},
        {17, "The system cannot move the file to a different disk drive."},
        {36, "Too many files opened for sharing."},
        {161, "The specified path is invalid."},
        {193, "%1 is not a valid Win32 application."},
        {203, "The system could not find the environment option that was entered."},
        {223, "The file size exceeds the limit allowed and cannot be saved."},
        {534, "Arithmetic result exceeded 32 bits."},
        {995, "The I/O operation has been aborted because of either a thread exit or an "
              "application request."},
        {998, "Invalid access to memory location."},
        {1009, "The configuration registry database is corrupt."},
        {1117, "The request could not be performed because of an I/O device error."},
        {1142, "An attempt was made to create more links on a file than the file system "
               "supports."},
        {1167, "The device is not connected."},
        {1460, "This operation returned because the timeout period expired."},
        {1813, "The specified resource type cannot be found in the image file."},
        {1005, "The volume does not contain a recognized file system.\r\nPlease make sure that "
               "all required file system drivers are loaded and that the volume is not "
               "corrupted."},
        {1006, "The volume for a file has been externally altered so that the opened file is "
               "no longer valid."},
        {1392, "The file or directory is corrupted and unreadable."},
        {1113, "No mapping for the Unicode character exists in the target multi-byte code "
               "page."},
        {1168, "Element not found."},
        {1314, "A required privilege is not held by the client."},
        {1332, "No mapping between account names and security IDs was done."},
        {1337, "The security ID structure is invalid."},
        {1816, "Not enough quota is available to process this command."},
        {1920, "The file cannot be accessed by the system."},
        {1921, "The name of the file cannot be resolved by the system."},
        {4390, "The file or directory is not a reparse point."},
        {4392, "The data present in the reparse point buffer is invalid."},
    };
    return texts;
}
}  // namespace

uint32_t GetLastError() { return t_LastError; }
void SetLastError(uint32_t error) { t_LastError = error; }

std::u16string GetErrorText(uint32_t error) {
    const auto& texts = ErrorTexts();
    auto it = texts.find(error);
    if (it == texts.end()) return {};
    return util::Utf8ToUtf16(it->second) + u"\r\n";
}

std::u16string GetComErrorDescription() { return {}; }

namespace posix {

uint32_t Win32FromErrno(int err) {
    switch (err) {
        case 0: return kErrSuccess;
        case ENOENT: return kErrFileNotFound;
        case ENOTDIR: return kErrPathNotFound;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR: return kErrAccessDenied;
        case EEXIST: return kErrFileExists;
        case ENOTEMPTY: return kErrDirNotEmpty;
        case ENOSPC:
        case EDQUOT: return kErrDiskFull;
        case EFBIG: return kErrFileTooLarge;
        case EBADF: return kErrInvalidHandle;
        case ENOMEM: return kErrNotEnoughMemory;
        case EMFILE:
        case ENFILE: return kErrTooManyOpenFiles;
        case EINVAL: return kErrInvalidParameter;
        case ENAMETOOLONG: return kErrFilenameExcedRange;
        case EBUSY: return kErrBusy;
        case ETXTBSY: return kErrSharingViolation;
        case EIO: return kErrIoDevice;
        case ENXIO:
        case ENODEV: return kErrNotReady;
        case ENOTCONN: return kErrDeviceNotConnected;
        case ELOOP: return kErrCantResolveFilename;
        case EXDEV: return kErrNotSameDevice;
        case ENOTSUP: return kErrNotSupported;  // also EOPNOTSUPP
        case ENOSYS:
        case ENOTTY: return kErrInvalidFunction;
        case ENODATA: return kErrNotAReparsePoint;
        case EILSEQ: return kErrNoUnicodeTranslation;
        case EAGAIN: return kErrLockViolation;  // also EWOULDBLOCK
        case ENOLCK: return kErrSharingBufferExceeded;
        case ESPIPE: return kErrSeek;
        case EPIPE: return kErrBrokenPipe;
        case EINTR: return kErrOperationAborted;
        case EFAULT: return kErrNoAccess;
        case EOVERFLOW: return kErrArithmeticOverflow;
        case ETIMEDOUT: return kErrTimeout;
        case EMLINK: return kErrTooManyLinks;
        case ENOEXEC: return kErrBadExeFormat;
        default: return kErrGenFailure;
    }
}

bool FailErrno() {
    SetLastError(Win32FromErrno(errno));
    return false;
}

bool Fail(uint32_t win32Error) {
    SetLastError(win32Error);
    return false;
}

}  // namespace posix
}  // namespace platform
