#include "diag/heapblocks.h"

#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include "gen/debug.h"

namespace
{
using Bytes = std::uint8_t*;

constexpr std::size_t g_uTagSize = 4;
constexpr std::size_t g_uRecordSize = sizeof(LMemAllocation);
constexpr std::size_t g_uHeadSize = g_uRecordSize + g_uTagSize;    // record and tag in front of the user data
constexpr std::size_t g_uPointerSize = sizeof(void*);              // mode 3: the record's address …
constexpr std::size_t g_uBeforeSize = g_uPointerSize + g_uTagSize; // … and the tag in front of the user data
constexpr std::uint32_t g_uTagBase = 0x4D454D30;                   // "0MEM", contract.md M24

// System page size, fetched at the first block that needs it. Used under the allocation lock.
constinit std::size_t g_uPage = 0;

// The pool of mode 5: pages of the current chunk that no block has taken yet.
constinit Bytes g_pPool = nullptr;
constinit std::size_t g_uPoolPages = 0;

std::size_t PageSize()
{
    if (g_uPage == 0)
    {
        SYSTEM_INFO info = {};
        GetSystemInfo(&info);
        g_uPage = info.dwPageSize;
    }
    return g_uPage;
}

// A size so large that the sums below could wrap is no memory to be had.
bool IsAbsurd(std::size_t uSize)
{
    return uSize > PTRDIFF_MAX - 4 * PageSize();
}

bool Protect(void* p, std::size_t uSize, DWORD uProtection)
{
    DWORD uBefore = 0;
    return VirtualProtect(p, uSize, uProtection, &uBefore) != FALSE;
}

// A block whose guard page stays inaccessible is lost: given back, it would be the end of whoever uses the
// runtime's heap next.
void FreeGuarded(void* pBlock, void* pGuarded)
{
    if (Protect(pGuarded, PageSize(), PAGE_READWRITE))
    {
        _aligned_free(pBlock);
    }
}

// Blocks lie at odd addresses: tags and stored pointers are copied, not dereferenced.
void WriteTag(Bytes pUser, LMemoryMode mode)
{
    const std::uint32_t uTag = g_uTagBase + static_cast<std::uint32_t>(mode);
    memcpy(pUser - g_uTagSize, &uTag, g_uTagSize);
}

LMemAllocation* Place(void* pRecord, void* pBlock, Bytes pUser, LMemoryMode mode)
{
    WriteTag(pUser, mode);
    auto* pAllocation = static_cast<LMemAllocation*>(pRecord);
    pAllocation->pBlock = pBlock;
    pAllocation->pUser = pUser;
    return pAllocation;
}

LMemAllocation* NoMemory(const char* szText)
{
    LDebugTraceFunction("LMemAllocation::Record", false, szText);
    return nullptr;
}

LMemAllocation* CreatePlain(LMemoryMode mode, std::size_t uSize)
{
    auto* pBlock = IsAbsurd(uSize) ? nullptr : static_cast<Bytes>(malloc(uSize + g_uHeadSize));
    return pBlock == nullptr ? NoMemory("malloc returned nullptr")
                             : Place(pBlock, pBlock, pBlock + g_uHeadSize, mode);
}

Bytes AllocatePages(std::size_t uPages)
{
    return static_cast<Bytes>(_aligned_malloc(uPages * PageSize(), PageSize()));
}

// The user data ends where the inaccessible page begins.
LMemAllocation* CreateGuardAfter(std::size_t uSize)
{
    const std::size_t uPages = IsAbsurd(uSize) ? 0 : (uSize + g_uHeadSize) / PageSize() + 2;
    Bytes pBlock = uPages == 0 ? nullptr : AllocatePages(uPages);
    if (pBlock == nullptr)
    {
        return NoMemory("_aligned_malloc returned nullptr");
    }
    Bytes pGuard = pBlock + (uPages - 1) * PageSize();
    Protect(pGuard, PageSize(), PAGE_NOACCESS);
    Bytes pUser = pGuard - uSize;
    return Place(pUser - g_uHeadSize, pBlock, pUser, LMemoryMode::GuardAfter);
}

// Behind the inaccessible page: the record's address, the tag, the user data, the record.
LMemAllocation* CreateGuardBefore(std::size_t uSize)
{
    const std::size_t uPages = IsAbsurd(uSize) ? 0 : (uSize + g_uBeforeSize + g_uRecordSize) / PageSize() + 2;
    Bytes pBlock = uPages == 0 ? nullptr : AllocatePages(uPages);
    if (pBlock == nullptr)
    {
        return NoMemory("_aligned_malloc returned nullptr");
    }
    Protect(pBlock, PageSize(), PAGE_NOACCESS);
    Bytes pUser = pBlock + PageSize() + g_uBeforeSize;
    Bytes pRecord = pUser + uSize;
    memcpy(pUser - g_uBeforeSize, &pRecord, g_uPointerSize);
    return Place(pRecord, pBlock, pUser, LMemoryMode::GuardBefore);
}

// A page of the pool, or null.
Bytes TakePoolPage()
{
    constexpr std::size_t uChunkPages = 10;
    if (g_uPoolPages == 0)
    {
        Bytes pChunk = AllocatePages(uChunkPages + 1);
        if (pChunk == nullptr)
        {
            return nullptr;
        }
        // The first page stays unused (contract.md M25): what is written far in front of the first block
        // stays in the chunk and does not reach the runtime's bookkeeping in front of it.
        g_pPool = pChunk + PageSize();
        g_uPoolPages = uChunkPages;
    }
    Bytes pPage = g_pPool;
    g_pPool += PageSize();
    --g_uPoolPages;
    return pPage;
}

LMemAllocation* CreateNeverReleased(std::size_t uSize)
{
    void* pRecord = IsAbsurd(uSize) ? nullptr : malloc(g_uRecordSize); // never released, as the block
    if (pRecord == nullptr)
    {
        return NoMemory("malloc returned nullptr");
    }
    const bool bSmall = uSize + g_uTagSize <= PageSize();
    Bytes pBlock = bSmall ? TakePoolPage()
                          : static_cast<Bytes>(_aligned_malloc(PageSize() + uSize + g_uTagSize, PageSize()));
    if (pBlock == nullptr)
    {
        free(pRecord);
        return NoMemory("_aligned_malloc returned nullptr");
    }
    Bytes pPage = bSmall ? pBlock : pBlock + PageSize();
    return Place(pRecord, pBlock, pPage + g_uTagSize, LMemoryMode::NeverReleased);
}
} // namespace

LMemoryMode LMemoryModeFromSetting(std::int32_t nSetting)
{
    const auto mode = static_cast<LMemoryMode>(nSetting);
    switch (mode)
    {
    case LMemoryMode::Plain1:
    case LMemoryMode::GuardAfter:
    case LMemoryMode::GuardBefore:
    case LMemoryMode::NeverReleased:
        return mode;
    case LMemoryMode::Plain:
        break;
    }
    return LMemoryMode::Plain;
}

LMemAllocation* LHeapBlockCreate(LMemoryMode mode, std::size_t uSize)
{
    switch (mode)
    {
    case LMemoryMode::GuardAfter:
        return CreateGuardAfter(uSize);
    case LMemoryMode::GuardBefore:
        return CreateGuardBefore(uSize);
    case LMemoryMode::NeverReleased:
        return CreateNeverReleased(uSize);
    case LMemoryMode::Plain:
    case LMemoryMode::Plain1:
        break;
    }
    return CreatePlain(mode, uSize);
}

bool LHeapBlockGetMode(const void* p, LMemoryMode& mode)
{
    std::uint32_t uTag = 0;
    memcpy(&uTag, static_cast<const std::uint8_t*>(p) - g_uTagSize, g_uTagSize);
    const std::uint32_t uMode = uTag - g_uTagBase;
    if (uMode > 3 && uMode != static_cast<std::uint32_t>(LMemoryMode::NeverReleased))
    {
        return false;
    }
    mode = static_cast<LMemoryMode>(uMode);
    return true;
}

LMemAllocation* LHeapBlockGetRecord(const void* p, LMemoryMode mode)
{
    const auto* pUser = static_cast<const std::uint8_t*>(p);
    LMemAllocation* pRecord = nullptr;
    if (mode == LMemoryMode::GuardBefore)
    {
        memcpy(&pRecord, pUser - g_uBeforeSize, g_uPointerSize);
    }
    else
    {
        pRecord = reinterpret_cast<LMemAllocation*>(const_cast<std::uint8_t*>(pUser - g_uHeadSize));
    }
    return pRecord;
}

void LHeapBlockDestroy(void* p, LMemoryMode mode)
{
    if (mode == LMemoryMode::NeverReleased)
    {
        Protect(static_cast<Bytes>(p) - g_uTagSize, PageSize(), PAGE_NOACCESS);
        return;
    }
    const LMemAllocation* pRecord = LHeapBlockGetRecord(p, mode);
    void* pBlock = pRecord->pBlock;
    switch (mode)
    {
    case LMemoryMode::GuardAfter:
        // From the last bytes of the user data for one page: that reaches the guard page.
        FreeGuarded(pBlock, static_cast<Bytes>(p) + pRecord->Size - 4);
        break;
    case LMemoryMode::GuardBefore:
        FreeGuarded(pBlock, pBlock);
        break;
    default:
        free(pBlock);
        break;
    }
}
