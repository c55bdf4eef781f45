// One end of a pipe connection: its slot, connect and disconnect, peek and flush (see pipeend.h).

#include "posix/pipes/pipeend.h"

#include <algorithm>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "posix/pipes/overlapped.h"

namespace sndxposix
{
PipeEnd::PipeEnd(Side side, std::unique_ptr<PipeControl> control, std::size_t slot, bool overlapped)
    : side_(side), control_(std::move(control)), slot_(slot), overlapped_(overlapped),
      header_(control_->ReadHeader())
{
    OpenFiles();
}

PipeEnd::~PipeEnd()
{
    {
        Visit visit(*this);
        PipeSlot& slot = visit.slot;
        CancelAll(slot, statusCancelled);
        if (side_ == Side::Server && slot.phase == PipePhase::Listening)
        {
            slot.phase = PipePhase::Disconnected;
        }
        LeaveSlot();
    }
    NotifyWaiters();
}

void PipeEnd::OpenFiles()
{
    for (const std::size_t direction : {toServer, toClient})
    {
        files_[direction] =
            Descriptor(open(control_->DataPath(slot_, direction).c_str(), O_RDWR | O_CLOEXEC));
    }
}

void PipeEnd::LeaveSlot()
{
    for (const std::size_t direction : {toServer, toClient})
    {
        files_[direction] = Descriptor();
        if (side_ == Side::Server)
        {
            unlink(control_->DataPath(slot_, direction).c_str()); // a client still has it open
        }
    }
    SetByteLock(control_->File(), side_ == Side::Server ? ServerByte(slot_) : ClientByte(slot_), F_UNLCK);
}

PipeEnd::State PipeEnd::Look(PipeSlot& slot) const
{
    if (slot.phase == PipePhase::Disconnected)
    {
        return State::Disconnected;
    }
    if (slot.phase == PipePhase::Listening)
    {
        return State::Listening;
    }
    if (side_ == Side::Server ? control_->IsClientAlive(slot_) : control_->IsServerAlive(slot_))
    {
        return State::Connected;
    }
    PipeFlow& flow = slot.flow[Incoming()];
    if (flow.pendingEnd != 0)
    {
        const bool complete = flow.pendingEnd <= flow.read + header_.quota[Incoming()];
        flow.written = std::max(flow.read, complete ? flow.pendingEnd : flow.pendingStart);
        flow.pendingStart = 0;
        flow.pendingEnd = 0;
    }
    return State::PeerGone;
}

BOOL PipeEnd::Connect(OVERLAPPED* overlapped)
{
    if (side_ == Side::Client)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    DWORD bytes = 0;
    return Start(Kind::Connect, nullptr, nullptr, 0, &bytes, overlapped);
}

BOOL PipeEnd::Flush()
{
    bool first = true;
    DWORD error = ERROR_SUCCESS;
    // Without bound, as on Windows: until the reader has taken everything, or one end has gone.
    WaitUntil(
        [&]
        {
            Visit visit(*this);
            PipeSlot& slot = visit.slot;
            const bool began = std::exchange(first, false);
            switch (Look(slot))
            {
            case State::Connected:
                return slot.flow[Outgoing()].read == slot.flow[Outgoing()].written;
            case State::Listening:
                return true;
            case State::PeerGone:
                // A flush that comes too late has nothing left to lose.
                error = began || slot.flow[Outgoing()].read == slot.flow[Outgoing()].written
                            ? ERROR_SUCCESS
                            : ERROR_BROKEN_PIPE;
                return true;
            default:
                error = began && side_ == Side::Server ? ERROR_SUCCESS : ERROR_PIPE_NOT_CONNECTED;
                return true;
            }
        },
        INFINITE, sharedStatePoll);
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

BOOL PipeEnd::Peek(DWORD& available) const
{
    Visit visit(*this);
    PipeSlot& slot = visit.slot;
    const State state = Look(slot);
    if (state == State::Listening || state == State::Disconnected)
    {
        const bool wasConnected = state == State::Disconnected && side_ == Side::Client;
        return FailWith(wasConnected ? ERROR_PIPE_NOT_CONNECTED : ERROR_BAD_PIPE);
    }
    const PipeFlow& flow = slot.flow[Incoming()];
    if (state == State::PeerGone && flow.read == flow.written)
    {
        return FailWith(ERROR_BROKEN_PIPE);
    }
    available = static_cast<DWORD>(flow.written - flow.read);
    return TRUE;
}

BOOL PipeEnd::Disconnect()
{
    if (side_ == Side::Client)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    {
        Visit visit(*this);
        PipeSlot& slot = visit.slot;
        if (slot.phase != PipePhase::Connected)
        {
            return FailWith(slot.phase == PipePhase::Listening ? ERROR_PIPE_LISTENING
                                                               : ERROR_PIPE_NOT_CONNECTED);
        }
        const auto next = control_->TakeSlot(PipePhase::Disconnected, slot_);
        if (!next)
        {
            return FALSE;
        }
        CancelAll(slot, statusPipeDisconnected);
        slot.phase = PipePhase::Disconnected;
        LeaveSlot();
        slot_ = *next;
        OpenFiles();
    }
    NotifyWaiters();
    return TRUE;
}
} // namespace sndxposix
