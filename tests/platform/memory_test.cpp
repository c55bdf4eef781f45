// Virtual memory, aligned blocks, and the blocks of the heap.

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
    EXPECT_EQ(Query(nullptr).Protect, PAGE_NOACCESS);
    EXPECT_EQ(Query(reinterpret_cast<const void*>(8)).State, MEM_FREE);
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

TEST(VirtualMemory, RefusesSenselessProtection)
{
    char* const block = static_cast<char*>(_aligned_malloc(page, page));
    DWORD old = 0;
    EXPECT_FALSE(VirtualProtect(block, page, 0x12345, &old));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    void* const gone = VirtualAlloc(nullptr, page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    ASSERT_TRUE(VirtualFree(gone, 0, MEM_RELEASE));
    EXPECT_FALSE(VirtualProtect(gone, page, PAGE_READONLY, &old));
    EXPECT_FALSE(VirtualProtect(block, page, PAGE_READONLY, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_NOACCESS);
    EXPECT_EQ(Query(block).Protect, PAGE_READWRITE);
    _aligned_free(block);
}

TEST(VirtualMemory, IsReservedCommittedAndReleased)
{
    char* const range = static_cast<char*>(VirtualAlloc(nullptr, 16 * page, MEM_RESERVE, PAGE_READWRITE));
    ASSERT_NE(range, nullptr);
    EXPECT_NE(Query(range).State, MEM_FREE);
    EXPECT_NE(Query(range).Protect, PAGE_READWRITE);
    ASSERT_EQ(VirtualAlloc(range + 2 * page, page, MEM_COMMIT, PAGE_READWRITE), range + 2 * page);
    EXPECT_EQ(Query(range + 2 * page).Protect, PAGE_READWRITE);
    EXPECT_EQ(Query(range + 2 * page).RegionSize, page);
    range[2 * page] = 'x';
    EXPECT_TRUE(VirtualFree(range + 2 * page, page, MEM_DECOMMIT));
    EXPECT_NE(Query(range + 2 * page).Protect, PAGE_READWRITE);
    ASSERT_NE(VirtualAlloc(range + 2 * page, page, MEM_COMMIT, PAGE_READWRITE), nullptr);
    EXPECT_EQ(range[2 * page], 0) << "a page committed again is new";
    EXPECT_EQ(VirtualAlloc(range + 15 * page, 2 * page, MEM_COMMIT, PAGE_READWRITE), nullptr);

    EXPECT_FALSE(VirtualFree(range, 16 * page, MEM_RELEASE));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(VirtualFree(range, 0, MEM_RELEASE));
    EXPECT_EQ(Query(range).State, MEM_FREE);
    EXPECT_FALSE(VirtualFree(range, 0, MEM_RELEASE));
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
    ASSERT_NE(heap, nullptr);
    auto* const block = static_cast<unsigned char*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, 1000));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 1000; ++i)
    {
        ASSERT_EQ(block[i], 0);
    }
    EXPECT_TRUE(HeapFree(heap, 0, block));
    void* const empty = HeapAlloc(heap, 0, 0);
    EXPECT_NE(empty, nullptr);
    EXPECT_TRUE(HeapFree(heap, 0, empty));
}

TEST(GlobalBlocks, AreReachedByLocking)
{
    const HGLOBAL block = GlobalAlloc(GHND, 100);
    ASSERT_NE(block, nullptr);
    EXPECT_GE(GlobalSize(block), 100u);
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
}

TEST(GlobalBlocks, WithAFixedPlaceAreTheirOwnAddress)
{
    const HGLOBAL block = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, 10);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(GlobalLock(block), block);
    EXPECT_EQ(GlobalFree(block), nullptr);
    const HLOCAL local = LocalAlloc(LMEM_ZEROINIT, 10);
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(static_cast<char*>(local)[9], 0);
    EXPECT_EQ(LocalFree(local), nullptr);
    EXPECT_EQ(LocalFree(nullptr), nullptr);
}
} // namespace
