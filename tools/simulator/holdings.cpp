#include "tools/simulator/holdings.h"

#include <algorithm>
#include <iterator>

#include <windows.h>

#ifdef _WIN32
#include <psapi.h>
#else
#include <fstream>

#include <unistd.h>
#endif

namespace sndxtools::simulator
{
namespace
{
std::int64_t KilobytesInMemory()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 0; // a sanitizer keeps what was freed, and much of its own: no growth could be told from that
#elif defined(_WIN32)
    PROCESS_MEMORY_COUNTERS counters = {};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<std::int64_t>(counters.WorkingSetSize / 1024);
#else
    std::int64_t all = 0;
    std::int64_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
#endif
}
} // namespace

Holdings Holdings::Now()
{
    // New handles first get the values of closed ones, then the next higher ones. The highest of so many that
    // no closed ones are left tells how many are open; Wine has no call that does.
    HANDLE handles[64];
    std::generate(std::begin(handles), std::end(handles),
                  [] { return CreateEventW(nullptr, TRUE, FALSE, nullptr); });
    std::for_each(std::begin(handles), std::end(handles), [](HANDLE handle) { CloseHandle(handle); });
    const auto highest =
        reinterpret_cast<std::uintptr_t>(*std::max_element(std::begin(handles), std::end(handles)));
    return {static_cast<std::int64_t>(highest / 4) - 64, KilobytesInMemory()};
}
} // namespace sndxtools::simulator
