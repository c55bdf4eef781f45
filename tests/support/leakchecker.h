#pragma once
// A sanitizer's leak checker reads all blocks that are left at the end of the process and dies of the first
// inaccessible page. A process that leaves such pages on purpose switches it off for itself.

namespace sndxtest
{
// Also for tests that would take too long, or look at what only goes wrong without a sanitizer.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

inline bool leakCheckerIsOff = false;
} // namespace sndxtest

#ifdef __SANITIZE_ADDRESS__
extern "C" inline __attribute__((used)) int __lsan_is_turned_off()
{
    return sndxtest::leakCheckerIsOff ? 1 : 0;
}
#endif
