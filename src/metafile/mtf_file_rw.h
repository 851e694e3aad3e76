#pragma once
// A meta-file on disk: its line table, the file (held open or not), and the
// save that protects the last good version in "<name>.old".
//
// Safe rewrite: when the meta-file exists, it is first copied to "<name>.old"
// (unless a .old already stands: that one holds the last good version and
// the main file may be half-written), then rewritten, then the .old is
// deleted. Open finishes or discards an interrupted save, by mode.
//
// Not thread-safe; used by one thread.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "metafile/mtf_lines.h"

namespace metafile {

class CMtfBinaryFile;

enum EMtfOpenMode : int32_t {
    // Read the lines and close the file; a .old stands in for the main file.
    EMtfLoad = 0,
    // Keep the file open for saving; a .old replaces the main file first.
    EMtfOpenRW = 1,
    // Start empty: the main file and any .old are deleted, nothing is held;
    // the first Save creates the file.
    EMtfCreateNewDetached = 2,
};

// "EMtfLoad", "EMtfOpenRW", "EMtfCreateNewDetached", or the number.
std::u16string MtfOpenModeName(int32_t mode);

class CMtfFileRw {
public:
    // Context of any failure: "Cannot create or load meta-file \"%1\". Open
    // mode: %2". Other modes: "The specified open mode \"%1\" is not
    // supported."; EMtfLoad of a missing file: "File \"%1\" does not exist.".
    static std::shared_ptr<CMtfFileRw> Open(std::u16string_view name, int32_t mode);

    const std::shared_ptr<CMtfLinesTab>& GetLines() const { return m_Lines; }
    const std::u16string& GetName() const { return m_Name; }

    // With a file held open: nothing, an append, or the safe rewrite, as the
    // lines changed. Without one: the safe rewrite, whatever changed. A
    // failure leaves the lines as they were, so a retry writes the same.
    // Context: "Cannot save changes in meta-file \"%1\".".
    void Save();
    // Closes the file; the table stays usable and the next Save is safe.
    void Detach();

    bool IsAttached() const { return m_File != nullptr; }

private:
    explicit CMtfFileRw(std::u16string name) : m_Name(std::move(name)) {}
    void _Open(int32_t mode);
    void _SafeRewrite();

    std::u16string m_Name;
    std::shared_ptr<CMtfBinaryFile> m_File;
    std::shared_ptr<CMtfLinesTab> m_Lines;
};

}  // namespace metafile
