// Drops that end too early: Windows reads on behind the block, the layer does not. And the figures of the
// layer's own system.

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <windows.h>
#include <shlobj.h>

#include "tests/support/dataobject.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

// A block of that many bytes behind the header, filled with the list.
HGLOBAL Drop(const void* list, std::size_t size, DWORD start = sizeof(DROPFILES), BOOL wide = TRUE)
{
    const HGLOBAL block = GlobalAlloc(GHND, sizeof(DROPFILES) + size);
    DROPFILES* const drop = static_cast<DROPFILES*>(GlobalLock(block));
    drop->pFiles = start;
    drop->fWide = wide;
    std::memcpy(drop + 1, list, size);
    GlobalUnlock(block);
    return block;
}

TEST(BrokenDrop, IsReadUpToItsEnd)
{
    const std::pair<HGLOBAL, UINT> blocks[] = {
        {Drop(TEXT("ab\0cd"), 10), 2}, // neither terminator
        {Drop("ab", 2, sizeof(DROPFILES), FALSE), 1},
        {Drop(TEXT("ab"), 6, 0xFFFFFFF0u), 0}, // the list begins behind the block
        {GlobalAlloc(GHND, 8), 0},
        {MakeDrop({}), 0},
        {nullptr, 0},
        {reinterpret_cast<HGLOBAL>(UINT_PTR{0x10}), 0},
    };
    for (const auto& [block, count] : blocks)
    {
        EXPECT_EQ(count, DragQueryFileW(static_cast<HDROP>(block), 0xFFFFFFFFu, nullptr, 0));
        WCHAR path[16] = {};
        EXPECT_EQ(count == 0 ? 0u : 2u, DragQueryFileW(static_cast<HDROP>(block), 0, path, 16));
        EXPECT_EQ(count == 0 ? "" : "ab", Utf8(path));
        EXPECT_EQ(0u, DragQueryFileW(static_cast<HDROP>(block), count, path, 16));
        GlobalFree(block);
    }
}

TEST(OwnSystem, SaysWindows10)
{
    OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    ASSERT_TRUE(GetVersionExW(&info));
    EXPECT_EQ(10u, info.dwMajorVersion);
    EXPECT_EQ(0u, info.dwMinorVersion);
    EXPECT_EQ(19045u, info.dwBuildNumber);
    EXPECT_EQ("", Utf8(info.szCSDVersion));
}

TEST(OwnSystem, TakesTheScreenFromTheEnvironment)
{
    const auto size = [](const char* text)
    {
        setenv("SENDORA_SCREEN", text, 1);
        return std::to_string(GetSystemMetrics(SM_CXSCREEN)) + "x" +
               std::to_string(GetSystemMetrics(SM_CYVIRTUALSCREEN));
    };
    EXPECT_EQ("1920x1080", size("1920x1080"));
    for (const char* wrong : {"", "1920", "x1080", "1920x", "1920x1080x", "-5x5", "99999999999x5"})
    {
        EXPECT_EQ("1024x768", size(wrong)) << wrong;
    }
    unsetenv("SENDORA_SCREEN");
    EXPECT_EQ("1024x768", size("1024x768"));
}
} // namespace
