#pragma once
// Ends the process when something hangs, and says what.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/timing.h"

namespace sndxtest
{
class Watchdog
{
  public:
    // what() says what is going on; it is called on another thread.
    Watchdog(long long milliseconds, std::function<std::string()> what)
        : thread_(
              [this, milliseconds, what = std::move(what)](const std::stop_token& stop)
              {
                  while (!stop.stop_requested())
                  {
                      std::this_thread::sleep_for(std::chrono::milliseconds(20));
                      if (milliseconds < Now() - since_)
                      {
                          std::fprintf(stderr, "hangs for %lld ms: %s\n", milliseconds, what().c_str());
                          std::abort();
                      }
                  }
              })
    {
    }
    // Something has ended, and something else begins.
    void Restart() { since_ = Now(); }

  private:
    long long Now() const { return stopwatch_.Milliseconds(); }

    const Stopwatch stopwatch_;
    std::atomic<long long> since_ = 0;
    const std::jthread thread_;
};
} // namespace sndxtest
