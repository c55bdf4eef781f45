#pragma once
// A waiter that asks for a stop at once and notes the time-outs that it was asked for.

#include <vector>

#include "win32/signalwaiter.h"

namespace sndxtest
{
class RecordingWaiter final : public LSignalWaiter
{
  public:
    using Times = std::vector<std::uint32_t>;
    bool IsStopRequested() override { return true; }
    LWaitResult Sleep(std::uint32_t milliseconds) override { return Note(milliseconds); }
    LWaitResult WaitSignal(HANDLE, std::uint32_t milliseconds) override { return Note(milliseconds); }
    LWaitResult WaitSignalObjectGroup(const LSignalObjectGroup&, std::uint32_t milliseconds) override
    {
        return Note(milliseconds);
    }
    Times asked;

  private:
    LWaitResult Note(std::uint32_t milliseconds)
    {
        asked.push_back(milliseconds);
        return LWaitResult::Stopped;
    }
};
} // namespace sndxtest
