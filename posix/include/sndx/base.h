#pragma once
// What every other family of the Windows interfaces rests on: handles, the clock, the thread's identity,
// the debugger's output, and the structures that several families take.

#include "sndx/types.h"

struct SECURITY_ATTRIBUTES
{
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

// One asynchronous transfer. Internal is the NT status of its end (STATUS_PENDING before), InternalHigh
// the bytes moved.
struct OVERLAPPED
{
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    PVOID Pointer; // not looked at: no transfer of a file is overlapped
    HANDLE hEvent;
};
using LPOVERLAPPED = OVERLAPPED*;

extern "C"
{
    // FALSE with ERROR_INVALID_HANDLE for a handle that is not open.
    BOOL WINAPI CloseHandle(HANDLE handle);

    // Milliseconds since the system's start, modulo 2^32.
    DWORD WINAPI GetTickCount();
    DWORD WINAPI GetCurrentThreadId();

    // Null counts as an empty text.
    void WINAPI OutputDebugStringA(LPCSTR text);
}
