#pragma once
// Tests only: the kind of build the tests run in, for the few tests whose
// size or method depends on it.

namespace ngitest {

// True in the build with AddressSanitizer and UndefinedBehaviorSanitizer
// (NGI_SANITIZE=ON, which defines NGI_SANITIZED_BUILD for the test helpers
// and every test program): several times slower, and unable to start under
// an address-space limit (ulimit -v), as the sanitizer reserves terabytes.
#ifdef NGI_SANITIZED_BUILD
inline constexpr bool kSanitizedBuild = true;
#else
inline constexpr bool kSanitizedBuild = false;
#endif

}  // namespace ngitest
