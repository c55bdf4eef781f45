// Opening the ends of pipes, and the calls on them (see pipeend.h).

#include "posix/pipeend.h"

#include <fcntl.h>

#include "sndx/files.h"

using namespace sndxposix;

namespace sndxposix
{
namespace
{
constexpr DWORD fallbackTimeout = 50; // ms, for a server that names none

HANDLE Fail(DWORD error)
{
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
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
    if (!controlPath)
    {
        return INVALID_HANDLE_VALUE;
    }
    auto file =
        NamedFile::Enter(*controlPath, NamedKind::Pipe, NamedFile::Access::Attach, nullptr, nullptr, 0);
    if (!file)
    {
        return INVALID_HANDLE_VALUE;
    }
    auto control = std::make_unique<PipeControl>(std::move(file));
    std::shared_ptr<PipeEnd> end;
    {
        const Gate gate(control->Descriptor());
        if (!AllowsClient(control->ReadHeader().access, access))
        {
            return Fail(ERROR_ACCESS_DENIED);
        }
        const auto index = control->FindListening();
        if (!index)
        {
            return Fail(control->CountServers() > 0 ? ERROR_PIPE_BUSY : ERROR_FILE_NOT_FOUND);
        }
        // The lock first: killed in between, this client has never been there.
        SetByteLock(control->Descriptor(), ClientByte(*index), F_WRLCK);
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
} // namespace sndxposix

extern "C" HANDLE WINAPI CreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances,
                                          DWORD outSize, DWORD inSize, DWORD defaultTimeout,
                                          LPSECURITY_ATTRIBUTES)
{
    if (FailNextCall("CreateNamedPipeW"))
    {
        return INVALID_HANDLE_VALUE;
    }
    const DWORD access = openMode & PIPE_ACCESS_DUPLEX;
    if (access == 0 || maxInstances == 0 || maxInstances > PIPE_UNLIMITED_INSTANCES)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    // Messages and polling ends do not exist here.
    if (pipeMode != (PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT))
    {
        return Fail(ERROR_NOT_SUPPORTED);
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
        const Gate gate(control->Descriptor());
        const PipeHeader header = control->ReadHeader();
        if (existed && ((openMode & FILE_FLAG_FIRST_PIPE_INSTANCE) != 0 || header.access != access))
        {
            return Fail(ERROR_ACCESS_DENIED);
        }
        if (header.maxInstances != PIPE_UNLIMITED_INSTANCES && control->CountServers() >= header.maxInstances)
        {
            return Fail(ERROR_PIPE_BUSY);
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
    if (FailNextCall("ConnectNamedPipe"))
    {
        return FALSE;
    }
    const auto end = LookupHandleAs<PipeEnd>(pipe);
    return end ? end->Connect(overlapped) : FALSE;
}

extern "C" BOOL WINAPI DisconnectNamedPipe(HANDLE pipe)
{
    if (FailNextCall("DisconnectNamedPipe"))
    {
        return FALSE;
    }
    const auto end = LookupHandleAs<PipeEnd>(pipe);
    return end ? end->Disconnect() : FALSE;
}

extern "C" BOOL WINAPI WaitNamedPipeW(LPCWSTR name, DWORD milliseconds)
{
    if (FailNextCall("WaitNamedPipeW"))
    {
        return FALSE;
    }
    const auto path = PipePath(name);
    if (!path)
    {
        return FALSE;
    }
    const auto attach = [&path]
    { return NamedFile::Enter(*path, NamedKind::Pipe, NamedFile::Access::Attach, nullptr, nullptr, 0); };
    if (milliseconds == NMPWAIT_USE_DEFAULT_WAIT)
    {
        auto file = attach();
        if (!file)
        {
            return FALSE;
        }
        const PipeControl control(std::move(file));
        const Gate gate(control.Descriptor());
        milliseconds = control.ReadHeader().defaultTimeout;
    }
    bool exists = true;
    bool free = false;
    const bool ended = WaitUntil(
        [&]
        {
            // Anew each time: the last server may have gone, and another one have come.
            auto file = attach();
            exists = file != nullptr;
            if (exists)
            {
                const PipeControl control(std::move(file));
                const Gate gate(control.Descriptor());
                free = control.FindListening().has_value();
            }
            return !exists || free;
        },
        milliseconds, sharedStatePoll);
    if (!exists)
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    if (!ended)
    {
        SetLastError(ERROR_SEM_TIMEOUT);
        return FALSE;
    }
    return TRUE;
}

extern "C" BOOL WINAPI PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD size, LPDWORD read, LPDWORD available,
                                     LPDWORD left)
{
    if (FailNextCall("PeekNamedPipe"))
    {
        return FALSE;
    }
    const auto end = LookupHandleAs<PipeEnd>(pipe);
    DWORD count[2] = {0, 0};
    if (!end || !end->Peek(buffer, size, &count[0], &count[1]))
    {
        return FALSE;
    }
    const LPDWORD outputs[] = {read, available, left};
    const DWORD values[] = {count[0], count[1], 0};
    for (int i = 0; i < 3; ++i)
    {
        if (outputs[i] != nullptr)
        {
            *outputs[i] = values[i];
        }
    }
    return TRUE;
}
