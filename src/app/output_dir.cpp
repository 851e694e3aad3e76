#include "app/output_dir.h"

#include <string>

#include "base/exc.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/find.h"

namespace indexer {

namespace {

bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

bool FolderExists(std::u16string_view path) {
    platform::TFindData data;
    const platform::CFindHandle find = platform::FindFirst(std::u16string(path) + u"\\*", data);
    if (find.IsValid()) return true;
    const uint32_t error = platform::GetLastError();
    if (error != platform::kErrFileNotFound && error != platform::kErrPathNotFound)
        GetLog().LogException(CWin32Exc(u"Failed to check is directory exist", error));
    return false;
}

}  // namespace

void CreateOutputDirectory(std::u16string_view path) {
    try {
        if (FolderExists(path)) return;
        const size_t cut = path.find_last_of(u"\\/");
        if (cut == std::u16string_view::npos || (cut > 0 && IsSeparator(path[cut - 1])))
            throw CExc(u"Invalid folder path: [%1].", path, kHrInvalidArg);
        // "/out" has the file system's root as parent, which always exists.
        if (cut > 0) CreateOutputDirectory(path.substr(0, cut));
        if (!platform::DirCreate(path) && platform::GetLastError() != platform::kErrAlreadyExists)
            throw CWin32Exc(u"CreateDirectoryW(%1) failed.", path);
    } catch (CExc& e) {
        e.AddContext(u"Cannot create folder [%1].", path);
        throw;
    }
}

}  // namespace indexer
