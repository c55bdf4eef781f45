#pragma once
// Blocking inside the layer: one routine that tries, sleeps and tries again; and events.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "posix/base/handles.h"
#include "sndx/sync.h"

namespace sndxposix
{
// How soon a waiter looks again at state that another process may change. Below a millisecond for the
// first few milliseconds of a wait, because a peer that is at work answers within microseconds.
inline constexpr std::chrono::milliseconds sharedStatePoll{1};

// Calls attempt until it returns true or the time has passed; it is called at least once. In between the
// thread sleeps until NotifyWaiters, but no longer than poll, and no longer than sharedStatePoll while an
// overlapped transfer of this process is pending. attempt runs without a lock of the waiting.
bool WaitUntil(const std::function<bool()>& attempt, DWORD milliseconds, std::chrono::milliseconds poll);
// Wakes every waiting thread of this process so that it tries its objects again.
void NotifyWaiters();

class EventObject : public KernelObject
{
  public:
    EventObject(bool manualReset, bool signalled) : manualReset_(manualReset), signalled_(signalled) {}
    bool IsWaitable() const override { return true; }
    std::optional<DWORD> TryWait() override
    {
        const bool satisfied = manualReset_ ? signalled_.load() : signalled_.exchange(false);
        return satisfied ? std::optional<DWORD>(WAIT_OBJECT_0) : std::nullopt;
    }
    void Set()
    {
        signalled_ = true;
        NotifyWaiters();
    }
    void Reset() { signalled_ = false; }

  private:
    const bool manualReset_;
    std::atomic<bool> signalled_;
};

// The event an OVERLAPPED names, or null. Leaves the last error alone.
std::shared_ptr<EventObject> FindEvent(HANDLE handle);
} // namespace sndxposix
