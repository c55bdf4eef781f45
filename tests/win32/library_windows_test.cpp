// Functions that are found, and the release of a library. The native layer's system libraries export nothing
// and are never unloaded.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/tracefile.h"
#include "win32/library.h"

namespace
{
TEST(LoadedLibrary, GivesItsFunctionsUntilItsOwnerGoes)
{
    const sndxtest::TraceCapture trace;
    const WCHAR* const name = TEXT("lz32.dll"); // nothing else here uses it
    ASSERT_EQ(nullptr, GetModuleHandleW(name));
    {
        const LLibrary library("lz32.dll");
        EXPECT_NE(nullptr, GetModuleHandleW(name));
        EXPECT_NE(nullptr, library.GetFunction("LZInit"));
        const LLibrary kernel("kernel32.dll");
        const auto processId = LFunctionCast<DWORD(WINAPI*)()>(kernel.GetFunction("GetCurrentProcessId"));
        ASSERT_NE(nullptr, processId);
        EXPECT_EQ(GetCurrentProcessId(), processId());
    }
    EXPECT_EQ(nullptr, GetModuleHandleW(name));
    EXPECT_THAT(trace.Texts(), ::testing::IsEmpty());
}
} // namespace
