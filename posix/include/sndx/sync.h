#pragma once
// Locks of one process, events, mutexes, waiting, and memory shared between processes. Names of objects are
// case-sensitive; "Global\x" is another object than "x", "Local\x" is the same as "x". An object lives while
// some process has a handle to it, also when processes are killed.

#include <pthread.h>

#include "sndx/base.h"
#include "sndx/memory.h"

#define WAIT_OBJECT_0 0u
#define WAIT_ABANDONED 0x80u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64u
#define QS_ALLINPUT 0x04FFu

#define SYNCHRONIZE 0x00100000u

#define FILE_MAP_WRITE 0x0002u
#define FILE_MAP_READ 0x0004u
#define FILE_MAP_ALL_ACCESS 0x000F001Fu

#define CRITICAL_SECTION_NO_DEBUG_INFO 0x01000000u

// A recursive lock of one process. It owns no memory besides itself; DeleteCriticalSection ends its use.
struct CRITICAL_SECTION
{
    pthread_mutex_t mutex;
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;

extern "C"
{
    // Always TRUE. The spin count and the flags have no meaning here.
    BOOL WINAPI InitializeCriticalSectionEx(LPCRITICAL_SECTION section, DWORD spinCount, DWORD flags);
    void WINAPI EnterCriticalSection(LPCRITICAL_SECTION section);
    void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION section);
    void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION section);

    // Events have no names here.
    HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState,
                               LPCWSTR name);
    BOOL WINAPI SetEvent(HANDLE event);

    // Creates the mutex of the name, or opens the existing one (last error ERROR_ALREADY_EXISTS, no ownership
    // given). There are none without a name. The security attributes are not looked at. A mutex is owned by a
    // thread, which may own it several times over; it is abandoned when that thread or process ends.
    HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name);
    HANDLE WINAPI OpenMutexW(DWORD access, BOOL inherit, LPCWSTR name);
    BOOL WINAPI ReleaseMutex(HANDLE mutex);

    // Time-outs in milliseconds, INFINITE for none. Several objects: any of them, fewer than
    // MAXIMUM_WAIT_OBJECTS; nobody here waits for all of several.
    DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds);
    // Ends also, with WAIT_OBJECT_0 + count, when a message has come to the thread since it last looked.
    // Input other than posted messages does not exist here, so every mask means the same.
    DWORD WINAPI MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                           DWORD milliseconds, DWORD wakeMask);
    void WINAPI Sleep(DWORD milliseconds);

    // Memory with a name, backed by the paging file only: file is INVALID_HANDLE_VALUE and protection
    // PAGE_READWRITE. New memory is zero. An existing section keeps its size (last error
    // ERROR_ALREADY_EXISTS).
    HANDLE WINAPI CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protection,
                                     DWORD sizeHigh, DWORD sizeLow, LPCWSTR name);
    HANDLE WINAPI OpenFileMappingW(DWORD access, BOOL inherit, LPCWSTR name);
    // offset is 0; 0 bytes means the whole section. The view stays usable after the section's handle is
    // closed.
    LPVOID WINAPI MapViewOfFile(HANDLE section, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                                SIZE_T bytes);
    BOOL WINAPI UnmapViewOfFile(LPCVOID address);
}
