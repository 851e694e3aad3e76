// The machine's volumes through the Win32 volume and mount point calls. Each
// call is given a buffer of the length the caller names, so that a short
// buffer fails as it would on Windows.

#include "platform/win32/win32_util.h"

#include <algorithm>

#include "base/case.h"
#include "platform/errors.h"
#include "platform/volume.h"

namespace platform {

namespace {

using win32::FromWide;
using win32::ToWide;

// A terminated answer in a buffer of `length` characters.
std::u16string Terminated(const std::wstring& buffer) { return FromWide(buffer.c_str()); }

// "a\0b\0\0" to {"a", "b"}, within the first `length` characters.
std::vector<std::u16string> SplitMultiString(const std::wstring& buffer, size_t length) {
    std::vector<std::u16string> items;
    length = std::min(length, buffer.size());
    size_t start = 0;
    while (start < length && buffer[start] != L'\0') {
        size_t end = buffer.find(L'\0', start);
        if (end == std::wstring::npos || end > length) end = length;
        items.push_back(FromWide(buffer.data() + start, end - start));
        start = end + 1;
    }
    return items;
}

class CWin32VolumeFindState : public CVolumeFindState {
public:
    CWin32VolumeFindState(HANDLE h, bool mountPoints) : m_Handle(h), m_MountPoints(mountPoints) {}
    ~CWin32VolumeFindState() override {
        if (m_MountPoints) ::FindVolumeMountPointClose(m_Handle);
        else ::FindVolumeClose(m_Handle);
    }
    CWin32VolumeFindState(const CWin32VolumeFindState&) = delete;
    CWin32VolumeFindState& operator=(const CWin32VolumeFindState&) = delete;
    HANDLE Handle() const { return m_Handle; }

private:
    HANDLE m_Handle;
    bool m_MountPoints;
};

HANDLE FindHandleOf(const CVolumeFindHandle& handle) {
    auto* state = dynamic_cast<CWin32VolumeFindState*>(handle.State());
    return state ? state->Handle() : INVALID_HANDLE_VALUE;
}

// "C:" or "\\?\C:": a drive letter and its colon, nothing after.
bool IsBareDrive(std::u16string_view path) {
    if (path.starts_with(u"\\\\?\\")) path.remove_prefix(4);
    return path.size() == 2 && path[1] == u':';
}

class CWin32Volumes : public IVolumes {
public:
    bool GetVolumePathName(std::u16string_view path, std::u16string& mountPoint,
                           uint32_t bufferLength) override {
        std::wstring buffer(bufferLength + 1, L'\0');
        bool ok = ::GetVolumePathNameW(ToWide(path).c_str(), buffer.data(), bufferLength);
        // A bare drive ("C:", a drive root whose "\" the filters strip; also
        // "\\?\C:", as the optimized run asks for an include line) is the
        // drive's current folder, on the drive's volume; Wine refuses it as
        // a bad name (123), so ask for the drive's root then.
        if (!ok && ::GetLastError() == ERROR_INVALID_NAME && IsBareDrive(path))
            ok = ::GetVolumePathNameW(ToWide(std::u16string(path) + u"\\").c_str(), buffer.data(),
                                      bufferLength);
        if (!ok) return false;
        mountPoint = Terminated(buffer);
        return true;
    }

    bool GetVolumeNameForVolumeMountPoint(std::u16string_view mountPoint, std::u16string& volumeName,
                                          uint32_t bufferLength) override {
        std::wstring buffer(bufferLength + 1, L'\0');
        if (!::GetVolumeNameForVolumeMountPointW(ToWide(mountPoint).c_str(), buffer.data(),
                                                 bufferLength))
            return false;
        volumeName = Terminated(buffer);
        return true;
    }

    bool GetVolumePathNamesForVolumeName(std::u16string_view volumeName,
                                         std::vector<std::u16string>& mountPoints,
                                         uint32_t bufferLength, uint32_t* returnLength) override {
        std::wstring buffer(bufferLength + 2, L'\0');
        DWORD length = 0;
        BOOL ok = ::GetVolumePathNamesForVolumeNameW(ToWide(volumeName).c_str(), buffer.data(),
                                                     bufferLength, &length);
        if (returnLength) *returnLength = length;
        if (!ok) return false;
        mountPoints = SplitMultiString(buffer, bufferLength);
        return true;
    }

    CVolumeFindHandle FindFirstVolume(std::u16string& volumeName, uint32_t bufferLength) override {
        std::wstring buffer(bufferLength + 1, L'\0');
        HANDLE h = ::FindFirstVolumeW(buffer.data(), bufferLength);
        if (h == INVALID_HANDLE_VALUE) return CVolumeFindHandle();
        volumeName = Terminated(buffer);
        return CVolumeFindHandle(std::make_unique<CWin32VolumeFindState>(h, false));
    }

    bool FindNextVolume(CVolumeFindHandle& handle, std::u16string& volumeName,
                        uint32_t bufferLength) override {
        HANDLE h = FindHandleOf(handle);
        if (h == INVALID_HANDLE_VALUE) return win32::Fail(kErrInvalidHandle);
        std::wstring buffer(bufferLength + 1, L'\0');
        if (!::FindNextVolumeW(h, buffer.data(), bufferLength)) return false;
        volumeName = Terminated(buffer);
        return true;
    }

    CVolumeFindHandle FindFirstVolumeMountPoint(std::u16string_view rootPath,
                                                std::u16string& mountPoint,
                                                uint32_t bufferLength) override {
        std::wstring buffer(bufferLength + 1, L'\0');
        HANDLE h = ::FindFirstVolumeMountPointW(ToWide(rootPath).c_str(), buffer.data(), bufferLength);
        if (h == INVALID_HANDLE_VALUE) return CVolumeFindHandle();
        mountPoint = Terminated(buffer);
        return CVolumeFindHandle(std::make_unique<CWin32VolumeFindState>(h, true));
    }

    bool FindNextVolumeMountPoint(CVolumeFindHandle& handle, std::u16string& mountPoint,
                                  uint32_t bufferLength) override {
        HANDLE h = FindHandleOf(handle);
        if (h == INVALID_HANDLE_VALUE) return win32::Fail(kErrInvalidHandle);
        std::wstring buffer(bufferLength + 1, L'\0');
        if (!::FindNextVolumeMountPointW(h, buffer.data(), bufferLength)) return false;
        mountPoint = Terminated(buffer);
        return true;
    }

    uint32_t GetDriveType(std::u16string_view rootPath) override {
        return ::GetDriveTypeW(ToWide(rootPath).c_str());
    }

    bool GetVolumeInformation(std::u16string_view rootPath, TVolumeInformation& info,
                              uint32_t labelLength, uint32_t fileSystemNameLength) override {
        std::wstring label(labelLength + 1, L'\0'), fileSystem(fileSystemNameLength + 1, L'\0');
        DWORD serial = 0, maxComponent = 0, flags = 0;
        if (!::GetVolumeInformationW(ToWide(rootPath).c_str(), label.data(), labelLength, &serial,
                                     &maxComponent, &flags, fileSystem.data(), fileSystemNameLength))
            return false;
        info.volumeLabel = Terminated(label);
        info.serialNumber = serial;
        info.maxComponentLength = maxComponent;
        info.fileSystemFlags = flags;
        info.fileSystemName = Terminated(fileSystem);
        return true;
    }

    uint32_t QueryDosDevice(std::u16string_view deviceName, std::vector<std::u16string>& targets,
                            uint32_t bufferLength) override {
        std::wstring buffer(bufferLength + 2, L'\0');
        DWORD n = ::QueryDosDeviceW(ToWide(deviceName).c_str(), buffer.data(), bufferLength);
        if (n == 0) return 0;
        targets = SplitMultiString(buffer, n);
        return n;
    }
};

}  // namespace

namespace win32 {

std::wstring PathThroughMountPoint(std::u16string_view path) {
    constexpr std::u16string_view kPrefix = u"\\\\?\\Volume{";
    if (!util::StartsWithNoCase(path, kPrefix)) return {};
    const size_t close = path.find(u'}', kPrefix.size());
    if (close == std::u16string_view::npos) return {};
    // The caller reports the first call's error when there is no other path.
    const DWORD firstError = ::GetLastError();
    const std::wstring volume = ToWide(path.substr(0, close + 1)) + L"\\";
    std::wstring names(1024, L'\0');
    DWORD length = 0;
    if (!::GetVolumePathNamesForVolumeNameW(volume.c_str(), names.data(),
                                            static_cast<DWORD>(names.size()), &length) ||
        names[0] == L'\0') {
        ::SetLastError(firstError);
        return {};
    }
    std::wstring mountPoint(names.c_str());  // the first, with its trailing "\"
    std::u16string_view rest = path.substr(close + 1);
    if (!rest.empty() && rest.front() == u'\\') rest.remove_prefix(1);
    return mountPoint + ToWide(rest);
}

}  // namespace win32

IVolumes& SystemVolumes() {
    static CWin32Volumes volumes;
    return volumes;
}

}  // namespace platform
