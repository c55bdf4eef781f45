// The runtime library's heap as one sum: the C library's own statistics, or the sanitizer's when it has
// replaced the allocator.

#include <malloc.h>

#include "posix/internal.h"
#include "sndx/heapwalk.h"

extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace
{
// Stands for the heap; never dereferenced.
std::intptr_t g_heapMark = 0;

std::uint64_t BytesInUse()
{
    if (__sanitizer_get_current_allocated_bytes != nullptr)
    {
        return __sanitizer_get_current_allocated_bytes();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

bool IsHeap(HANDLE heap)
{
    if (heap != &g_heapMark)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    return true;
}
} // namespace

extern "C" std::intptr_t __cdecl _get_heap_handle()
{
    return reinterpret_cast<std::intptr_t>(&g_heapMark);
}

// Nothing to lock: the statistics are consistent in themselves.
extern "C" BOOL WINAPI HeapLock(HANDLE heap)
{
    return !sndxposix::FailNextCall("HeapLock") && IsHeap(heap);
}

extern "C" BOOL WINAPI HeapUnlock(HANDLE heap)
{
    return IsHeap(heap);
}

extern "C" BOOL WINAPI HeapWalk(HANDLE heap, PROCESS_HEAP_ENTRY* entry)
{
    constexpr DWORD64 mostBytes = 0x80000000u; // of one entry; its size field has 32 bits
    if (sndxposix::FailNextCall("HeapWalk") || !IsHeap(heap))
    {
        return FALSE;
    }
    if (entry->lpData == nullptr)
    {
        entry->dwState[0] = BytesInUse();
    }
    if (entry->dwState[0] == 0)
    {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    entry->lpData = &g_heapMark;
    entry->cbData = static_cast<DWORD>(entry->dwState[0] < mostBytes ? entry->dwState[0] : mostBytes);
    entry->dwState[0] -= entry->cbData;
    entry->wFlags = PROCESS_HEAP_ENTRY_BUSY;
    return TRUE;
}
