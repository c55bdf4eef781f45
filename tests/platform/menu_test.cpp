// Menus as a shell extension and its host use them.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

constexpr UINT none = 0xFFFFFFFF;

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
    EXPECT_EQ(0, GetMenuItemCount(menu_));
    EXPECT_TRUE(Insert(menu_, 0, 100, "first"));
    EXPECT_TRUE(Insert(menu_, 1, 101, "L\u00F6schen"));
    EXPECT_TRUE(Insert(menu_, 0, 102, "before all"));
    EXPECT_TRUE(Insert(menu_, 77, 103, "behind the end"));
    EXPECT_TRUE(Insert(menu_, 1, 0, "not shown", MF_SEPARATOR));
    std::vector<UINT> ids;
    for (int position = 0; position < GetMenuItemCount(menu_); ++position)
    {
        ids.push_back(GetMenuItemID(menu_, position));
    }
    EXPECT_EQ((std::vector<UINT>{102, 0, 100, 101, 103}), ids);
    EXPECT_EQ(0u, GetMenuState(menu_, 0, MF_BYPOSITION));
    EXPECT_NE(0u, GetMenuState(menu_, 1, MF_BYPOSITION) & MF_SEPARATOR);
    EXPECT_EQ(none, GetMenuState(menu_, 5, MF_BYPOSITION));
    EXPECT_EQ(none, GetMenuItemID(menu_, 5));
    EXPECT_EQ(none, GetMenuItemID(menu_, -1));
    EXPECT_EQ(nullptr, GetSubMenu(menu_, 0));

    WCHAR text[16] = {};
    EXPECT_EQ(7, GetMenuStringW(menu_, 3, nullptr, 0, MF_BYPOSITION));
    EXPECT_EQ(7, GetMenuStringW(menu_, 3, text, 16, MF_BYPOSITION));
    EXPECT_EQ("L\u00F6schen", Utf8(text));
    EXPECT_EQ(2, GetMenuStringW(menu_, 101, text, 3, MF_BYCOMMAND));
    EXPECT_EQ("L\u00F6", Utf8(text)) << "cut to the buffer";
    EXPECT_EQ(0, GetMenuStringW(menu_, 1, text, 16, MF_BYPOSITION)) << "a separator";
    EXPECT_EQ(0, GetMenuStringW(menu_, 5, text, 16, MF_BYPOSITION));
    EXPECT_EQ(0, GetMenuStringW(menu_, 999, text, 16, MF_BYCOMMAND));
}

TEST_F(Menu, SubMenusBelongToTheirMenu)
{
    HMENU popup = CreatePopupMenu();
    ASSERT_TRUE(Insert(popup, 0, 200, "one"));
    ASSERT_TRUE(Insert(popup, 1, 201, "two"));
    ASSERT_TRUE(Insert(menu_, 0, reinterpret_cast<UINT_PTR>(popup), "Sendora", MF_POPUP));
    EXPECT_EQ(popup, GetSubMenu(menu_, 0));
    EXPECT_EQ(none, GetMenuItemID(menu_, 0));
    const UINT state = GetMenuState(menu_, 0, MF_BYPOSITION);
    EXPECT_NE(0u, state & MF_POPUP);
    EXPECT_EQ(2u, state >> 8 & 0xFF) << "its number of items";
    EXPECT_EQ(3, GetMenuStringW(menu_, 201, nullptr, 0, MF_BYCOMMAND)) << "found in sub-menus, too";
    EXPECT_TRUE(DestroyMenu(menu_));
    for (HMENU gone : {menu_, popup, HMENU{}, reinterpret_cast<HMENU>(UINT_PTR{0x7777})})
    {
        EXPECT_FALSE(DestroyMenu(gone));
        EXPECT_FALSE(Insert(gone, 0, 1, "item"));
        EXPECT_EQ(-1, GetMenuItemCount(gone));
        EXPECT_EQ(nullptr, GetSubMenu(gone, 0));
        EXPECT_EQ(none, GetMenuState(gone, 0, MF_BYPOSITION));
    }
}
} // namespace
