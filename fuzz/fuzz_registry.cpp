// Arbitrary bytes as the registry file (`reg export` text): the parse
// either fails with a description or yields keys that can be looked up.
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/posix/registry_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    platform::posix::CRegistryData registry;
    std::u16string problem;
    if (!registry.Parse(std::string_view(reinterpret_cast<const char*>(data), size), problem)) return 0;
    // HKEY_LOCAL_MACHINE and a path the program reads.
    for (std::u16string_view path : {u"", u"SYSTEM", u"SYSTEM\\VolumeTable\\Volumes", u"software\\norva"}) {
        if (const auto* key = registry.Find(0x80000002u, path)) {
            size_t bytes = 0;
            for (const auto& value : key->values) bytes += value.data.size() + value.name.size();
            for (const auto& [folded, child] : key->children) bytes += folded.size() + child.size();
            volatile size_t sink = bytes;
            (void)sink;
        }
    }
    return 0;
}
