// The transfers of a pipe end: how they start, go on, end and are cancelled (see pipeend.h).

#include <algorithm>

#include <unistd.h>

#include "posix/pipes/overlapped.h"
#include "posix/pipes/pipeend.h"

namespace sndxposix
{
DWORD PipeEnd::TakeBytes(PipeSlot& slot, void* buffer, DWORD size)
{
    PipeFlow& flow = slot.flow[Incoming()];
    const int file = files_[Incoming()].Get();
    const auto count = static_cast<DWORD>(std::min<std::uint64_t>(size, flow.written - flow.read));
    if (!ReadAt(file, buffer, count, static_cast<off_t>(flow.read - flow.base)))
    {
        return count;
    }
    flow.read += count;
    if (flow.read == flow.written)
    {
        flow.base = flow.read;
        [[maybe_unused]] const int ignored = ftruncate(file, 0); // the bytes are only in nobody's way
    }
    return count;
}

bool PipeEnd::Advance(Transfer& transfer, PipeSlot& slot, State state)
{
    ULONG_PTR status = statusPending;
    DWORD bytes = 0;
    if (state == State::Disconnected)
    {
        status = statusPipeDisconnected;
    }
    else if (transfer.kind == Kind::Connect)
    {
        status = state == State::Listening ? statusPending : statusSuccess;
    }
    else if (transfer.kind == Kind::Write)
    {
        const bool fits = transfer.end <= slot.flow[Outgoing()].read + header_.quota[Outgoing()];
        // Nothing to deliver, nothing to wait for.
        if (fits || transfer.size == 0)
        {
            status = statusSuccess;
            bytes = transfer.size;
        }
        else if (state == State::PeerGone)
        {
            status = statusPipeBroken;
        }
    }
    else if (slot.flow[Incoming()].written > slot.flow[Incoming()].read || transfer.size == 0)
    {
        status = statusSuccess;
        bytes = TakeBytes(slot, transfer.buffer, transfer.size);
    }
    else if (state == State::PeerGone)
    {
        status = statusPipeBroken;
    }
    if (status == statusPending)
    {
        return false;
    }
    Finish(transfer, status, bytes);
    return true;
}

void PipeEnd::Finish(const Transfer& transfer, ULONG_PTR status, DWORD bytes)
{
    transfer.overlapped->InternalHigh = bytes;
    transfer.overlapped->Internal = status;
    if (transfer.event)
    {
        transfer.event->Set();
    }
}

void PipeEnd::ProgressInside(PipeSlot& slot)
{
    const State state = Look(slot);
    const std::uint64_t readBefore = slot.flow[Incoming()].read;
    transfers_.remove_if([&](Transfer& transfer) { return Advance(transfer, slot, state); });
    Note(slot);
    if (slot.flow[Incoming()].read != readBefore)
    {
        NotifyWaiters(); // the other end may be in this process
    }
}

void PipeEnd::Note(PipeSlot& slot) const
{
    PipeFlow& flow = slot.flow[Outgoing()];
    const auto first = std::find_if(transfers_.begin(), transfers_.end(),
                                    [](const Transfer& transfer) { return transfer.kind == Kind::Write; });
    flow.pendingStart = first == transfers_.end() ? 0 : first->start;
    flow.pendingEnd = first == transfers_.end() ? 0 : first->end;
}

bool PipeEnd::Progress()
{
    if (transfers_.empty())
    {
        return false;
    }
    const Gate gate(control_->File());
    PipeSlot slot = control_->ReadSlot(slot_);
    ProgressInside(slot);
    control_->WriteSlot(slot_, slot);
    return !transfers_.empty();
}

BOOL PipeEnd::Start(Kind kind, void* buffer, const void* source, DWORD size, DWORD* bytes,
                    OVERLAPPED* overlapped)
{
    if (overlapped_ && overlapped == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    OVERLAPPED own{};
    OVERLAPPED& result = overlapped_ ? *overlapped : own;
    {
        Visit visit(*this);
        PipeSlot& slot = visit.slot;
        const State state = Look(slot);
        if (const DWORD error = Refusal(kind, state))
        {
            return FailWith(error);
        }
        Transfer transfer{kind, &result, FindEvent(result.hEvent), buffer, size, 0, 0};
        PipeFlow& flow = slot.flow[Outgoing()];
        if (kind == Kind::Write)
        {
            if (!WriteAt(files_[Outgoing()].Get(), source, size,
                         static_cast<off_t>(flow.written - flow.base)))
            {
                return FailWithErrno();
            }
            transfer.start = flow.written;
            flow.written += size;
            transfer.end = flow.written;
        }
        if (kind == Kind::Connect)
        {
            slot.phase = PipePhase::Listening;
        }
        result.Internal = statusPending;
        result.InternalHigh = 0;
        if (transfer.event)
        {
            transfer.event->Reset();
        }
        transfers_.push_back(std::move(transfer));
        ProgressInside(slot);
        if (overlapped_ && result.Internal == statusPending)
        {
            WatchTransfers(shared_from_this());
            *bytes = 0;
            NotifyWaiters();
            return FailWith(ERROR_IO_PENDING);
        }
    }
    NotifyWaiters(); // the other end may be in this process
    if (!overlapped_)
    {
        // Without bound: the peer's reading, writing, closing or dying ends it.
        WaitUntil(
            [&]
            {
                const std::lock_guard lock(PipeMutex());
                Progress();
                return result.Internal != statusPending;
            },
            INFINITE, sharedStatePoll);
    }
    *bytes = static_cast<DWORD>(result.InternalHigh);
    if (overlapped != nullptr && overlapped != &result)
    {
        overlapped->Internal = result.Internal;
        overlapped->InternalHigh = result.InternalHigh;
    }
    const DWORD error = ErrorFromStatus(result.Internal);
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

DWORD PipeEnd::Refusal(Kind kind, State state) const
{
    if (kind == Kind::Connect)
    {
        return state == State::Connected  ? ERROR_PIPE_CONNECTED
               : state == State::PeerGone ? ERROR_NO_DATA
                                          : ERROR_SUCCESS;
    }
    const std::size_t direction = kind == Kind::Read ? Incoming() : Outgoing();
    if ((header_.access & (direction + 1)) == 0)
    {
        return ERROR_ACCESS_DENIED;
    }
    return state == State::Disconnected                      ? ERROR_PIPE_NOT_CONNECTED
           : state == State::Listening                       ? ERROR_PIPE_LISTENING
           : state == State::PeerGone && kind == Kind::Write ? ERROR_NO_DATA
                                                             : ERROR_SUCCESS;
}

BOOL PipeEnd::Read(void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped)
{
    return Start(Kind::Read, buffer, nullptr, size, bytes, overlapped);
}

BOOL PipeEnd::Write(const void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped)
{
    return Start(Kind::Write, nullptr, buffer, size, bytes, overlapped);
}

void PipeEnd::Cancel()
{
    Visit visit(*this);
    PipeSlot& slot = visit.slot;
    // What has ended by itself meanwhile keeps its result.
    ProgressInside(slot);
    CancelAll(slot, statusCancelled);
}

void PipeEnd::CancelAll(PipeSlot& slot, ULONG_PTR status)
{
    PipeFlow& flow = slot.flow[Outgoing()];
    for (const Transfer& transfer : transfers_)
    {
        // The first pending write cuts off the later ones, too; what has been read cannot be withdrawn.
        if (transfer.kind == Kind::Write)
        {
            flow.written = std::max(flow.read, std::min(flow.written, transfer.start));
        }
        Finish(transfer, status, 0);
    }
    transfers_.clear();
    Note(slot);
}
} // namespace sndxposix
