// Opening the ends of pipes, and the calls on them (see pipeend.h).

#include <fcntl.h>

#include "posix/pipes/pipeend.h"
#include "sndx/files.h"

namespace sndxposix
{
namespace
{
constexpr DWORD fallbackTimeout = 50; // ms, for a server that names none

std::unique_ptr<NamedFile> Attach(const std::string& path)
{
    return NamedFile::Enter(path, NamedKind::Pipe, NamedFile::Access::Attach, nullptr, nullptr, 0);
}

// access: GENERIC_READ and GENERIC_WRITE of the client. A client reads what the server sends out.
bool AllowsClient(DWORD pipeAccess, DWORD access)
{
    return ((access & GENERIC_READ) == 0 || (pipeAccess & PIPE_ACCESS_OUTBOUND) != 0) &&
           ((access & GENERIC_WRITE) == 0 || (pipeAccess & PIPE_ACCESS_INBOUND) != 0);
}
} // namespace

HANDLE OpenPipeClient(const WCHAR* path, DWORD access, DWORD flags)
{
    const auto controlPath = PipePath(path);
    auto file = controlPath ? Attach(*controlPath) : nullptr;
    if (!file)
    {
        return INVALID_HANDLE_VALUE;
    }
    auto control = std::make_unique<PipeControl>(std::move(file));
    std::shared_ptr<PipeEnd> end;
    {
        const Gate gate(control->File());
        if (!AllowsClient(control->ReadHeader().access, access))
        {
            return FailWith(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        }
        const auto index = control->FindListening();
        if (!index)
        {
            return FailWith(control->CountServers() > 0 ? ERROR_PIPE_BUSY : ERROR_FILE_NOT_FOUND,
                            INVALID_HANDLE_VALUE);
        }
        // The lock first: killed in between, this client has never been there.
        SetByteLock(control->File(), ClientByte(*index), F_WRLCK);
        PipeSlot slot = control->ReadSlot(*index);
        slot.phase = PipePhase::Connected;
        control->WriteSlot(*index, slot);
        end = std::make_shared<PipeEnd>(PipeEnd::Side::Client, std::move(control), *index,
                                        (flags & FILE_FLAG_OVERLAPPED) != 0);
    }
    NotifyWaiters(); // the server may be in this process
    SetLastError(ERROR_SUCCESS);
    return InsertHandle(end);
}

extern "C" HANDLE WINAPI CreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances,
                                          DWORD outSize, DWORD inSize, DWORD defaultTimeout,
                                          LPSECURITY_ATTRIBUTES)
{
    const DWORD access = openMode & PIPE_ACCESS_DUPLEX;
    if (access == 0 || maxInstances == 0)
    {
        return FailWith(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    }
    // Messages and polling ends do not exist here.
    if (pipeMode != (PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT))
    {
        return FailWith(ERROR_NOT_SUPPORTED, INVALID_HANDLE_VALUE);
    }
    const auto path = PipePath(name);
    if (!path)
    {
        return INVALID_HANDLE_VALUE;
    }
    const PipeHeader wanted{
        access, maxInstances, defaultTimeout == 0 ? fallbackTimeout : defaultTimeout, {inSize, outSize}, 0};
    bool existed = false;
    auto file =
        NamedFile::Enter(*path, NamedKind::Pipe, NamedFile::Access::Create, &existed, &wanted, sizeof wanted);
    if (!file)
    {
        return INVALID_HANDLE_VALUE;
    }
    auto control = std::make_unique<PipeControl>(std::move(file));
    std::shared_ptr<PipeEnd> end;
    {
        const Gate gate(control->File());
        const PipeHeader header = control->ReadHeader();
        if (existed && header.access != access)
        {
            return FailWith(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        }
        if (control->CountServers() >= header.maxInstances)
        {
            return FailWith(ERROR_PIPE_BUSY, INVALID_HANDLE_VALUE);
        }
        const auto index = control->TakeSlot(PipePhase::Listening, std::nullopt);
        if (!index)
        {
            return INVALID_HANDLE_VALUE;
        }
        end = std::make_shared<PipeEnd>(PipeEnd::Side::Server, std::move(control), *index,
                                        (openMode & FILE_FLAG_OVERLAPPED) != 0);
    }
    SetLastError(ERROR_SUCCESS);
    return InsertHandle(end);
}

extern "C" BOOL WINAPI ConnectNamedPipe(HANDLE pipe, LPOVERLAPPED overlapped)
{
    const auto end = LookupHandleAs<PipeEnd>(pipe);
    return end ? end->Connect(overlapped) : FALSE;
}

extern "C" BOOL WINAPI DisconnectNamedPipe(HANDLE pipe)
{
    const auto end = LookupHandleAs<PipeEnd>(pipe);
    return end ? end->Disconnect() : FALSE;
}

extern "C" BOOL WINAPI WaitNamedPipeW(LPCWSTR name, DWORD milliseconds)
{
    const auto path = FailNextCall("WaitNamedPipeW") ? std::nullopt : PipePath(name);
    auto first = path ? Attach(*path) : nullptr;
    if (!first)
    {
        return FALSE;
    }
    if (milliseconds == NMPWAIT_USE_DEFAULT_WAIT)
    {
        const PipeControl control(std::move(first));
        const Gate gate(control.File());
        milliseconds = control.ReadHeader().defaultTimeout;
    }
    bool exists = true;
    const auto isFreeOrGone = [&]
    {
        // Anew each time: the last server may have gone, and another one have come.
        auto file = Attach(*path);
        exists = file != nullptr;
        if (!exists)
        {
            return true;
        }
        const PipeControl control(std::move(file));
        const Gate gate(control.File());
        return control.FindListening().has_value();
    };
    const bool ended = WaitUntil(isFreeOrGone, milliseconds, sharedStatePoll);
    return (ended && exists) || FailWith(exists ? ERROR_SEM_TIMEOUT : ERROR_FILE_NOT_FOUND);
}

extern "C" BOOL WINAPI PeekNamedPipe(HANDLE pipe, LPVOID, DWORD, LPDWORD, LPDWORD available, LPDWORD)
{
    const auto end = LookupHandleFor<PipeEnd>("PeekNamedPipe", pipe);
    DWORD count = 0;
    return end && end->Peek(available == nullptr ? count : *available);
}
} // namespace sndxposix
