// Virtual memory and aligned blocks.

#include <cstdint>
#include <cstring>
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
    for (const int* address : {&onStack, onHeap.get()})
    {
        const MEMORY_BASIC_INFORMATION information = Query(address);
        EXPECT_EQ(information.State, MEM_COMMIT);
        EXPECT_EQ(information.Protect, PAGE_READWRITE);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(information.BaseAddress),
                  reinterpret_cast<std::uintptr_t>(address) & ~(page - 1));
    }
    EXPECT_EQ(Query(constant).Protect, PAGE_READONLY);
    EXPECT_EQ(Query(reinterpret_cast<const void*>(&Function)).Protect, PAGE_EXECUTE_READ);
    EXPECT_EQ(Query(nullptr).State, MEM_FREE);
    MEMORY_BASIC_INFORMATION information;
    const auto* const kernels = reinterpret_cast<const void*>(0xFFFF800000000000);
    EXPECT_EQ(VirtualQuery(kernels, &information, sizeof information), 0u);
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
    ASSERT_TRUE(VirtualProtect(block + page - 1, 2, PAGE_READWRITE, &old));
    EXPECT_EQ(old, PAGE_READWRITE) << "of the first page";
    EXPECT_EQ(block[page], 'x') << "protection must not change what is there";
    _aligned_free(block);

    void* const range = VirtualAlloc(nullptr, page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    EXPECT_EQ(Query(range).Protect, PAGE_READWRITE);
    EXPECT_TRUE(VirtualFree(range, 0, MEM_RELEASE));
    EXPECT_FALSE(VirtualProtect(range, page, PAGE_READONLY, &old));
}

} // namespace
