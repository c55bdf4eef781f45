// The process heap, aligned blocks, and the walk over the heap, which shows one sum: the C library's own
// statistics, or the sanitizer's when it has replaced the allocator.

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include <malloc.h>

#include "posix/base/call.h"
#include "sndx/memory.h"

extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace sndxposix
{
namespace
{
// The heap is the C library's; its handle need only be recognisable.
char theHeap = 0;

bool IsHeap(HANDLE heap)
{
    return heap == &theHeap || FailWith(ERROR_INVALID_HANDLE);
}

std::uint64_t BytesInUse()
{
    if (__sanitizer_get_current_allocated_bytes != nullptr)
    {
        return __sanitizer_get_current_allocated_bytes();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}
} // namespace

extern "C" void* _aligned_malloc(std::size_t size, std::size_t alignment)
{
    void* block = nullptr;
    return !FailNextCall("_aligned_malloc") &&
                   posix_memalign(&block, std::max(alignment, sizeof(void*)), size) == 0
               ? block
               : nullptr;
}

extern "C" void _aligned_free(void* block)
{
    std::free(block);
}

extern "C" HANDLE WINAPI GetProcessHeap()
{
    return &theHeap;
}

extern "C" LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
{
    if (FailNextCall("HeapAlloc") || !IsHeap(heap))
    {
        return nullptr;
    }
    void* const block = (flags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, size) : std::malloc(size);
    CountLive(block != nullptr ? 1 : 0);
    return block;
}

extern "C" BOOL WINAPI HeapFree(HANDLE heap, DWORD /*flags*/, LPVOID block)
{
    if (!IsHeap(heap))
    {
        return FALSE;
    }
    std::free(block);
    CountLive(block != nullptr ? -1 : 0);
    return !FailNextCall("HeapFree");
}

extern "C" std::intptr_t __cdecl _get_heap_handle()
{
    return reinterpret_cast<std::intptr_t>(&theHeap);
}

// Nothing to lock: the statistics are consistent in themselves.
extern "C" BOOL WINAPI HeapLock(HANDLE heap)
{
    return !FailNextCall("HeapLock") && IsHeap(heap);
}

extern "C" BOOL WINAPI HeapUnlock(HANDLE heap)
{
    return !FailNextCall("HeapUnlock") && IsHeap(heap);
}

extern "C" BOOL WINAPI HeapWalk(HANDLE heap, PROCESS_HEAP_ENTRY* entry)
{
    constexpr DWORD64 mostBytes = 0x80000000u; // of one entry; its size field has 32 bits
    if (FailNextCall("HeapWalk", {entry}) || !IsHeap(heap))
    {
        return FALSE;
    }
    if (entry->lpData == nullptr)
    {
        entry->left = BytesInUse();
    }
    if (entry->left == 0)
    {
        return FailWith(ERROR_NO_MORE_ITEMS);
    }
    entry->lpData = &theHeap;
    entry->cbData = static_cast<DWORD>(std::min(entry->left, mostBytes));
    entry->left -= entry->cbData;
    entry->wFlags = PROCESS_HEAP_ENTRY_BUSY;
    return TRUE;
}

extern "C" void WINAPI DebugBreak()
{
    std::raise(SIGTRAP);
}
} // namespace sndxposix
