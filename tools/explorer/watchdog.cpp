#include "tools/explorer/watchdog.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

namespace sndxtools
{
namespace
{
void Watch(const std::stop_token& stop, DWORD milliseconds, int exitCode)
{
    std::mutex lock;
    std::unique_lock guard(lock);
    std::condition_variable_any never;
    never.wait_for(guard, stop, std::chrono::milliseconds(milliseconds), [] { return false; });
    if (!stop.stop_requested())
    {
        std::fprintf(stderr, "explorer: not done after %lu ms\n", milliseconds);
        std::fflush(stderr);
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
    }
}
} // namespace

Watchdog::Watchdog(DWORD milliseconds, int exitCode) : thread_(&Watch, milliseconds, exitCode) {}
} // namespace sndxtools
