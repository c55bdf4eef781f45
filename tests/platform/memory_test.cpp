// Virtual memory, aligned blocks, and the blocks of the heap.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include <malloc.h>

#include <gtest/gtest.h>

#include <windows.h>

namespace
{
constexpr SIZE_T page = 4096;

MEMORY_BASIC_INFORMATION Query(const void* address)
{
    MEMORY_BASIC_INFORMATION information = {};
    EXPECT_EQ(VirtualQuery(address, &information, sizeof information), sizeof information);
    return information;
}

int Function()
{
    return 1;
}

TEST(VirtualMemory, ShowsWhatMayBeDoneWithAnAddress)
{
    int onStack = 0;
    const auto onHeap = std::make_unique<int>(0);
    static const char constant[] = "constant";
    for (const void* address : {static_cast<const void*>(&onStack), static_cast<const void*>(onHeap.get())})
    {
        const MEMORY_BASIC_INFORMATION information = Query(address);
        EXPECT_EQ(information.State, MEM_COMMIT);
        EXPECT_EQ(information.Protect, PAGE_READWRITE);
        const auto begin = reinterpret_cast<std::uintptr_t>(information.BaseAddress);
        const auto value = reinterpret_cast<std::uintptr_t>(address);
        EXPECT_EQ(begin, value & ~(page - 1));
        EXPECT_GT(begin + information.RegionSize, value);
        EXPECT_LE(reinterpret_cast<std::uintptr_t>(information.AllocationBase), begin);
    }
    EXPECT_EQ(Query(constant).Protect, PAGE_READONLY);
    EXPECT_EQ(Query(reinterpret_cast<const void*>(&Function)).Protect, PAGE_EXECUTE_READ);

    EXPECT_EQ(Query(nullptr).State, MEM_FREE);
    MEMORY_BASIC_INFORMATION information;
    EXPECT_EQ(
        VirtualQuery(reinterpret_cast<const void*>(0xFFFF800000000000), &information, sizeof information),
        0u);
    EXPECT_EQ(VirtualQuery(&onStack, &information, 8), 0u);
}

TEST(VirtualMemory, ProtectionOfSinglePagesOfAnAlignedBlock)
{
    char* const block = static_cast<char*>(_aligned_malloc(3 * page, page));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % page, 0u);
    std::memset(block, 'x', 3 * page);
    DWORD old = 0;
    ASSERT_TRUE(VirtualProtect(block + page, page, PAGE_NOACCESS, &old));
    EXPECT_EQ(old, PAGE_READWRITE);
    EXPECT_EQ(Query(block + page - 1).Protect, PAGE_READWRITE);
    EXPECT_EQ(Query(block + page).State, MEM_COMMIT);
    EXPECT_EQ(Query(block + page).Protect, PAGE_NOACCESS);
    EXPECT_EQ(Query(block + page).RegionSize, page);
    EXPECT_EQ(Query(block + 2 * page).Protect, PAGE_READWRITE);

    // A range that begins and ends inside pages means the whole pages.
    ASSERT_TRUE(VirtualProtect(block + page - 1, 2, PAGE_READONLY, &old));
    EXPECT_EQ(old, PAGE_READWRITE) << "of the first page";
    EXPECT_EQ(Query(block).Protect, PAGE_READONLY);
    EXPECT_EQ(Query(block + page).Protect, PAGE_READONLY);
    ASSERT_TRUE(VirtualProtect(block, 2 * page, PAGE_READWRITE, &old));
    EXPECT_EQ(old, PAGE_READONLY);
    EXPECT_EQ(block[page], 'x') << "protection must not change what is there";
    _aligned_free(block);
}

TEST(VirtualMemory, FreedRangesCannotBeProtected)
{
    void* const range = VirtualAlloc(nullptr, page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    ASSERT_NE(range, nullptr);
    EXPECT_EQ(Query(range).Protect, PAGE_READWRITE);
    EXPECT_TRUE(VirtualFree(range, 0, MEM_RELEASE));
    EXPECT_EQ(Query(range).State, MEM_FREE);
    DWORD old = 0;
    EXPECT_FALSE(VirtualProtect(range, page, PAGE_READONLY, &old));
}

TEST(AlignedBlocks, HaveTheAlignmentAskedFor)
{
    for (const SIZE_T alignment : {SIZE_T{1}, SIZE_T{16}, SIZE_T{256}, SIZE_T{65536}})
    {
        void* const block = _aligned_malloc(100, alignment);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0u);
        std::memset(block, 1, 100);
        _aligned_free(block);
    }
    _aligned_free(nullptr);
}

TEST(HeapBlocks, AreClearedOnDemand)
{
    const HANDLE heap = GetProcessHeap();
    auto* const block = static_cast<unsigned char*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, 1000));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::count(block, block + 1000, 0), 1000);
    EXPECT_TRUE(HeapFree(heap, 0, block));
    void* const empty = HeapAlloc(heap, 0, 0);
    EXPECT_NE(empty, nullptr);
    EXPECT_TRUE(HeapFree(heap, 0, empty));
}

TEST(GlobalBlocks, AreReachedByLockingOrFixed)
{
    const HGLOBAL block = GlobalAlloc(GHND, 100);
    ASSERT_NE(block, nullptr);
    auto* const data = static_cast<char*>(GlobalLock(block));
    ASSERT_NE(data, nullptr);
    EXPECT_NE(static_cast<void*>(data), block);
    EXPECT_EQ(data[99], 0);
    EXPECT_EQ(GlobalLock(block), data);
    EXPECT_TRUE(GlobalUnlock(block));
    SetLastError(12345);
    EXPECT_FALSE(GlobalUnlock(block));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS) << "the last lock";
    EXPECT_FALSE(GlobalUnlock(block));
    EXPECT_EQ(GetLastError(), 158u); // ERROR_NOT_LOCKED
    EXPECT_EQ(GlobalFree(block), nullptr);

    const HGLOBAL fixed = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, 10);
    EXPECT_EQ(GlobalLock(fixed), fixed);
    EXPECT_EQ(GlobalFree(fixed), nullptr);
}
} // namespace
