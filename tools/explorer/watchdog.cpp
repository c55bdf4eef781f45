#include "tools/explorer/watchdog.h"

#include <chrono>
#include <cstdio>

namespace sndxtools
{
Watchdog::Watchdog(DWORD milliseconds, int exitCode)
    : thread_([this, milliseconds, exitCode] { Watch(milliseconds, exitCode); })
{
}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard guard(lock_);
        done_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Watchdog::Watch(DWORD milliseconds, int exitCode)
{
    std::unique_lock guard(lock_);
    if (!changed_.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return done_; }))
    {
        std::fprintf(stderr, "explorer: not done after %lu ms\n", milliseconds);
        std::fflush(stderr);
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
    }
}
} // namespace sndxtools
