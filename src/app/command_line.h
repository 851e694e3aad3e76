#pragma once
// CCommandLine: what is left of the command line. Everything a consumer
// takes is removed, so that CheckEmpty can tell at the end that nothing
// unknown was given.
//
// Parsing (at construction, from the second argument on): "-name" is an
// option, its name lower-cased from A-Z only. A name in the value option set
// takes the next argument as its value; any other name is a flag. Anything
// without the leading "-" is a positional argument, an empty one too. A value
// option at the very end is dropped without a word. Errors, each a CExc with
// code 0x80004005:
//   "Command line already has flag: [%1]."   a flag given twice
//   "No value for key: [%1]."                 a value that begins with "-"
//   "Command line already has key: [%1]."     a value option given twice

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace indexer {

class CCommandLine {
public:
    // args[0] is the program and is skipped.
    CCommandLine(const std::vector<std::u16string>& args,
                 const std::set<std::u16string>& valueOptions);

    // No positional argument, flag or value option is left.
    bool IsEmpty() const;
    // The option's value, removed; empty when absent.
    std::u16string GetKeyValue(std::u16string_view name);
    // The first positional argument, removed. Throws "Command line error:
    // Additional argument expected." when none is left.
    std::u16string GetNextArgument();
    // The same, but empty instead of throwing.
    std::u16string GetNextArgumentOrEmpty();
    // Throws "Unexpected parameters in the command line." unless IsEmpty.
    void CheckEmpty() const;

private:
    std::vector<std::u16string> m_Arguments;
    std::vector<std::u16string> m_Flags;  // in order, each once
    std::map<std::u16string, std::u16string, std::less<>> m_Values;
};

}  // namespace indexer
