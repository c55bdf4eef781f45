#include "win32/namedpipe.h"

#include "gen/debug.h"
#include "gen/stringtools.h"

LNamedPipe::LNamedPipe(const WCHAR* szName)
    : m_hPipe(INVALID_HANDLE_VALUE), m_Event(CreateEventW(nullptr, TRUE, FALSE, nullptr)), m_Overlapped{}
{
    static_assert(offsetof(LNamedPipe, m_Event) == 8 &&
                  offsetof(LNamedPipe, m_Overlapped) == 16); // contract.md M16
    m_Overlapped.hEvent = m_Event.Get();
    _Open(szName);
}

LNamedPipe::~LNamedPipe()
{
    Close();
}

bool LNamedPipe::Open(const WCHAR* szName)
{
    LDebugTrace("LNamedPipe::Open  ", szName);
    Close();
    _Open(szName);
    return m_hPipe != INVALID_HANDLE_VALUE;
}

void LNamedPipe::_Open(const WCHAR* szName)
{
    WCHAR szPath[LSTR];
    tsnprintf(szPath, LSTR, TEXT("\\\\.\\pipe\\%s"), szName); // contract.md N4
    for (;;)
    {
        m_hPipe = CreateFileW(szPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OVERLAPPED, nullptr);
        if (m_hPipe != INVALID_HANDLE_VALUE)
        {
            return;
        }
        const DWORD uError = GetLastError();
        if (uError != ERROR_PIPE_BUSY)
        {
            LDebugTraceSystemError("LNamedPipe::_Open CreateFile FAILED:", uError);
            LDebugTraceFunctionF("LNamedPipe::_Open", false, TEXT("Could not open \"%s\""), szName);
            return;
        }
        // Each wait is bounded by the time-out that the server set when it created the pipe. The number of
        // waits is not bounded: a free instance may be taken by another client again and again; see
        // contract.md D2.
        if (!WaitNamedPipeW(szPath, NMPWAIT_USE_DEFAULT_WAIT))
        {
            LDebugTraceFunction("LNamedPipe::_Open", true, "Pipe was busy");
            return;
        }
    }
}

bool LNamedPipe::IsOpen() const
{
    return m_hPipe != INVALID_HANDLE_VALUE && PeekNamedPipe(m_hPipe, nullptr, 0, nullptr, nullptr, nullptr);
}

void LNamedPipe::Close()
{
    if (m_hPipe != INVALID_HANDLE_VALUE)
    {
        // Blocks until the server has read everything: without it the last request could be lost. There is no
        // bound; a server that hangs with its pipe open holds the caller (contract.md D4).
        FlushFileBuffers(m_hPipe);
        CloseHandle(m_hPipe);
        m_hPipe = INVALID_HANDLE_VALUE;
    }
}

LWaitResult LNamedPipe::ProcessSendBytes(LSignalWaiter& waiter, LNamedPipe& pipe, const void* Buffer,
                                         std::uint32_t uBytes, std::uint32_t uTimeoutMs)
{
    // Without its event a write that stays pending could not be waited for, and the next one would use its
    // record.
    if (!pipe.m_Event.IsOpen())
    {
        return LWaitResult::TimedOut;
    }
    DWORD uWritten = 0;
    if (WriteFile(pipe.m_hPipe, Buffer, uBytes, &uWritten, &pipe.m_Overlapped))
    {
        return LWaitResult::Signalled;
    }
    if (GetLastError() != ERROR_IO_PENDING)
    {
        return LWaitResult::TimedOut;
    }
    const LWaitResult result = waiter.WaitSignal(pipe.m_Event.Get(), uTimeoutMs);
    // A waiter says "signalled" of a wait that failed, too: whether the write has ended is in the record.
    if (result != LWaitResult::Signalled ||
        (!GetOverlappedResult(pipe.m_hPipe, &pipe.m_Overlapped, &uWritten, FALSE) &&
         GetLastError() == ERROR_IO_INCOMPLETE))
    {
        CancelIo(pipe.m_hPipe);
        // Waits for the cancelled write to end, which the system does at once. Until then it may still fill
        // the record and read the buffer, and the next write would use both.
        GetOverlappedResult(pipe.m_hPipe, &pipe.m_Overlapped, &uWritten, TRUE);
    }
    return result;
}
