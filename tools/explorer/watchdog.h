#pragma once
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

  private:
    std::jthread thread_; // asked to stop, and waited for, at destruction
};
} // namespace sndxtools
