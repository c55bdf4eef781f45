#pragma once
// A sanitizer's leak checker reads all blocks that are left at the end of the process and dies of the first
// inaccessible page. A process that leaves such pages on purpose switches it off for itself.

namespace sndxtest
{
inline bool leakCheckerIsOff = false;
} // namespace sndxtest

#ifdef __SANITIZE_ADDRESS__
extern "C" inline __attribute__((used)) int __lsan_is_turned_off()
{
    return sndxtest::leakCheckerIsOff ? 1 : 0;
}
#endif
