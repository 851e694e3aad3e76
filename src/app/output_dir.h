#pragma once
// The output folder of a run, created with every missing parent.
//
// A folder counts as present when a search of "<path>\*" finds something;
// errors 2 and 3 say it is absent, any other is logged ("Failed to check is
// directory exist") and the folder taken as absent. The parent (the path cut
// at its last "\" or "/") is created first, then the folder; a folder that
// appeared meanwhile (183) is fine.
//
// Errors, each inside the context "Cannot create folder [%1].": CExc
// "Invalid folder path: [%1]." (0x80070057) for a path without a separator
// or with a doubled one where it is cut; CWin32Exc "CreateDirectoryW(%1)
// failed." for a failed creation.

#include <string_view>

namespace indexer {

void CreateOutputDirectory(std::u16string_view path);

}  // namespace indexer
