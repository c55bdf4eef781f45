// The leak report: the last subject of a trace.

#include <stdlib.h>
#include <string.h>

#include "diag/allocationtable.h"
#include "diag/heap.h"
#include "diag/heapblocks.h"
#include "diag/lifetime.h"
#include "diag/tracefile.h"
#include "gen/debug.h"
#include "win32/file.h"

namespace
{
struct Leak
{
    const LMemAllocation* pRecord;
    char* szText; // copy of the trace line, owned; null for none
};

// Memory of the runtime's heap. At the end of the process a thread may have died inside that heap: then whole
// pages of the system's, which take no lock of this process.
void* Take(std::size_t uSize)
{
    return LDebugProcessEnd::HasBegun()
               ? VirtualAlloc(nullptr, uSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE)
               : malloc(uSize);
}

void GiveBack(void* p)
{
    if (!LDebugProcessEnd::HasBegun())
    {
        free(p);
    }
}

bool IsTimeStamped(const char* szLine)
{
    // contract.md T5
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
    // The 32 bits that the line shows (contract.md O17).
    const auto uA = static_cast<std::uint32_t>(static_cast<const Leak*>(pA)->pRecord->Size);
    const auto uB = static_cast<std::uint32_t>(static_cast<const Leak*>(pB)->pRecord->Size);
    return uA > uB ? -1 : uA < uB ? 1 : 0;
}

char* CopyText(const char* sz)
{
    const std::size_t uSize = strlen(sz) + 1;
    auto* szCopy = static_cast<char*>(Take(uSize));
    if (szCopy != nullptr)
    {
        memcpy(szCopy, sz, uSize);
    }
    return szCopy;
}

// Gives every leak the first line written after its allocation. The leaks come in the order of the lines, so
// one pass over the file serves all of them. Whatever stamped lines the file holds are counted; see
// contract.md O26.
void FindTexts(Leak* pLeaks, std::size_t uLeaks)
{
    // contract.md D7. At the end of the process nobody who holds the file is left to wait for.
    LBufferedReadFileRef file(LDebugGetFilePath(), LDebugProcessEnd::HasBegun() ? 0 : 1000);
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

void WriteLeak(const Leak& leak) // contract.md T18
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

// A block whose tag, or whose record behind an intact tag, was overwritten is left out: its record cannot be
// found.
template <class TVisit>
void ForEachLeak(TVisit visit)
{
    LDebugHeapTable().ForEach(
        [&visit](const void* p)
        {
            LMemoryMode mode = LMemoryMode::Plain;
            if (!LHeapBlockGetMode(p, mode) || mode == LMemoryMode::NeverReleased)
            {
                return;
            }
            const LMemAllocation* pRecord = LHeapBlockGetRecord(p, mode);
            constexpr std::uint32_t uListed = LMemAllocation::LIVE | LMemAllocation::REPORT;
            if (pRecord->pUser == p && (pRecord->uFlags & uListed) == uListed)
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
    // Outside the tracker: the report must not list itself.
    auto* pLeaks = static_cast<Leak*>(Take(uLeaks * sizeof(Leak)));
    if (pLeaks != nullptr)
    {
        // The blocks may be fewer or more than a moment ago when a thread of the host is still at work.
        const std::size_t uRoom = uLeaks;
        uLeaks = 0;
        ForEachLeak(
            [&](const LMemAllocation& record)
            {
                if (uLeaks < uRoom)
                {
                    pLeaks[uLeaks] = Leak{&record, nullptr};
                    ++uLeaks;
                }
            });
        qsort(pLeaks, uLeaks, sizeof(Leak), CompareTraceLines);
        FindTexts(pLeaks, uLeaks);
        qsort(pLeaks, uLeaks, sizeof(Leak), CompareSizes);
        for (std::size_t i = 0; i < uLeaks; ++i)
        {
            WriteLeak(pLeaks[i]);
            GiveBack(pLeaks[i].szText);
        }
        GiveBack(pLeaks);
    }
    LDebugTraceError( // contract.md O16
        " --- Leak Segments End ----------------------------------------------------\n Info: Use "
        "LDebugHeapIgnoreLeak for singleton allocated memory to prevent them being reported as leaks.");
}
