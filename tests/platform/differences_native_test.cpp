// Memory, modules and texts where Wine is no measure: it shows a program's written data as not yet copied for
// writing, DebugBreak ends a process by an exception of its own, a cut path has no terminator, its messages
// are its own, and its formatter pads with zeros up to the width where Windows leaves that to a precision.

#include <csignal>

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

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

TEST(NativeMessages, ExistForEveryCodeOfTheLayer)
{
    for (const DWORD code :
         {0u,   2u,   3u,   5u,   6u,   8u,   14u,  18u,  31u,  32u,  38u,  80u,   87u,   109u,  112u,
          121u, 122u, 123u, 126u, 127u, 131u, 145u, 158u, 183u, 193u, 203u, 231u,  232u,  233u,  234u,
          259u, 267u, 288u, 317u, 487u, 535u, 536u, 995u, 996u, 997u, 998u, 1004u, 1113u, 1114u, 1150u})
    {
        WCHAR text[200];
        const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                            nullptr, code, 0x400, text, 200, nullptr);
        EXPECT_GT(length, 10u) << code;
        EXPECT_EQ(Utf8(text).substr(length - 2), "\r\n");
    }
    WCHAR small[10];
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, 2, 0x400,
                             small, 10, nullptr),
              0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(NativePrintf, APrecisionOfANumberEndsPaddingWithZeros)
{
    char text[40];
    EXPECT_EQ(_snprintf(text, sizeof text, "%08.3d|%08d", 5, 5), 17);
    EXPECT_STREQ(text, "     005|00000005");
}
} // namespace
