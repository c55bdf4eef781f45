#pragma once
// How a blocking operation waits: for a handle, a group of handles or a time, with a stop request as a third
// outcome. The module's own callers use the plain waiter, which never stops.

#include "gen/types.h"

enum class LWaitResult : std::int32_t
{
    Signalled = 0, // the handle was signalled, or the sleep ended
    Stopped = 1,   // a stop was requested
    TimedOut = 2   // also: the wait or the operation failed
};
static_assert(sizeof(LWaitResult) == 4); // contract.md M17

constexpr std::size_t LSIGNALOBJECTGROUPMAX = 64;

struct LSignalObjectGroup
{
    HANDLE hObjects[LSIGNALOBJECTGROUPMAX]; // not owned
    std::uint32_t idxSOArray;               // number of handles
};
// contract.md M17
static_assert(sizeof(LSignalObjectGroup) == 520 && offsetof(LSignalObjectGroup, idxSOArray) == 512);

// The order of its table: contract.md M18.
class LSignalWaiter
{
  public:
    virtual bool IsStopRequested() = 0;
    virtual LWaitResult Sleep(std::uint32_t uMilliseconds) = 0;
    virtual LWaitResult WaitSignal(HANDLE hObject, std::uint32_t uMilliseconds) = 0;
    virtual LWaitResult WaitSignalObjectGroup(const LSignalObjectGroup& group,
                                              std::uint32_t uMilliseconds) = 0;

    // The same without a time-out.
    virtual void SleepForever() { Sleep(INFINITE); }
    virtual LWaitResult WaitSignal(HANDLE hObject) { return WaitSignal(hObject, INFINITE); }
    virtual LWaitResult WaitSignalObjectGroup(const LSignalObjectGroup& group)
    {
        return WaitSignalObjectGroup(group, INFINITE);
    }

    // Notifications to whoever watches the operation. A waiter without an audience ignores them.
    virtual void OnBegin(void*) {}
    virtual void OnItem(void*, std::uint32_t) {}
    virtual void OnProgress(double /* done part of the total */) {}
    virtual void OnPause() {}
    virtual void OnResume() {}
    virtual void OnEnd() {}

  protected:
    ~LSignalWaiter() = default;
};

class LSimpleSignalWaiter final : public LSignalWaiter
{
  public:
    using LSignalWaiter::WaitSignal;
    using LSignalWaiter::WaitSignalObjectGroup;

    bool IsStopRequested() override { return false; }
    LWaitResult Sleep(std::uint32_t uMilliseconds) override;
    LWaitResult WaitSignal(HANDLE hObject, std::uint32_t uMilliseconds) override;
    // Input in the thread's message queue ends the wait, too, as TimedOut.
    LWaitResult WaitSignalObjectGroup(const LSignalObjectGroup& group, std::uint32_t uMilliseconds) override;
};
