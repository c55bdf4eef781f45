// Waiting for objects, and events.

#include "posix/sync/waiting.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <vector>

#include <sched.h>

#include "posix/pipes/overlapped.h"
#include "posix/processes/messagequeue.h"

namespace sndxposix
{
namespace
{
using Clock = std::chrono::steady_clock;

// Never destroyed: modules wait in their static destructors, at the very end of the process.
struct Waiters
{
    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<std::uint64_t> generation = 0; // counts the calls of NotifyWaiters
};

Waiters& TheWaiters()
{
    static Waiters& waiters = *new Waiters;
    return waiters;
}

constexpr std::chrono::microseconds eagerPoll{100};
constexpr std::chrono::milliseconds eagerTime{5};

DWORD WaitForAny(DWORD count, const HANDLE* handles, DWORD milliseconds,
                 const std::function<bool()>& alsoEnds)
{
    std::vector<std::shared_ptr<KernelObject>> objects;
    std::chrono::milliseconds poll = std::chrono::hours(1);
    for (DWORD i = 0; i < count; ++i)
    {
        auto object = LookupHandle(handles[i]);
        if (!object || !object->IsWaitable())
        {
            return FailWith(ERROR_INVALID_HANDLE, WAIT_FAILED);
        }
        poll = std::min(poll, object->PollInterval());
        objects.push_back(std::move(object));
    }
    DWORD result = WAIT_TIMEOUT;
    WaitUntil(
        [&]
        {
            for (DWORD i = 0; i < count; ++i)
            {
                if (const auto satisfied = objects[i]->TryWait())
                {
                    result = *satisfied + i;
                    return true;
                }
            }
            if (alsoEnds && alsoEnds())
            {
                result = WAIT_OBJECT_0 + count;
                return true;
            }
            return false;
        },
        milliseconds, poll);
    return result;
}
} // namespace

void NotifyWaiters()
{
    Waiters& waiters = TheWaiters();
    {
        const std::lock_guard lock(waiters.mutex);
        ++waiters.generation;
    }
    waiters.changed.notify_all();
}

bool WaitUntil(const std::function<bool()>& attempt, DWORD milliseconds, std::chrono::milliseconds poll)
{
    Waiters& waiters = TheWaiters();
    const Clock::time_point start = Clock::now();
    for (;;)
    {
        // Read first: what changes after the attempt has looked must keep the thread from sleeping.
        const std::uint64_t seen = waiters.generation;
        const bool pending = PumpOverlapped();
        if (attempt())
        {
            return true;
        }
        const Clock::time_point now = Clock::now();
        if (milliseconds != INFINITE && now - start >= std::chrono::milliseconds(milliseconds))
        {
            return false;
        }
        Clock::duration sleep = pending ? std::min(poll, sharedStatePoll) : poll;
        if (sleep <= sharedStatePoll && now - start < eagerTime)
        {
            sleep = eagerPoll;
        }
        if (milliseconds != INFINITE)
        {
            sleep = std::min(sleep, start + std::chrono::milliseconds(milliseconds) - now);
        }
        std::unique_lock lock(waiters.mutex);
        waiters.changed.wait_until(lock, now + sleep, [&] { return waiters.generation != seen; });
    }
}

std::shared_ptr<EventObject> FindEvent(HANDLE handle)
{
    const DWORD lastError = GetLastError();
    auto event = handle == nullptr ? nullptr : std::dynamic_pointer_cast<EventObject>(LookupHandle(handle));
    SetLastError(lastError);
    return event;
}
extern "C" HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState,
                                      LPCWSTR name)
{
    if (name != nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER, nullptr);
    }
    const auto body = [&]
    { return InsertHandle(std::make_shared<EventObject>(manualReset != FALSE, initialState != FALSE)); };
    return Call("CreateEventW", HANDLE{}, body);
}

extern "C" BOOL WINAPI SetEvent(HANDLE event)
{
    const auto object = LookupHandleAs<EventObject>(event);
    if (object)
    {
        object->Set();
    }
    return object != nullptr;
}

extern "C" DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    return FailNextCall("WaitForSingleObject") ? WAIT_FAILED : WaitForAny(1, &handle, milliseconds, nullptr);
}

extern "C" DWORD WINAPI MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                                  DWORD milliseconds, DWORD)
{
    const auto messageHasCome = []
    {
        if (HasNewMessages())
        {
            return true;
        }
        AnnounceIdle();
        return false;
    };
    // The message queue takes one of the places.
    if (count >= MAXIMUM_WAIT_OBJECTS || (waitAll && count > 1))
    {
        return FailWith(ERROR_INVALID_PARAMETER, WAIT_FAILED);
    }
    return FailNextCall("MsgWaitForMultipleObjects")
               ? WAIT_FAILED
               : WaitForAny(count, handles, milliseconds, messageHasCome);
}

extern "C" void WINAPI Sleep(DWORD milliseconds)
{
    if (milliseconds == 0)
    {
        sched_yield(); // nothing but the rest of the time slice is given away
        return;
    }
    // Nothing ends it early; INFINITE sleeps for ever, as on Windows.
    WaitUntil([] { return false; }, milliseconds, std::chrono::hours(1));
}
} // namespace sndxposix
