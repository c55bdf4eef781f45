#include "diag/heap.h"

#include <atomic>
#include <new>

#include "diag/allocationtable.h"
#include "diag/heapblocks.h"
#include "diag/lifetime.h"
#include "diag/tracefile.h"
#include "gen/debug.h"
#include "win32/mutex.h"
#include "win32/settings.h"

namespace
{
// The tracker is used before the first static object is constructed and after the last one is destroyed: all
// its state is plain memory.
constinit LDebugAllocationTable g_Table{};
constinit bool g_bModeKnown = false;
constinit LMemoryMode g_Mode = LMemoryMode::Plain;

// The allocation lock: made at the first use, because blocks are made before the first static object and
// released until the very end. It lies in the module's own data, so that loading and unloading the module
// again and again costs the host nothing.
constinit std::atomic<bool> g_bLockMade{false};
alignas(LLockObject) constinit unsigned char g_LockMemory[sizeof(LLockObject)]{};

LLockObject& AllocationLock()
{
    return *std::launder(reinterpret_cast<LLockObject*>(g_LockMemory));
}

LMemoryMode MemoryMode()
{
    if (!g_bModeKnown)
    {
        g_Mode = LMemoryModeFromSetting(LUserSettingGet(TEXT("Debug"), TEXT("Memory Mode"), 0));
        g_bModeKnown = true;
    }
    return g_Mode;
}

} // namespace

LDebugHeapLock::LDebugHeapLock() : m_bTaken(!LDebugProcessEnd::HasBegun())
{
    if (!m_bTaken)
    {
        return; // one thread is left; the owner of the lock may have died in it
    }
    // The first allocation happens while the module's static objects are constructed, on one thread.
    if (!g_bLockMade.load(std::memory_order_acquire))
    {
        ::new (static_cast<void*>(g_LockMemory)) LLockObject;
        g_bLockMade.store(true, std::memory_order_release);
    }
    // Blocks are made and released below any lock; that is no nesting to report.
    LLockObject::ResetLockThread();
    AllocationLock().Lock();
}

LDebugHeapLock::~LDebugHeapLock()
{
    if (m_bTaken)
    {
        AllocationLock().Unlock();
    }
}

LDebugHeapLifetime::~LDebugHeapLifetime()
{
    // A lock that threads have waited for holds an event of the system's until it is deleted.
    if (!LDebugProcessEnd::HasBegun() && g_bLockMade.exchange(false, std::memory_order_acq_rel))
    {
        AllocationLock().~LLockObject();
    }
}

const LDebugAllocationTable& LDebugHeapTable()
{
    return g_Table;
}

void* LMemAllocation::Record(std::size_t uSize, const char* szFile, const char* szFunction,
                             std::int32_t nLine, bool bArray)
{
    const LMemoryMode mode = MemoryMode();
    LMemAllocation* pRecord = LHeapBlockCreate(mode, uSize);
    if (pRecord == nullptr)
    {
        return nullptr;
    }
    pRecord->uFlags = LIVE | REPORT | (bArray ? ARRAY : 0);
    pRecord->uTraceLine = LDebugGetTraceLineNumber();
    pRecord->Size = uSize;
    pRecord->szFile = szFile;
    pRecord->szFunction = szFunction;
    pRecord->uLine = nLine;
    pRecord->uSlot = 0;
    void* pUser = pRecord->pUser;
    if (mode != LMemoryMode::NeverReleased) // contract.md O19
    {
        std::uint32_t uSlot = 0;
        if (!g_Table.Enter(pUser, uSlot))
        {
            // A block that the table does not know could never be released.
            LHeapBlockDestroy(pUser, mode);
            LDebugTraceFunction("LMemAllocation::Record", false, "malloc returned nullptr");
            return nullptr;
        }
        pRecord->uSlot = uSlot;
    }
    return pUser;
}

bool LMemAllocation::Release(void* p, bool bArray)
{
    if (p == nullptr)
    {
        return true;
    }
    LMemoryMode mode = LMemoryMode::Plain;
    if (!LHeapBlockGetMode(p, mode))
    {
        return false;
    }
    if (mode != LMemoryMode::NeverReleased)
    {
        LMemAllocation* pRecord = LHeapBlockGetRecord(p, mode);
        const bool bLive = (pRecord->uFlags & LIVE) != 0;
        const bool bSameForm = ((pRecord->uFlags & ARRAY) != 0) == bArray;
        if (!bLive || !bSameForm || !g_Table.Remove(p, pRecord->uSlot))
        {
            return false;
        }
        pRecord->uFlags &= ~LIVE;
    }
    // At the end of the process a thread may have died inside the runtime's heap, and its lock with it. The
    // block is off the table, and the system takes the memory back at once (contract.md O31).
    if (!LDebugProcessEnd::HasBegun())
    {
        LHeapBlockDestroy(p, mode);
    }
    return true;
}

void LDebugHeapRelease(void* p, bool bArray)
{
    bool bReleased = false;
    {
        const LDebugHeapLock lock;
        bReleased = LMemAllocation::Release(p, bArray);
    }
    if (!bReleased)
    {
        DebugBreak();
    }
}

void LMemAllocation::IgnoreLeak(void* p)
{
    LMemoryMode mode = LMemoryMode::Plain;
    if (p == nullptr)
    {
        return;
    }
    if (!LHeapBlockGetMode(p, mode))
    {
        DebugBreak();
    }
    else if (mode != LMemoryMode::NeverReleased)
    {
        LHeapBlockGetRecord(p, mode)->uFlags &= ~REPORT;
    }
}
