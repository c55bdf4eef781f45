#include "diag/heap.h"

#include <atomic>
#include <new>

#include <stdlib.h>
#include <string.h>

#include "gen/debug.h"
#include "diag/allocationtable.h"
#include "diag/heapblocks.h"
#include "diag/tracefile.h"
#include "win32/file.h"
#include "win32/mutex.h"
#include "win32/settings.h"

namespace
{
// The tracker is used before the first static object is constructed and after the last one is destroyed: all
// its state is plain memory.
constinit LDebugAllocationTable g_Table{};
constinit bool g_bModeKnown = false;
constinit LMemoryMode g_Mode = LMemoryMode::Plain;

// The allocation lock: made at the first use, never destroyed, because blocks are released until the very
// end. It lies in the module's own data, so that loading and unloading the module again and again costs the
// host nothing.
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

// The record of a tracked block in the table's modes; null, after a stop in the debugger, for a foreign one.
// bTabled is false for a block of mode 5, which has no record to find.
LMemAllocation* FindRecord(const void* p, bool& bTabled)
{
    LMemoryMode mode = LMemoryMode::Plain;
    bTabled = false;
    if (!LHeapBlockGetMode(p, mode))
    {
        DebugBreak();
        return nullptr;
    }
    bTabled = mode != LMemoryMode::NeverReleased;
    return bTabled ? LHeapBlockGetRecord(p, mode) : nullptr;
}
} // namespace

LDebugHeapLock::LDebugHeapLock()
{
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
    AllocationLock().Unlock();
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
    if (mode != LMemoryMode::NeverReleased)
    {
        std::uint32_t uSlot = 0;
        if (!g_Table.Enter(pUser, uSlot))
        {
            // A block that the table does not know could never be released.
            LHeapBlockDestroy(pUser, mode);
            return nullptr;
        }
        pRecord->uSlot = uSlot;
    }
    return pUser;
}

void LMemAllocation::Release(void* p, bool bArray)
{
    if (p == nullptr)
    {
        return;
    }
    LMemoryMode mode = LMemoryMode::Plain;
    if (!LHeapBlockGetMode(p, mode))
    {
        DebugBreak();
        return;
    }
    if (mode != LMemoryMode::NeverReleased)
    {
        LMemAllocation* pRecord = LHeapBlockGetRecord(p, mode);
        const bool bLive = (pRecord->uFlags & LIVE) != 0;
        const bool bSameForm = ((pRecord->uFlags & ARRAY) != 0) == bArray;
        if (!bLive || !bSameForm || !g_Table.Remove(p, pRecord->uSlot))
        {
            DebugBreak();
            return;
        }
        pRecord->uFlags &= ~LIVE;
    }
    LHeapBlockDestroy(p, mode);
}

void LMemAllocation::IgnoreLeak(void* p)
{
    bool bTabled = false;
    LMemAllocation* pRecord = p == nullptr ? nullptr : FindRecord(p, bTabled);
    if (bTabled)
    {
        pRecord->uFlags &= ~REPORT;
    }
}

// --- Leak report
// ---------------------------------------------------------------------------------------------

namespace
{
struct Leak
{
    const LMemAllocation* pRecord;
    char* szText; // copy of the trace line, owned; null for none
};

bool IsTimeStamped(const char* szLine)
{
    return strlen(szLine) > 8 && szLine[2] == ':' && szLine[5] == ':' && szLine[8] == '.';
}

int CompareTraceLines(const void* pA, const void* pB)
{
    const std::uint32_t uA = static_cast<const Leak*>(pA)->pRecord->uTraceLine;
    const std::uint32_t uB = static_cast<const Leak*>(pB)->pRecord->uTraceLine;
    return uA < uB ? -1 : uA > uB ? 1 : 0;
}

int CompareSizes(const void* pA, const void* pB)
{
    const auto uA = static_cast<std::uint32_t>(static_cast<const Leak*>(pA)->pRecord->Size);
    const auto uB = static_cast<std::uint32_t>(static_cast<const Leak*>(pB)->pRecord->Size);
    return uA > uB ? -1 : uA < uB ? 1 : 0;
}

char* CopyText(const char* sz)
{
    const std::size_t uSize = strlen(sz) + 1;
    auto* szCopy = static_cast<char*>(malloc(uSize));
    if (szCopy != nullptr)
    {
        memcpy(szCopy, sz, uSize);
    }
    return szCopy;
}

// Gives every leak the first line written after its allocation. The leaks come in the order of the lines, so
// one pass over the file serves all of them.
void FindTexts(Leak* pLeaks, std::size_t uLeaks)
{
    LBufferedReadFileRef file(LDebugGetFilePath(), 1000);
    if (!file.IsOpen())
    {
        return;
    }
    char szLine[LTRACELINESIZE] = {0};
    std::uint64_t uStamped = 0;
    bool bMore = true;
    for (std::size_t i = 0; i < uLeaks; ++i)
    {
        const std::uint64_t uWanted = std::uint64_t{pLeaks[i].pRecord->uTraceLine} + 1;
        while (bMore && uStamped < uWanted)
        {
            bMore = file.ReadLine(szLine, sizeof(szLine));
            uStamped += bMore && IsTimeStamped(szLine) ? 1 : 0;
        }
        if (uStamped == uWanted)
        {
            pLeaks[i].szText = CopyText(szLine);
        }
    }
}

void WriteLeak(const Leak& leak)
{
    const LMemAllocation& record = *leak.pRecord;
    if (leak.szText != nullptr)
    {
        LDebugTraceErrorF(" %i Bytes allocated by %s in %s (line %i) after trace line %i [%s]",
                          static_cast<int>(record.Size), record.szFunction, record.szFile,
                          static_cast<int>(record.uLine), static_cast<int>(record.uTraceLine), leak.szText);
    }
    else
    {
        LDebugTraceErrorF(" %i Bytes allocated by %s in %s (line %i) after trace line %i",
                          static_cast<int>(record.Size), record.szFunction, record.szFile,
                          static_cast<int>(record.uLine), static_cast<int>(record.uTraceLine));
    }
}

template <class TVisit>
void ForEachLeak(TVisit visit)
{
    g_Table.ForEach(
        [&visit](const void* p)
        {
            bool bTabled = false;
            const LMemAllocation* pRecord = FindRecord(p, bTabled);
            constexpr std::uint32_t uListed = LMemAllocation::LIVE | LMemAllocation::REPORT;
            if (bTabled && (pRecord->uFlags & uListed) == uListed)
            {
                visit(*pRecord);
            }
        });
}
} // namespace

void LDebugHeapLeakReport()
{
    std::size_t uLeaks = 0;
    std::uint64_t uTotal = 0;
    ForEachLeak(
        [&](const LMemAllocation& record)
        {
            ++uLeaks;
            uTotal += record.Size;
        });
    if (uTotal == 0)
    {
        LDebugTrace(" --- No Memory Leak Detected ---");
        return;
    }
    LDebugTraceErrorF(" --- Leak Segments Start (Total %Iu Bytes) --------------------------",
                      static_cast<std::size_t>(uTotal));
    // From the runtime, outside the tracker: the report must not list itself.
    auto* pLeaks = static_cast<Leak*>(malloc(uLeaks * sizeof(Leak)));
    if (pLeaks != nullptr)
    {
        std::size_t i = 0;
        ForEachLeak(
            [&](const LMemAllocation& record)
            {
                pLeaks[i] = Leak{&record, nullptr};
                ++i;
            });
        qsort(pLeaks, uLeaks, sizeof(Leak), CompareTraceLines);
        FindTexts(pLeaks, uLeaks);
        qsort(pLeaks, uLeaks, sizeof(Leak), CompareSizes);
        for (i = 0; i < uLeaks; ++i)
        {
            WriteLeak(pLeaks[i]);
            free(pLeaks[i].szText);
        }
        free(pLeaks);
    }
    LDebugTraceError(
        " --- Leak Segments End ----------------------------------------------------\n Info: Use "
        "LDebugHeapIgnoreLeak for singleton allocated memory to prevent them being reported as leaks.");
}
