// Drops that end too early: Windows reads on behind the block, the layer does not. The errors of invalid
// menus (Wine leaves the last error alone), and the figures of the layer's own system.

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <windows.h>
#include <shlobj.h>
#include <sndxposix.h>

#include "tests/support/dataobject.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

UINT Count(HGLOBAL block)
{
    return DragQueryFileW(static_cast<HDROP>(block), 0xFFFFFFFFu, nullptr, 0);
}

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
    WCHAR path[16] = {};
    HGLOBAL block = Drop(TEXT("ab\0cd"), 10); // neither terminator
    EXPECT_EQ(2u, Count(block));
    EXPECT_EQ(2u, DragQueryFileW(static_cast<HDROP>(block), 1, path, 16));
    EXPECT_EQ("cd", Utf8(path));
    EXPECT_EQ(0u, DragQueryFileW(static_cast<HDROP>(block), 2, path, 16));
    GlobalFree(block);

    block = Drop("ab", 2, sizeof(DROPFILES), FALSE);
    EXPECT_EQ(1u, Count(block));
    EXPECT_EQ(2u, DragQueryFileW(static_cast<HDROP>(block), 0, path, 16));
    GlobalFree(block);

    block = Drop(TEXT("ab"), 6, 0xFFFFFFF0u);
    EXPECT_EQ(0u, Count(block));
    GlobalFree(block);
    block = GlobalAlloc(GHND, 8);
    EXPECT_EQ(0u, Count(block));
    GlobalFree(block);
    block = MakeDrop({});
    EXPECT_EQ(0u, Count(block));
    GlobalFree(block);
    EXPECT_EQ(0u, Count(nullptr));
    EXPECT_EQ(0u, Count(reinterpret_cast<HGLOBAL>(UINT_PTR{0x10})));

    block = MakeDrop({"a"});
    sndxposix::FailCall("DragQueryFileW", 5);
    EXPECT_EQ(0u, Count(block));
    EXPECT_EQ(1u, Count(block));
    GlobalFree(block);
}

TEST(InvalidMenu, LeavesItsError)
{
    const HMENU gone = CreateMenu();
    ASSERT_TRUE(DestroyMenu(gone));
    SetLastError(0);
    EXPECT_EQ(-1, GetMenuItemCount(gone));
    EXPECT_EQ(ERROR_INVALID_MENU_HANDLE, GetLastError());
    const HMENU menu = CreateMenu();
    SetLastError(0);
    EXPECT_FALSE(InsertMenuW(menu, 0, MF_BYPOSITION | MF_POPUP, reinterpret_cast<UINT_PTR>(gone), TEXT("x")));
    EXPECT_EQ(ERROR_INVALID_MENU_HANDLE, GetLastError());
    EXPECT_EQ(0, GetMenuItemCount(menu));
    // A menu within itself ends neither in a search nor in its destruction.
    ASSERT_TRUE(AppendMenuW(menu, MF_POPUP, reinterpret_cast<UINT_PTR>(menu), TEXT("x")));
    EXPECT_EQ(0, GetMenuStringW(menu, 5, nullptr, 0, MF_BYCOMMAND));
    EXPECT_TRUE(DestroyMenu(menu));

    sndxposix::FailCall("CreatePopupMenu", 8);
    EXPECT_EQ(nullptr, CreatePopupMenu());
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
    sndxposix::FailCall("GlobalMemoryStatusEx", 8);
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof(status);
    EXPECT_FALSE(GlobalMemoryStatusEx(&status));
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
