#include "catalogue/cmd/args.h"

namespace catalogue {

TArgs ParseArgs(const std::vector<std::string>& words, const std::vector<TOptionSpec>& specs) {
    TArgs args;
    bool optionsEnded = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (optionsEnded || word.size() < 2 || word[0] != '-') {
            args.positional.push_back(word);
            continue;
        }
        if (word == "--") {
            optionsEnded = true;
            continue;
        }
        if (word == "-h" || word == "--help") {
            args.help = true;
            continue;
        }
        if (word.compare(0, 2, "--") != 0) throw CUsageError("unknown option '" + word + "'");
        const size_t equals = word.find('=');
        const std::string name = word.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
        const TOptionSpec* option = nullptr;
        for (const auto& s : specs)
            if (name == s.name) option = &s;
        if (!option) throw CUsageError("unknown option '--" + name + "'");
        std::string value;
        if (option->takesValue) {
            if (equals != std::string::npos) {
                value = word.substr(equals + 1);
            } else if (i + 1 < words.size()) {
                value = words[++i];
            } else {
                throw CUsageError("option '--" + name + "' needs a value");
            }
        } else if (equals != std::string::npos) {
            throw CUsageError("option '--" + name + "' takes no value");
        }
        args.options[name] = value;
    }
    return args;
}

}  // namespace catalogue
