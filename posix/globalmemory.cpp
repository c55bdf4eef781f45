// Global and local blocks: GlobalAlloc and its relatives.

#include "posix/guarded.h"
#include "posix/internal.h"
#include "sndx/memory.h"

#include <cstdlib>
#include <mutex>
#include <unordered_map>

using namespace sndxposix;

namespace
{
struct Block
{
    void* data;
    std::size_t size;
    unsigned locks;
};

// All live blocks by handle: a fixed block's is its address, a moveable one's the address of a small block
// of its own, so that a program that takes the handle for the address is found out.
struct Blocks
{
    std::mutex mutex;
    std::unordered_map<void*, Block> all;
};

// Never destroyed: modules release blocks in their static destructors.
Blocks& TheBlocks()
{
    static Blocks& blocks = *new Blocks;
    return blocks;
}

HGLOBAL Allocate(UINT flags, SIZE_T size)
{
    const std::size_t bytes = size == 0 ? 1 : size; // an empty block has an address, too
    void* const data = (flags & GMEM_ZEROINIT) != 0 ? std::calloc(1, bytes) : std::malloc(bytes);
    void* const handle = (flags & GMEM_MOVEABLE) != 0 && data != nullptr ? std::malloc(1) : data;
    if (data == nullptr || handle == nullptr)
    {
        std::free(data);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    Blocks& blocks = TheBlocks();
    const std::lock_guard lock(blocks.mutex);
    blocks.all[handle] = {data, size, 0};
    return handle;
}

// Calls use(block) for a live block. Otherwise sets the last error and returns what `failed` says.
template <class Result, class Use>
Result WithBlock(HGLOBAL handle, Result failed, Use use)
{
    Blocks& blocks = TheBlocks();
    const std::lock_guard lock(blocks.mutex);
    const auto found = blocks.all.find(handle);
    if (found == blocks.all.end())
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return failed;
    }
    return use(found->second);
}

HGLOBAL Release(HGLOBAL handle)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    return WithBlock(handle, handle,
                     [&](Block& block) -> HGLOBAL
                     {
                         if (block.data != handle)
                         {
                             std::free(handle);
                         }
                         std::free(block.data);
                         TheBlocks().all.erase(handle);
                         return nullptr;
                     });
}
} // namespace

extern "C" HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T size)
{
    const auto body = [&]() -> HGLOBAL
    { return FailNextCall("GlobalAlloc") ? nullptr : Allocate(flags, size); };
    return Guarded(HGLOBAL{}, body);
}

extern "C" LPVOID WINAPI GlobalLock(HGLOBAL handle)
{
    if (FailNextCall("GlobalLock"))
    {
        return nullptr;
    }
    return WithBlock(handle, LPVOID{},
                     [&](Block& block)
                     {
                         block.locks += block.data != handle ? 1 : 0; // fixed blocks count no locks
                         return block.data;
                     });
}

extern "C" BOOL WINAPI GlobalUnlock(HGLOBAL handle)
{
    if (FailNextCall("GlobalUnlock"))
    {
        return FALSE;
    }
    return WithBlock(handle, BOOL{FALSE},
                     [&](Block& block) -> BOOL
                     {
                         if (block.data == handle)
                         {
                             return TRUE;
                         }
                         // TRUE while locks are left; FALSE without an error for the last one.
                         SetLastError(block.locks == 0 ? ERROR_NOT_LOCKED : ERROR_SUCCESS);
                         block.locks -= block.locks == 0 ? 0 : 1;
                         return block.locks != 0;
                     });
}

extern "C" SIZE_T WINAPI GlobalSize(HGLOBAL handle)
{
    if (FailNextCall("GlobalSize"))
    {
        return 0;
    }
    return WithBlock(handle, SIZE_T{0}, [](const Block& block) { return block.size; });
}

extern "C" HGLOBAL WINAPI GlobalFree(HGLOBAL handle)
{
    return FailNextCall("GlobalFree") ? handle : Release(handle);
}

extern "C" HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T size)
{
    const auto body = [&]() -> HLOCAL
    { return FailNextCall("LocalAlloc") ? nullptr : Allocate(flags, size); };
    return Guarded(HLOCAL{}, body);
}

extern "C" HLOCAL WINAPI LocalFree(HLOCAL handle)
{
    return FailNextCall("LocalFree") ? handle : Release(handle);
}
