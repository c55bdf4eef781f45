#pragma once
// The blocks of the memory modes: how record, tag and user data lie in memory. The record of a block is made
// here but filled in by the tracker.

#include "diag/heap.h"

enum class LMemoryMode : std::int32_t
{
    Plain = 0,
    Plain1 = 1,
    GuardAfter = 2,
    GuardBefore = 3,
    NeverReleased = 5
};

// The mode that a setting selects.
LMemoryMode LMemoryModeFromSetting(std::int32_t nSetting);

// A new block with its tag written and pBlock and pUser of its record set; null, traced, when there is no
// memory.
LMemAllocation* LHeapBlockCreate(LMemoryMode mode, std::size_t uSize);

// The mode that the tag in front of p names; false for a tag that is none of ours.
bool LHeapBlockGetMode(const void* p, LMemoryMode& mode);

// The record of a block of modes 0 to 3.
LMemAllocation* LHeapBlockGetRecord(const void* p, LMemoryMode mode);

// Gives the memory back (modes 0 to 3), or makes it inaccessible (mode 5).
void LHeapBlockDestroy(void* p, LMemoryMode mode);
