// The table of live blocks against a plain model of it: always the lowest empty slot of the first table block
// that has room.

#include <random>
#include <set>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gen/debug/allocationtable.h"

using testing::ElementsAreArray;

namespace
{
// Table blocks are never released; in static memory they stay in reach of leak checkers.
constinit LDebugAllocationTable g_table{};
constinit LDebugAllocationTable g_randomTable{};

// Any distinct addresses will do: the table does not look at the blocks.
void* Address(std::uintptr_t number)
{
    return reinterpret_cast<void*>(16 * (number + 1));
}

std::vector<void*> Walk(const LDebugAllocationTable& table)
{
    std::vector<void*> visited;
    table.ForEach([&](void* user) { visited.push_back(user); });
    return visited;
}
} // namespace

static_assert(offsetof(LDebugAllocationTable::Block, uUsed) == 200 * sizeof(void*));
static_assert(offsetof(LDebugAllocationTable::Block, pNext) == 201 * sizeof(void*));

TEST(AllocationTable, FillsTwoHundredSlotsABlockAndUsesFreedOnesFirst)
{
    EXPECT_TRUE(Walk(g_table).empty());
    constexpr std::uint32_t count = 30001; // well beyond several doublings of whatever leads to the blocks
    std::vector<void*> expected;
    for (std::uint32_t i = 0; i < count; ++i)
    {
        std::uint32_t slot = 0;
        ASSERT_TRUE(g_table.Enter(Address(i), slot));
        ASSERT_EQ(slot, i);
        expected.push_back(Address(i));
    }
    ASSERT_EQ(Walk(g_table), expected);

    // Holes anywhere are filled from the lowest one on, the next block comes behind the last.
    const std::uint32_t holes[] = {29999, 12800, 12799, 200, 199, 0, 12600};
    for (const std::uint32_t hole : holes)
    {
        ASSERT_TRUE(g_table.Remove(Address(hole), hole));
    }
    std::uintptr_t next = count;
    for (const std::uint32_t hole : {0u, 199u, 200u, 12600u, 12799u, 12800u, 29999u, count})
    {
        std::uint32_t slot = 0;
        ASSERT_TRUE(g_table.Enter(Address(next), slot));
        EXPECT_EQ(slot, hole);
        ++next;
    }
}

TEST(AllocationTable, BehavesAsItsModelUnderRandomUse)
{
    std::mt19937 random(20240501);
    std::set<std::uint32_t> empty; // lowest first: that is the first block with room and its lowest slot
    std::vector<void*> slots;
    std::vector<std::uint32_t> used;
    std::uintptr_t next = 0;
    for (int phase = 0; phase < 8; ++phase)
    {
        // Phases of growth and of shrinking, the deepest down to nothing.
        const bool grows = phase % 2 == 0;
        for (int i = 0; i < 6000; ++i)
        {
            const bool enter = used.empty() || random() % 10 < (grows ? 8u : 1u);
            if (enter)
            {
                if (empty.empty())
                {
                    empty.insert(static_cast<std::uint32_t>(slots.size()));
                    slots.push_back(nullptr);
                }
                const std::uint32_t wanted = *empty.begin();
                empty.erase(empty.begin());
                std::uint32_t slot = 0;
                ASSERT_TRUE(g_randomTable.Enter(Address(next), slot));
                ASSERT_EQ(slot, wanted);
                slots[slot] = Address(next++);
                used.push_back(slot);
            }
            else
            {
                const std::size_t at = random() % used.size();
                const std::uint32_t slot = used[at];
                used[at] = used.back();
                used.pop_back();
                // Sometimes with a wrong idea of the slot.
                const std::uint32_t hint = random() % 50 == 0 ? static_cast<std::uint32_t>(random()) : slot;
                ASSERT_TRUE(g_randomTable.Remove(slots[slot], hint));
                if (random() % 50 == 0)
                {
                    ASSERT_FALSE(g_randomTable.Remove(slots[slot], slot)); // only once
                }
                slots[slot] = nullptr;
                empty.insert(slot);
            }
        }
        std::vector<void*> expected;
        for (void* user : slots)
        {
            if (user != nullptr)
            {
                expected.push_back(user);
            }
        }
        ASSERT_EQ(Walk(g_randomTable), expected) << phase;
    }
    ASSERT_FALSE(g_randomTable.Remove(Address(next), 0)); // never entered
}
