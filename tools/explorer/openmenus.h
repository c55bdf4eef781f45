#pragma once
// Looking at menus that are open on the screen, and finding entries in them.

#include <string>
#include <vector>

#include <windows.h>

namespace sndxtools
{
// The open popup menus of this thread, from the given one outwards; none when that is not open. They are
// taken from their windows, so what is in the list is really to be seen.
std::vector<HMENU> OpenMenus(HMENU root);

// The position of the highlighted entry, -1 for none.
int Highlighted(HMENU menu);

// Kind, state, identifier and submenu.
MENUITEMINFOW EntryInfo(HMENU menu, int position);
std::string EntryText(HMENU menu, int position); // without the mark of its access key

// The way to an entry: its position in the menu, or in a submenu the positions one after the other.
using EntryPath = std::vector<int>;

// Every entry of a menu and its submenus, each before those of its submenu, without separators.
std::vector<EntryPath> AllEntries(HMENU root);

// The menu that the entry is in.
HMENU MenuOf(HMENU root, const EntryPath& path);

// By its text, or by its number from 1 in AllEntries. Empty when there is none.
EntryPath FindEntry(HMENU root, const std::string& textOrNumber);
} // namespace sndxtools
