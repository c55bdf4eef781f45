#include "diag/allocationtable.h"

#include <bit>

#include <stdlib.h>
#include <string.h>

namespace
{
std::uint64_t Bit(std::uint32_t i)
{
    return std::uint64_t{1} << (i % 64);
}
} // namespace

bool LDebugAllocationTable::GrowDirectory()
{
    if (m_uCapacity == 0)
    {
        m_pEntries = m_FirstEntries;
        m_pRoom = m_FirstRoom;
        m_uCapacity = FIRSTENTRIES;
        return true;
    }
    // Doubled, so that the copying stays small. Entries and bits in one piece, both old parts in the new one.
    const std::uint32_t uCapacity = m_uCapacity * 2;
    const std::size_t uEntriesSize = uCapacity * sizeof(Entry);
    auto* pMemory =
        static_cast<unsigned char*>(calloc(1, uEntriesSize + uCapacity / 64 * sizeof(std::uint64_t)));
    if (pMemory == nullptr)
    {
        return false;
    }
    auto* pEntries = reinterpret_cast<Entry*>(pMemory);
    auto* pRoom = reinterpret_cast<std::uint64_t*>(pMemory + uEntriesSize);
    memcpy(pEntries, m_pEntries, m_uEntries * sizeof(Entry));
    memcpy(pRoom, m_pRoom, m_uCapacity / 64 * sizeof(std::uint64_t));
    // The new directory stands before the old one goes: a thread may die with the process at any place.
    Entry* pOld = m_pEntries;
    m_pEntries = pEntries;
    m_pRoom = pRoom;
    m_uCapacity = uCapacity;
    if (pOld != m_FirstEntries)
    {
        free(pOld);
    }
    return true;
}

bool LDebugAllocationTable::Append(Block* pBlock)
{
    if (m_uEntries == m_uCapacity && !GrowDirectory())
    {
        return false;
    }
    Entry& entry = m_pEntries[m_uEntries];
    entry.pBlock = pBlock;
    for (std::uint32_t uWord = 0; uWord < WORDS; ++uWord)
    {
        const std::uint32_t uSlots = SLOTS - 64 * uWord;
        entry.uFree[uWord] = uSlots >= 64 ? ~std::uint64_t{0} : Bit(uSlots) - 1;
    }
    if (m_uEntries > 0)
    {
        m_pEntries[m_uEntries - 1].pBlock->pNext = pBlock;
    }
    m_pRoom[m_uEntries / 64] |= Bit(m_uEntries);
    ++m_uEntries;
    return true;
}

bool LDebugAllocationTable::AddBlock()
{
    if (m_uEntries == 0)
    {
        return Append(&m_First);
    }
    auto* pBlock = static_cast<Block*>(calloc(1, sizeof(Block)));
    if (pBlock != nullptr && !Append(pBlock))
    {
        free(pBlock);
        pBlock = nullptr;
    }
    return pBlock != nullptr;
}

bool LDebugAllocationTable::Enter(void* pUser, std::uint32_t& uSlot)
{
    // One word stands for 64 table blocks, 12800 live blocks of memory.
    std::uint32_t uWord = 0;
    const std::uint32_t uWords = m_uCapacity / 64;
    while (uWord < uWords && m_pRoom[uWord] == 0)
    {
        ++uWord;
    }
    if (uWord == uWords)
    {
        if (!AddBlock())
        {
            return false;
        }
        uWord = (m_uEntries - 1) / 64;
    }
    const std::uint32_t uEntry = uWord * 64 + static_cast<std::uint32_t>(std::countr_zero(m_pRoom[uWord]));
    Entry& entry = m_pEntries[uEntry];
    std::uint32_t uPart = 0;
    while (entry.uFree[uPart] == 0)
    {
        ++uPart;
    }
    const std::uint32_t i = uPart * 64 + static_cast<std::uint32_t>(std::countr_zero(entry.uFree[uPart]));
    entry.uFree[uPart] &= ~Bit(i);
    entry.pBlock->pSlots[i] = pUser;
    ++entry.pBlock->uUsed;
    if (entry.pBlock->uUsed == SLOTS)
    {
        m_pRoom[uWord] &= ~Bit(uEntry);
    }
    uSlot = uEntry * SLOTS + i;
    return true;
}

bool LDebugAllocationTable::Find(const void* pUser, std::uint32_t& uSlot) const
{
    for (std::uint32_t uEntry = 0; uEntry < m_uEntries; ++uEntry)
    {
        for (std::uint32_t i = 0; i < SLOTS; ++i)
        {
            if (m_pEntries[uEntry].pBlock->pSlots[i] == pUser)
            {
                uSlot = uEntry * SLOTS + i;
                return true;
            }
        }
    }
    return false;
}

bool LDebugAllocationTable::Remove(void* pUser, std::uint32_t uSlot)
{
    const bool bThere =
        uSlot / SLOTS < m_uEntries && m_pEntries[uSlot / SLOTS].pBlock->pSlots[uSlot % SLOTS] == pUser;
    // A record that was overwritten names a wrong slot; the search tells it from an unknown block.
    if (!bThere && !Find(pUser, uSlot))
    {
        return false;
    }
    const std::uint32_t uEntry = uSlot / SLOTS;
    const std::uint32_t i = uSlot % SLOTS;
    Entry& entry = m_pEntries[uEntry];
    entry.pBlock->pSlots[i] = nullptr;
    --entry.pBlock->uUsed;
    entry.uFree[i / 64] |= Bit(i);
    m_pRoom[uEntry / 64] |= Bit(uEntry);
    return true;
}
