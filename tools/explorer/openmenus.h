#pragma once
// Looking at menus that are open on the screen, and finding entries in them.

#include <optional>
#include <string>
#include <vector>

#include <windows.h>

namespace sndxtools
{
// An entry of a menu or of one of its submenus, as it was when it was asked for.
struct MenuEntry
{
    HMENU menu; // that it is in
    int position;
    MENUITEMINFOW info; // kind, state, identifier and submenu
    std::string text;   // without the mark of its access key
};

// Every entry of a menu and its submenus, each before those of its submenu, without separators.
std::vector<MenuEntry> AllEntries(HMENU root);

// By its text, or by its number from 1 in AllEntries.
std::optional<MenuEntry> FindEntry(HMENU root, const std::string& textOrNumber);

// The open popup menus of this thread, from the given one outwards; none when that is not open. They are
// taken from their windows, so what is in the list is really to be seen.
std::vector<HMENU> OpenMenus(HMENU root);

// The position of the highlighted entry, -1 for none.
int Highlighted(HMENU menu);
} // namespace sndxtools
