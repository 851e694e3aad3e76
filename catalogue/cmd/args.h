#pragma once
// catalogue::TArgs: the words of one subcommand split into positional
// arguments and options. "--name value" and "--name=value" both give an
// option its value; "--" ends the options; "-h" is "--help". A word that
// starts with "-" but is not a known option, an option without its value,
// or a flag given a value, throws CUsageError.

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace catalogue {

// Bad usage: the tool prints the text and a pointer to --help, exit code 2.
class CUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct TOptionSpec {
    const char* name;  // without the dashes
    bool takesValue;
};

struct TArgs {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;  // flags have an empty value
    bool help = false;

    bool Has(const std::string& name) const { return options.count(name) != 0; }
    const std::string* Get(const std::string& name) const {
        const auto it = options.find(name);
        return it == options.end() ? nullptr : &it->second;
    }
};

TArgs ParseArgs(const std::vector<std::string>& words, const std::vector<TOptionSpec>& specs);

}  // namespace catalogue
