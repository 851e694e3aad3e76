#pragma once
// The line table of a meta-file (summary.txt): every line of the file,
// attribute or not, with what happened to it since the last save, so that a
// load and a save change nothing but the lines that really changed.
//
// File form (docs/metafile.md): FF FE, then UTF-16LE lines separated by
// CR LF, no separator after the last line. Read, a line may also end at LF
// alone, and a file without the mark is 8-bit text of the system code page.
//
// Line indices are positions in the table from 0 and never change: a deleted
// line, once saved, leaves a null slot. Not thread-safe.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace metafile {

class CMtfBinaryFile;

// Files of this size or more are refused.
inline constexpr uint64_t kMtfFileSizeLimit = 0x20000000;

enum EMtfLineState : uint32_t {
    MtfLineUnchanged = 0,  // as in the file
    MtfLineAdded = 1,      // new, not yet in the file
    MtfLineDeleted = 2,    // to be removed at the next save
    MtfLineUpdated = 3,    // text changed
};

struct SMtfRawLine {
    std::u16string m_Text;
    EMtfLineState m_State = MtfLineUnchanged;
};

// What a save has to do (GetChangeKind).
enum EMtfChangeKind : int32_t {
    MtfNoChange = 0,
    MtfChangeAppend = 1,   // every change lies behind the unchanged head
    MtfChangeRewrite = 2,  // the file must be written whole
};

class CMtfLinesTab {
public:
    explicit CMtfLinesTab(std::u16string name) : m_Name(std::move(name)) {}

    // Appends a line; returns its index.
    int64_t AddLine(std::u16string_view text, EMtfLineState state);
    // New text for the line (also fills a null slot). The line becomes
    // MtfLineUpdated, except a line not yet in the file, which stays
    // MtfLineAdded so that it can still be appended.
    // Throws "There is no line %1 in meta-file %2" for an index past the end.
    void ReplaceLine(int64_t index, std::u16string_view text);
    // Marks a line for removal at the next save; false for no such line.
    bool DeleteLine(int64_t index);
    // False for an index past the end, a null slot or a deleted line.
    bool GetLine(int64_t index, std::u16string& text) const;
    EMtfLineState GetLineState(int64_t index) const;  // MtfLineDeleted for no line
    int64_t GetLineCount() const { return static_cast<int64_t>(m_Lines.size()); }

    // The line grammar: true for an attribute line "key=value" (the key is
    // what stands before the first "="; both are trimmed of blanks and tabs).
    // Empty lines, lines starting with "#" and lines without "=" are not.
    bool ParseLine(int64_t index, std::u16string& key, std::u16string& value) const;

    EMtfChangeKind GetChangeKind() const;
    // Appends the added lines at the end of the file (CR LF before each, as
    // UTF-16, no mark), then commits. Throws if the first change is not an
    // added line. Context: "Meta-file [%1] cannot be updated incrementally."
    void WriteIncrementally(CMtfBinaryFile& file);
    // Writes the whole table (FF FE, lines joined by CR LF) over the file's
    // content, then commits. Context: "Meta-file [%1] cannot be rewritten."
    void Rewrite(CMtfBinaryFile& file);

    // A table of every line of the open file, read from its start, under
    // `name`. Context: "Parsing of the meta-file \"%1\" has been failed."
    static std::shared_ptr<CMtfLinesTab> Load(CMtfBinaryFile& file, std::u16string_view name,
                                              uint64_t sizeLimit = kMtfFileSizeLimit);

    const std::u16string& GetName() const { return m_Name; }

private:
    // The index of the first line that is neither a null slot nor unchanged;
    // -1 for none.
    int64_t _FirstChange() const;
    // Deleted lines leave null slots; every other line becomes unchanged.
    void _Commit();
    const SMtfRawLine* _Live(int64_t index) const;

    std::vector<std::shared_ptr<SMtfRawLine>> m_Lines;
    std::u16string m_Name;
};

}  // namespace metafile
