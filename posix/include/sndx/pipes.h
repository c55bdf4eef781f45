#pragma once
// Named pipes, both ends, in byte mode, and overlapped transfers. ReadFile, WriteFile, FlushFileBuffers and
// CreateFileW (the client's open) are declared in files.h. Names of pipes match in either case.

#include "sndx/base.h"

#define PIPE_ACCESS_INBOUND 0x00000001u
#define PIPE_ACCESS_OUTBOUND 0x00000002u
#define PIPE_ACCESS_DUPLEX 0x00000003u
#define PIPE_TYPE_BYTE 0x00000000u
#define PIPE_READMODE_BYTE 0x00000000u
#define PIPE_WAIT 0x00000000u
#define NMPWAIT_USE_DEFAULT_WAIT 0x00000000u

extern "C"
{
    // A server end of the pipe \\.\pipe\NAME. Buffer sizes are quotas in bytes: a write ends at once while
    // the unread bytes fit, and pends otherwise. defaultTimeout in milliseconds is what WaitNamedPipeW waits
    // when its caller leaves it to the server; 0 means 50. The first instance decides about all of this.
    HANDLE WINAPI CreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances,
                                   DWORD outSize, DWORD inSize, DWORD defaultTimeout,
                                   LPSECURITY_ATTRIBUTES security);
    BOOL WINAPI ConnectNamedPipe(HANDLE pipe, LPOVERLAPPED overlapped);
    // Unread bytes of both directions are lost.
    BOOL WINAPI DisconnectNamedPipe(HANDLE pipe);
    // Waits until an instance can be opened; it may be gone again when the caller opens.
    BOOL WINAPI WaitNamedPipeW(LPCWSTR name, DWORD milliseconds);
    // Tells the number of unread bytes, which may be null; the other outputs are null.
    BOOL WINAPI PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD size, LPDWORD read, LPDWORD available,
                              LPDWORD left);

    // Cancels what is pending on the handle, by whatever thread; what a cancelled write has not yet delivered
    // is withdrawn.
    BOOL WINAPI CancelIo(HANDLE file);
    BOOL WINAPI GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD bytes, BOOL wait);
}
