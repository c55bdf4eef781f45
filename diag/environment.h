#pragma once
// Probes of the system that the process runs on, for the diagnostic header.

#include "gen/types.h"

// Decided at the first call, fixed for the life of the process.
bool LIsRunningUnderWine();

// Writes Wine's version; nothing when the process does not run under Wine.
void LDebugTraceWineVersion();

// True when the system is at or above the version, as far as it tells this process. Wine of any setting is
// below 6.0.
bool LIsWindowsVersionOrGreater(std::uint32_t uMajor, std::uint32_t uMinor);

// The release identifier of Windows 10 and later, such as 1809; 0 when there is none.
std::int32_t LGetWindowsReleaseNumber();

// Bytes of physical memory; 4294967295 when the system does not say.
std::uint64_t LGetTotalPhysicalMemory();

// Bytes in the live blocks of the runtime library's heap: what malloc has handed out in this process, to
// every module that uses the same runtime, the runtime's own blocks included. In a host with a large heap it
// is a lower bound: the walk ends after 65536 entries of the heap, used or free, or 20 ms, and counts what it
// has seen.
std::uint64_t LGetRuntimeHeapSize();
