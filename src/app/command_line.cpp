#include "app/command_line.h"

#include <algorithm>

#include "base/case.h"
#include "base/exc.h"

namespace indexer {

CCommandLine::CCommandLine(const std::vector<std::u16string>& args,
                           const std::set<std::u16string>& valueOptions) {
    std::u16string pendingKey;
    bool expectValue = false;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::u16string& arg = args[i];
        const bool isOption = !arg.empty() && arg[0] == u'-';
        if (expectValue) {
            if (isOption) throw CExc(u"No value for key: [%1].", pendingKey);
            if (!m_Values.emplace(pendingKey, arg).second)
                throw CExc(u"Command line already has key: [%1].", pendingKey);
            expectValue = false;
        } else if (isOption) {
            std::u16string name = util::AsciiLower(std::u16string_view(arg).substr(1));
            if (valueOptions.count(name)) {
                pendingKey = std::move(name);
                expectValue = true;
            } else {
                if (std::find(m_Flags.begin(), m_Flags.end(), name) != m_Flags.end())
                    throw CExc(u"Command line already has flag: [%1].", name);
                m_Flags.push_back(std::move(name));
            }
        } else {
            m_Arguments.push_back(arg);
        }
    }
    // A value option at the end has no value and is dropped.
}

bool CCommandLine::IsEmpty() const {
    return m_Arguments.empty() && m_Flags.empty() && m_Values.empty();
}

std::u16string CCommandLine::GetKeyValue(std::u16string_view name) {
    auto it = m_Values.find(name);
    if (it == m_Values.end()) return {};
    std::u16string value = std::move(it->second);
    m_Values.erase(it);
    return value;
}

std::u16string CCommandLine::GetNextArgument() {
    if (m_Arguments.empty()) throw CExc(u"Command line error: Additional argument expected.");
    return GetNextArgumentOrEmpty();
}

std::u16string CCommandLine::GetNextArgumentOrEmpty() {
    if (m_Arguments.empty()) return {};
    std::u16string first = std::move(m_Arguments.front());
    m_Arguments.erase(m_Arguments.begin());
    return first;
}

void CCommandLine::CheckEmpty() const {
    if (!IsEmpty()) throw CExc(u"Unexpected parameters in the command line.");
}

}  // namespace indexer
