// Modules where Wine is no measure: it leaves a cut path without terminator, and its own libraries export
// what programs look for to find out about it.

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

TEST(NativeModules, CutPathsAreTerminated)
{
    WCHAR buffer[8];
    for (WCHAR& unit : buffer)
    {
        unit = u'#';
    }
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer, 6), 6u);
    EXPECT_EQ(buffer[5], 0);
    EXPECT_EQ(buffer[6], u'#');
    EXPECT_EQ(Utf8(buffer).size(), 5u);
}

TEST(NativeModules, ProbesForWineFindNothing)
{
    const HMODULE kernel = LoadLibraryA("kernel32.dll");
    EXPECT_EQ(GetProcAddress(kernel, "wine_get_unix_file_name"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(GetModuleHandleW(TEXT("ntdll.dll")), "wine_get_version"), nullptr);
    EXPECT_TRUE(FreeLibrary(kernel));
}
} // namespace
