// Menus as a shell extension and its host use them.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

std::string ItemText(HMENU menu, UINT position)
{
    WCHAR text[64] = {};
    GetMenuStringW(menu, position, text, 64, MF_BYPOSITION);
    return Utf8(text);
}

bool Insert(HMENU menu, UINT position, UINT_PTR id, const char* text, UINT flags = 0)
{
    return InsertMenuW(menu, position, MF_BYPOSITION | flags, id, Wide(text).c_str()) != FALSE;
}

class Menu : public ::testing::Test
{
  protected:
    ~Menu() override { DestroyMenu(menu_); }
    HMENU menu_ = CreatePopupMenu();
};

TEST_F(Menu, ItemsStandWhereTheyWereInserted)
{
    ASSERT_NE(nullptr, menu_);
    EXPECT_EQ(0, GetMenuItemCount(menu_));
    EXPECT_TRUE(Insert(menu_, 0, 100, "first"));
    EXPECT_TRUE(Insert(menu_, 1, 101, "L\xC3\xB6schen"));
    EXPECT_TRUE(Insert(menu_, 0, 102, "before all"));
    EXPECT_TRUE(Insert(menu_, 77, 103, "behind the end"));
    EXPECT_TRUE(Insert(menu_, 1, 0, "not shown", MF_SEPARATOR));
    EXPECT_TRUE(AppendMenuW(menu_, MF_STRING, 104, TEXT("last")));

    ASSERT_EQ(6, GetMenuItemCount(menu_));
    const std::vector<UINT> ids = {102, 0, 100, 101, 103, 104};
    for (int position = 0; position < 6; ++position)
    {
        EXPECT_EQ(ids[static_cast<std::size_t>(position)], GetMenuItemID(menu_, position));
    }
    EXPECT_EQ("L\xC3\xB6schen", ItemText(menu_, 3));
    EXPECT_EQ("", ItemText(menu_, 1));
    EXPECT_EQ(0u, GetMenuState(menu_, 0, MF_BYPOSITION));
    EXPECT_NE(0u, GetMenuState(menu_, 1, MF_BYPOSITION) & MF_SEPARATOR);
    EXPECT_EQ(0xFFFFFFFFu, GetMenuState(menu_, 6, MF_BYPOSITION));
    EXPECT_EQ(0xFFFFFFFFu, GetMenuItemID(menu_, 6));
    EXPECT_EQ(0xFFFFFFFFu, GetMenuItemID(menu_, -1));
    EXPECT_EQ(nullptr, GetSubMenu(menu_, 0));
    EXPECT_EQ(nullptr, GetSubMenu(menu_, 6));
}

TEST_F(Menu, TextsAreCutToTheBuffer)
{
    ASSERT_TRUE(Insert(menu_, 0, 100, "Hochladen"));
    WCHAR text[8] = {};
    EXPECT_EQ(9, GetMenuStringW(menu_, 0, nullptr, 0, MF_BYPOSITION));
    EXPECT_EQ(4, GetMenuStringW(menu_, 0, text, 5, MF_BYPOSITION));
    EXPECT_EQ("Hoch", Utf8(text));
    EXPECT_EQ(4, GetMenuStringW(menu_, 100, text, 5, MF_BYCOMMAND));
    text[0] = WCHAR{'#'};
    EXPECT_EQ(0, GetMenuStringW(menu_, 101, text, 5, MF_BYCOMMAND));
    EXPECT_EQ(0, GetMenuStringW(menu_, 1, text, 5, MF_BYPOSITION));
}

TEST_F(Menu, SubMenusBelongToTheirMenu)
{
    HMENU popup = CreatePopupMenu();
    ASSERT_TRUE(Insert(popup, 0, 200, "one"));
    ASSERT_TRUE(Insert(popup, 1, 201, "two"));
    ASSERT_TRUE(Insert(menu_, 0, reinterpret_cast<UINT_PTR>(popup), "Sendora", MF_POPUP));
    EXPECT_EQ(popup, GetSubMenu(menu_, 0));
    EXPECT_EQ("Sendora", ItemText(menu_, 0));
    EXPECT_EQ(0xFFFFFFFFu, GetMenuItemID(menu_, 0));
    const UINT state = GetMenuState(menu_, 0, MF_BYPOSITION);
    EXPECT_NE(0u, state & MF_POPUP);
    EXPECT_EQ(2u, state >> 8 & 0xFF);

    // Commands are found in sub-menus, too, and an item can be put before one.
    WCHAR text[8] = {};
    EXPECT_EQ(3, GetMenuStringW(menu_, 201, text, 8, MF_BYCOMMAND));
    EXPECT_TRUE(InsertMenuW(menu_, 201, MF_BYCOMMAND, 202, TEXT("between")));
    ASSERT_EQ(3, GetMenuItemCount(popup));
    EXPECT_EQ(202u, GetMenuItemID(popup, 1));

    HMENU outer = CreateMenu();
    ASSERT_TRUE(AppendMenuW(outer, MF_POPUP, reinterpret_cast<UINT_PTR>(menu_), TEXT("outer")));
    EXPECT_TRUE(DestroyMenu(outer));
    for (HMENU gone : {outer, menu_, popup})
    {
        EXPECT_EQ(-1, GetMenuItemCount(gone));
    }
}

TEST_F(Menu, InvalidMenusAreRefused)
{
    HMENU gone = CreateMenu();
    ASSERT_TRUE(DestroyMenu(gone));
    for (HMENU invalid : {gone, HMENU{}, reinterpret_cast<HMENU>(UINT_PTR{0x7777})})
    {
        EXPECT_FALSE(DestroyMenu(invalid));
        EXPECT_FALSE(Insert(invalid, 0, 1, "item"));
        EXPECT_EQ(-1, GetMenuItemCount(invalid));
        EXPECT_EQ(nullptr, GetSubMenu(invalid, 0));
        EXPECT_EQ(0xFFFFFFFFu, GetMenuState(invalid, 0, MF_BYPOSITION));
    }
}
} // namespace
