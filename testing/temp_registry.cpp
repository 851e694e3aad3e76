#include "testing/temp_registry.h"

#include "platform/process.h"
#include "platform/registry.h"

namespace ngitest {

namespace {
const std::u16string kVariable(platform::kRegistryFileVariable,
                               platform::kRegistryFileVariable +
                                   sizeof platform::kRegistryFileVariable - 1);
}

CTempRegistry::CTempRegistry(std::string_view text) {
    std::u16string previous;
    if (platform::GetEnvVar(kVariable, previous)) m_Previous = previous;
    Set(text);
}

CTempRegistry::~CTempRegistry() {
    if (m_Previous)
        platform::SetEnvVar(kVariable, *m_Previous);
    else
        platform::UnsetEnvVar(kVariable);
}

void CTempRegistry::Set(std::string_view text) {
    // A new file each time, so that no cache can mistake it for the last one.
    const std::string name = "registry" + std::to_string(++m_Version) + ".reg";
    m_Dir.WriteFile(name, "Windows Registry Editor Version 5.00\r\n\r\n" + std::string(text));
    platform::SetEnvVar(kVariable, m_Dir.Path(std::u16string(name.begin(), name.end())));
}

}  // namespace ngitest
