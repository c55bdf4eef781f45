#pragma once
// The table of live tracked blocks: a chain of table blocks with 200 slots each; a slot holds a block's
// pUser, null means empty. A new block takes the lowest empty slot of the first table block that has room.
//
// Beside the chain stands a directory with one bit for every free slot and one for every table block with
// room, so that neither entry nor removal looks through the slots. All of it is used under the allocation
// lock.

#include "gen/types.h"

class LDebugAllocationTable
{
  public:
    static constexpr std::uint32_t SLOTS = 200;

    struct Block
    {
        void* pSlots[SLOTS];
        std::uint32_t uUsed;
        Block* pNext;
    };
    static_assert(sizeof(Block) == 1616 && offsetof(Block, uUsed) == 1600 &&
                  offsetof(Block, pNext) == 1608); // contract.md M26

    // Enters a block and gives its slot's number, counted through all table blocks. False without memory for
    // a further table block.
    bool Enter(void* pUser, std::uint32_t& uSlot);
    // Removes a block. uSlot is where it was entered; a block that does not stand there is searched for.
    // False when the table does not know it.
    bool Remove(void* pUser, std::uint32_t uSlot);

    // Calls visit(pUser) for every block in slot order.
    template <class TVisit>
    void ForEach(TVisit visit) const
    {
        for (const Block* pBlock = &m_First; pBlock != nullptr; pBlock = pBlock->pNext)
        {
            for (std::uint32_t i = 0; pBlock->uUsed > 0 && i < SLOTS; ++i)
            {
                if (pBlock->pSlots[i] != nullptr)
                {
                    visit(pBlock->pSlots[i]);
                }
            }
        }
    }

  private:
    static constexpr std::uint32_t WORDS = (SLOTS + 63) / 64;

    struct Entry
    {
        Block* pBlock;
        std::uint64_t uFree[WORDS]; // a set bit is an empty slot
    };

    bool AddBlock();
    bool Append(Block* pBlock);
    bool GrowDirectory();
    bool Find(const void* pUser, std::uint32_t& uSlot) const;

    // Table blocks that the directory covers without memory of its own, 12800 live blocks of memory: a module
    // that is loaded and unloaded again and again must leave nothing behind in its host.
    static constexpr std::uint32_t FIRSTENTRIES = 64;

    // All of it zero at load: the table is used before any constructor could run.
    Block m_First;
    Entry m_FirstEntries[FIRSTENTRIES];
    std::uint64_t m_FirstRoom[FIRSTENTRIES / 64];
    Entry* m_pEntries;         // directory, one entry a table block
    std::uint64_t* m_pRoom;    // a set bit is a table block with room
    std::uint32_t m_uEntries;  // table blocks
    std::uint32_t m_uCapacity; // entries there is room for; a multiple of 64
};
