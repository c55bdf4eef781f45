#pragma once
// The runtime library's heap, for whoever counts what is in use. The C library here does not show its blocks
// one by one; the walk yields the bytes in use as a few large entries.

#include "sndx/types.h"

#define PROCESS_HEAP_ENTRY_BUSY 0x0004

struct PROCESS_HEAP_ENTRY
{
    PVOID lpData; // null starts a walk
    DWORD cbData;
    BYTE cbOverhead;
    BYTE iRegionIndex;
    WORD wFlags;
    DWORD64 dwState[4]; // the layer's own: bytes still to be shown
};

extern "C"
{
    std::intptr_t __cdecl _get_heap_handle();
    BOOL WINAPI HeapLock(HANDLE heap);
    BOOL WINAPI HeapUnlock(HANDLE heap);
    // FALSE with ERROR_NO_MORE_ITEMS at the end.
    BOOL WINAPI HeapWalk(HANDLE heap, PROCESS_HEAP_ENTRY* entry);
}
