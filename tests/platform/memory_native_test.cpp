// Memory where Wine is no measure: it shows a program's written data as not yet copied for writing, refuses
// protection of free space with another error, and DebugBreak ends a process by an exception of its own.

#include <csignal>

#include <gtest/gtest.h>

#include <windows.h>

namespace
{
TEST(NativeMemory, DataOfTheProgramIsWriteable)
{
    static int data = 1;
    MEMORY_BASIC_INFORMATION information;
    ASSERT_EQ(VirtualQuery(&data, &information, sizeof information), sizeof information);
    EXPECT_EQ(information.Protect, PAGE_READWRITE);
}

TEST(NativeMemory, DebugBreakStopsTheProcess)
{
    EXPECT_EXIT(DebugBreak(), testing::KilledBySignal(SIGTRAP), "");
}

TEST(NativeMemory, FreeSpaceHasNoProtection)
{
    void* const gone = VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    ASSERT_TRUE(VirtualFree(gone, 0, MEM_RELEASE));
    DWORD old = 0;
    EXPECT_FALSE(VirtualProtect(gone, 4096, PAGE_READONLY, &old));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
}
} // namespace
