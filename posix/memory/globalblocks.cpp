// Global blocks, which local ones are as well.

#include "posix/memory/globalblocks.h"

#include <cstdlib>
#include <map>

#include "posix/base/call.h"
#include "posix/base/locked.h"
#include "sndx/memory.h"

namespace sndxposix
{
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
using Blocks = std::map<void*, Block>;

// Calls use(block) for a live block. Otherwise sets the last error and returns what `failed` says.
template <class Result, class Use>
Result WithBlock(HGLOBAL handle, Result failed, Use use)
{
    const Locked<Blocks> blocks;
    const auto found = blocks->find(handle);
    return found == blocks->end() ? FailWith(ERROR_INVALID_HANDLE, failed) : use(found->second);
}

HGLOBAL Release(HGLOBAL handle)
{
    const auto gone = Locked<Blocks>()->extract(handle);
    if (gone.empty())
    {
        return handle == nullptr ? nullptr : FailWith(ERROR_INVALID_HANDLE, handle);
    }
    CountLive(-1);
    std::free(gone.mapped().data);
    std::free(gone.mapped().data == handle ? nullptr : handle);
    return nullptr;
}
} // namespace

std::span<const BYTE> FindGlobalBlock(const void* handleOrAddress)
{
    const Locked<Blocks> blocks;
    for (const auto& [handle, block] : *blocks)
    {
        if (handle == handleOrAddress || block.data == handleOrAddress)
        {
            return {static_cast<const BYTE*>(block.data), block.size};
        }
    }
    return {};
}
extern "C" HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T size)
{
    const auto body = [&]() -> HGLOBAL
    {
        const std::size_t bytes = size == 0 ? 1 : size; // an empty block has an address, too
        void* const data = (flags & GMEM_ZEROINIT) != 0 ? std::calloc(1, bytes) : std::malloc(bytes);
        void* const handle = (flags & GMEM_MOVEABLE) != 0 && data != nullptr ? std::malloc(1) : data;
        if (data == nullptr || handle == nullptr)
        {
            std::free(data);
            return FailWith(ERROR_NOT_ENOUGH_MEMORY, nullptr);
        }
        (*Locked<Blocks>())[handle] = {data, size, 0};
        CountLive(1);
        return handle;
    };
    return Guarded(HGLOBAL{}, body);
}

extern "C" LPVOID WINAPI GlobalLock(HGLOBAL handle)
{
    const auto take = [&](Block& block)
    {
        block.locks += block.data != handle ? 1 : 0; // fixed blocks count no locks
        return block.data;
    };
    return FailNextCall("GlobalLock") ? nullptr : WithBlock(handle, LPVOID{}, take);
}

extern "C" BOOL WINAPI GlobalUnlock(HGLOBAL handle)
{
    const auto release = [&](Block& block) -> BOOL
    {
        if (block.data == handle)
        {
            return TRUE;
        }
        // TRUE while locks are left; FALSE without an error for the last one.
        SetLastError(block.locks == 0 ? ERROR_NOT_LOCKED : ERROR_SUCCESS);
        block.locks -= block.locks == 0 ? 0 : 1;
        return block.locks != 0;
    };
    const BOOL locked = WithBlock(handle, BOOL{FALSE}, release);
    return FailNextCall("GlobalUnlock") ? FALSE : locked;
}

extern "C" HGLOBAL WINAPI GlobalFree(HGLOBAL handle)
{
    return Release(handle);
}

extern "C" HLOCAL WINAPI LocalFree(HLOCAL handle)
{
    const HLOCAL left = Release(handle);
    return FailNextCall("LocalFree") ? handle : left;
}
} // namespace sndxposix
