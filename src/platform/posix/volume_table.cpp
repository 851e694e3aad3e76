#include "platform/posix/volume_table.h"

namespace platform::posix {

// Placeholder until the volume table lands: no Windows volume is known.
std::optional<std::string> ResolveVolumePath(std::u16string_view) { return std::nullopt; }

}  // namespace platform::posix
