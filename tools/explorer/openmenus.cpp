#include "tools/explorer/openmenus.h"

#include <algorithm>

#include "tools/text.h"

namespace sndxtools
{
namespace
{
BOOL CALLBACK CollectMenu(HWND window, LPARAM list)
{
    WCHAR name[16] = {};
    GetClassNameW(window, name, static_cast<int>(std::size(name)));
    if (WideView(name) == L"#32768" && IsWindowVisible(window)) // the class of menus
    {
        reinterpret_cast<std::vector<HMENU>*>(list)->push_back(
            reinterpret_cast<HMENU>(SendMessageW(window, MN_GETHMENU, 0, 0)));
    }
    return TRUE;
}

void Collect(HMENU menu, std::vector<MenuEntry>& entries)
{
    for (int position = 0; position < GetMenuItemCount(menu); ++position)
    {
        WCHAR text[MAX_PATH] = {};
        MENUITEMINFOW info = {};
        info.cbSize = sizeof info;
        info.fMask = MIIM_FTYPE | MIIM_STATE | MIIM_ID | MIIM_SUBMENU | MIIM_STRING;
        info.dwTypeData = text;
        info.cch = MAX_PATH;
        GetMenuItemInfoW(menu, static_cast<UINT>(position), TRUE, &info);
        info.dwTypeData = nullptr; // the buffer ends here
        if ((info.fType & MFT_SEPARATOR) == 0)
        {
            entries.push_back({menu, position, info, Utf8(text)});
            std::erase(entries.back().text, '&');
            Collect(info.hSubMenu, entries);
        }
    }
}
} // namespace

std::vector<MenuEntry> AllEntries(HMENU root)
{
    std::vector<MenuEntry> entries;
    Collect(root, entries);
    return entries;
}

std::optional<MenuEntry> FindEntry(HMENU root, const std::string& textOrNumber)
{
    int number = 0;
    for (const MenuEntry& entry : AllEntries(root))
    {
        if (std::to_string(++number) == textOrNumber || entry.text == textOrNumber)
        {
            return entry;
        }
    }
    return std::nullopt;
}

std::vector<HMENU> OpenMenus(HMENU root)
{
    std::vector<HMENU> visible;
    EnumThreadWindows(GetCurrentThreadId(), CollectMenu, reinterpret_cast<LPARAM>(&visible));
    std::vector<HMENU> open;
    for (HMENU menu = root; menu != nullptr && std::ranges::find(visible, menu) != visible.end();)
    {
        open.push_back(menu);
        const int position = Highlighted(menu);
        menu = position < 0 ? nullptr : GetSubMenu(menu, position);
    }
    return open;
}

int Highlighted(HMENU menu)
{
    for (int position = 0; position < GetMenuItemCount(menu); ++position)
    {
        if ((GetMenuState(menu, static_cast<UINT>(position), MF_BYPOSITION) & MF_HILITE) != 0)
        {
            return position;
        }
    }
    return -1;
}
} // namespace sndxtools
