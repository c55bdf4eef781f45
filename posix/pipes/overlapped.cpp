// Results of overlapped transfers, and the looking after them.

#include "posix/pipes/overlapped.h"

#include <atomic>
#include <vector>

#include "posix/pipes/pipeend.h"

namespace sndxposix
{
namespace
{
// Under PipeMutex. Never destroyed: modules close pipes in their static destructors.
std::vector<std::weak_ptr<PipeEnd>>& Watched()
{
    static auto& watched = *new std::vector<std::weak_ptr<PipeEnd>>;
    return watched;
}

// Spares the waits of programs without pending transfers the lock.
std::atomic<bool> anythingWatched{false};

// A copy, because the transfer may be completed by another thread meanwhile.
OVERLAPPED ReadUnderLock(const OVERLAPPED* overlapped)
{
    const std::lock_guard lock(PipeMutex());
    return *overlapped;
}
} // namespace

DWORD ErrorFromStatus(ULONG_PTR status)
{
    return status == statusSuccess            ? ERROR_SUCCESS
           : status == statusPending          ? ERROR_IO_INCOMPLETE
           : status == statusPipeDisconnected ? ERROR_PIPE_NOT_CONNECTED
           : status == statusCancelled        ? ERROR_OPERATION_ABORTED
                                              : ERROR_BROKEN_PIPE;
}

void WatchTransfers(const std::shared_ptr<PipeEnd>& end)
{
    for (const auto& watched : Watched())
    {
        if (!watched.owner_before(end) && !end.owner_before(watched))
        {
            return;
        }
    }
    Watched().push_back(end);
    anythingWatched = true;
}

bool PumpOverlapped()
{
    if (!anythingWatched)
    {
        return false;
    }
    // Let go of after the lock: the last owner of an end destroys it, which takes the lock.
    std::vector<std::shared_ptr<PipeEnd>> ends;
    const std::lock_guard lock(PipeMutex());
    std::vector<std::weak_ptr<PipeEnd>> stillPending;
    for (const auto& watched : Watched())
    {
        if (auto end = watched.lock())
        {
            if (end->Progress())
            {
                stillPending.push_back(end);
            }
            ends.push_back(std::move(end));
        }
    }
    Watched().swap(stillPending);
    anythingWatched = !Watched().empty();
    return anythingWatched;
}
extern "C" BOOL WINAPI GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD bytes, BOOL wait)
{
    if (!LookupHandleFor<StreamObject>("GetOverlappedResult", file, {bytes}))
    {
        return FALSE;
    }
    const auto event = FindEvent(ReadUnderLock(overlapped).hEvent);
    const bool ended = WaitUntil(
        [&]
        {
            if (ReadUnderLock(overlapped).Internal == statusPending)
            {
                return false;
            }
            if (wait && event)
            {
                event->TryWait(); // takes the signal of an event that resets itself, as a wait does
            }
            return true;
        },
        wait ? INFINITE : 0, std::chrono::hours(1));
    if (!ended)
    {
        return FailWith(ERROR_IO_INCOMPLETE);
    }
    const OVERLAPPED result = ReadUnderLock(overlapped);
    *bytes = static_cast<DWORD>(result.InternalHigh);
    const DWORD error = ErrorFromStatus(result.Internal);
    SetLastError(error);
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

extern "C" BOOL WINAPI CancelIo(HANDLE file)
{
    const auto end = LookupHandleFor<PipeEnd>("CancelIo", file);
    if (end)
    {
        end->Cancel();
    }
    return end != nullptr;
}
} // namespace sndxposix
