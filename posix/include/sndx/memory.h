#pragma once
// Virtual memory, the process heap, global and local blocks.

#include "sndx/base.h"

#define PAGE_NOACCESS 0x01u
#define PAGE_READONLY 0x02u
#define PAGE_READWRITE 0x04u
#define PAGE_EXECUTE_READ 0x20u
#define PAGE_EXECUTE_READWRITE 0x40u
#define PAGE_GUARD 0x100u

#define MEM_COMMIT 0x00001000u
#define MEM_RESERVE 0x00002000u
#define MEM_RELEASE 0x00008000u
#define MEM_FREE 0x00010000u

#define HEAP_ZERO_MEMORY 0x00000008u

#define GMEM_FIXED 0x0000u
#define GMEM_MOVEABLE 0x0002u
#define GMEM_ZEROINIT 0x0040u
#define GHND 0x0042u

// Of the platform's fields those that somebody looks at.
struct MEMORY_BASIC_INFORMATION
{
    PVOID BaseAddress; // the page of the address asked for
    SIZE_T RegionSize; // bytes from BaseAddress on with the same properties
    DWORD State;       // MEM_COMMIT or MEM_FREE; reserved memory is committed and inaccessible here
    DWORD Protect;
};

#define PROCESS_HEAP_ENTRY_BUSY 0x0004

struct PROCESS_HEAP_ENTRY
{
    PVOID lpData; // null starts a walk
    DWORD cbData;
    WORD wFlags;
    DWORD64 left; // the layer's own: bytes still to be shown
};

extern "C"
{
    // The region that holds the address; the size of the structure, or 0 when the address is none of this
    // process or size is too small. Allocates nothing.
    SIZE_T WINAPI VirtualQuery(LPCVOID address, MEMORY_BASIC_INFORMATION* information, SIZE_T size);
    BOOL WINAPI VirtualProtect(LPVOID address, SIZE_T size, DWORD protection, PDWORD oldProtection);
    // Address is null; MEM_RESERVE, with or without MEM_COMMIT. Released as a whole.
    LPVOID WINAPI VirtualAlloc(LPVOID address, SIZE_T size, DWORD type, DWORD protection);
    BOOL WINAPI VirtualFree(LPVOID address, SIZE_T size, DWORD type);

    // alignment is a power of two. Released with _aligned_free only.
    void* _aligned_malloc(std::size_t size, std::size_t alignment);
    void _aligned_free(void* block);

    // The one heap there is; flags other than HEAP_ZERO_MEMORY have no effect.
    HANDLE WINAPI GetProcessHeap();
    LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size);
    BOOL WINAPI HeapFree(HANDLE heap, DWORD flags, LPVOID block);

    // For whoever counts what is in use of the runtime library's heap. The C library does not show its blocks
    // one by one; the walk yields the bytes in use as a few large entries. FALSE with ERROR_NO_MORE_ITEMS at
    // the end.
    std::intptr_t __cdecl _get_heap_handle();
    BOOL WINAPI HeapLock(HANDLE heap);
    BOOL WINAPI HeapUnlock(HANDLE heap);
    BOOL WINAPI HeapWalk(HANDLE heap, PROCESS_HEAP_ENTRY* entry);

    // A fixed block's handle is its address. A moveable one has to be locked for its address.
    HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T size);
    LPVOID WINAPI GlobalLock(HGLOBAL block);
    BOOL WINAPI GlobalUnlock(HGLOBAL block);
    // Null when the block is released, otherwise its handle.
    HGLOBAL WINAPI GlobalFree(HGLOBAL block);
    HLOCAL WINAPI LocalFree(HLOCAL block);

    // Stops in the debugger; without one the process ends (SIGTRAP).
    void WINAPI DebugBreak();
}
