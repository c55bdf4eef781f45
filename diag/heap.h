#pragma once
// Tracked allocation: every block carries a record and, in front of the caller's memory, a four-byte tag that
// leads back to it; live blocks stand in a table, and what is left when the trace ends is listed. Included in
// diag/ and by tests.
//
// A per-user setting, read once, selects the memory mode: 0 and 1 plain blocks; 2 an inaccessible page behind
// each block; 3 one in front of it; 5 released memory is never used again and inaccessible. Any other value
// counts as 0. The blocks of the modes: contract.md M25.

#include "gen/types.h"

struct LMemAllocation
{
    std::uint32_t uFlags;     // ARRAY, LIVE, REPORT
    std::uint32_t uTraceLine; // lines of the trace at the time of allocation
    std::uint64_t Size;       // bytes asked for
    const char* szFile;       // of the new expression; not copied
    const char* szFunction;
    std::int32_t uLine;
    std::uint32_t uSlot; // where the block stands in the table
    void* pBlock;        // the runtime's block
    void* pUser;         // what the caller got

    static constexpr std::uint32_t ARRAY = 1;  // made by the array form
    static constexpr std::uint32_t LIVE = 2;   // not yet released
    static constexpr std::uint32_t REPORT = 4; // listed as a leak

    // Makes a block and returns its pUser; null, traced, when there is no memory. It is aligned to 4 bytes,
    // in mode 2 only as far as its size is. The caller of Record and Release holds the allocation lock
    // (LDebugHeapLock).
    static void* Record(std::size_t uSize, const char* szFile, const char* szFunction, std::int32_t nLine,
                        bool bArray);
    // Releases a block; null is none. False for a block that was released before, is released in the other
    // form, is not in the table or was never made here; it is left as it is.
    static bool Release(void* p, bool bArray);
    // Takes a live block out of the leak report. Null does nothing; a foreign pointer stops in the debugger
    // (contract.md O18).
    static void IgnoreLeak(void* p);
};
// contract.md M23
static_assert(sizeof(LMemAllocation) == 56 && offsetof(LMemAllocation, uTraceLine) == 4 &&
              offsetof(LMemAllocation, Size) == 8 && offsetof(LMemAllocation, szFile) == 16 &&
              offsetof(LMemAllocation, szFunction) == 24 && offsetof(LMemAllocation, uLine) == 32 &&
              offsetof(LMemAllocation, uSlot) == 36 && offsetof(LMemAllocation, pBlock) == 40 &&
              offsetof(LMemAllocation, pUser) == 48);

// Holds the allocation lock for a scope. The lock may be taken below any other lock.
class LDebugHeapLock
{
  public:
    LDebugHeapLock();
    ~LDebugHeapLock();
    LDebugHeapLock(const LDebugHeapLock&) = delete;
    LDebugHeapLock& operator=(const LDebugHeapLock&) = delete;

  private:
    bool m_bTaken;
};

// The release operators: releases under the allocation lock; a wrong release stops in the debugger, behind
// the lock, so that a host that carries on from the stop does not leave it taken for ever (contract.md O18).
void LDebugHeapRelease(void* p, bool bArray);

// The table of live blocks, for the leak report.
class LDebugAllocationTable;
const LDebugAllocationTable& LDebugHeapTable();

// Lists the live blocks that are not excused, largest first, each with the trace line written right after its
// allocation, looked up in the trace file. A block whose tag was overwritten is passed over. Called once, at
// the end of the trace; takes no lock.
void LDebugHeapLeakReport();
