#pragma once
// Tests only: a registry of the test's own. On POSIX the registry is the file
// that NGI_REGISTRY_FILE names (platform/registry.h): the object writes the
// text (UTF-8, `reg export` format) to a temporary file, points the variable
// at it, and puts the variable back when it goes. Set() rewrites the file.

#include <optional>
#include <string>
#include <string_view>

#include "testing/temp_dir.h"

namespace ngitest {

class CTempRegistry {
public:
    explicit CTempRegistry(std::string_view text = {});
    ~CTempRegistry();
    CTempRegistry(const CTempRegistry&) = delete;
    CTempRegistry& operator=(const CTempRegistry&) = delete;

    void Set(std::string_view text);

private:
    CTempDir m_Dir;
    std::optional<std::u16string> m_Previous;
    int m_Version = 0;
};

}  // namespace ngitest
