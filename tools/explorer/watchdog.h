#pragma once
#include <condition_variable>
#include <mutex>
#include <thread>

#include <windows.h>

namespace sndxtools
{
// Ends the process with the exit code when this object lives longer than it should. It takes a thread of its
// own: whatever holds up the window's thread would hold up a timer of it as well.
class Watchdog
{
  public:
    Watchdog(DWORD milliseconds, int exitCode);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

  private:
    void Watch(DWORD milliseconds, int exitCode);

    std::mutex lock_;
    std::condition_variable changed_;
    bool done_ = false;
    std::thread thread_;
};
} // namespace sndxtools
