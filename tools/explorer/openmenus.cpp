#include "tools/explorer/openmenus.h"

#include <algorithm>

#include "tools/text.h"

namespace sndxtools
{
namespace
{
constexpr WCHAR menuWindowClass[] = L"#32768";

BOOL CALLBACK CollectMenu(HWND window, LPARAM list)
{
    WCHAR name[16] = {};
    GetClassNameW(window, name, static_cast<int>(std::size(name)));
    if (WideView(name) == menuWindowClass && IsWindowVisible(window))
    {
        reinterpret_cast<std::vector<HMENU>*>(list)->push_back(
            reinterpret_cast<HMENU>(SendMessageW(window, MN_GETHMENU, 0, 0)));
    }
    return TRUE;
}

void Collect(HMENU menu, const EntryPath& before, std::vector<EntryPath>& entries)
{
    for (int position = 0; position < GetMenuItemCount(menu); ++position)
    {
        if ((EntryInfo(menu, position).fType & MFT_SEPARATOR) != 0)
        {
            continue;
        }
        EntryPath path = before;
        path.push_back(position);
        entries.push_back(path);
        if (const HMENU submenu = GetSubMenu(menu, position))
        {
            Collect(submenu, path, entries);
        }
    }
}
} // namespace

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
        if ((EntryInfo(menu, position).fState & MFS_HILITE) != 0)
        {
            return position;
        }
    }
    return -1;
}

MENUITEMINFOW EntryInfo(HMENU menu, int position)
{
    MENUITEMINFOW info = {};
    info.cbSize = sizeof info;
    info.fMask = MIIM_FTYPE | MIIM_STATE | MIIM_ID | MIIM_SUBMENU;
    GetMenuItemInfoW(menu, static_cast<UINT>(position), TRUE, &info);
    return info;
}

std::string EntryText(HMENU menu, int position)
{
    WCHAR text[MAX_PATH] = {};
    GetMenuStringW(menu, static_cast<UINT>(position), text, MAX_PATH, MF_BYPOSITION);
    std::string result = Utf8(text);
    std::erase(result, '&');
    return result;
}

std::vector<EntryPath> AllEntries(HMENU root)
{
    std::vector<EntryPath> entries;
    Collect(root, {}, entries);
    return entries;
}

HMENU MenuOf(HMENU root, const EntryPath& path)
{
    HMENU menu = root;
    for (std::size_t i = 0; i + 1 < path.size(); ++i)
    {
        menu = GetSubMenu(menu, path[i]);
    }
    return menu;
}

EntryPath FindEntry(HMENU root, const std::string& textOrNumber)
{
    const std::vector<EntryPath> entries = AllEntries(root);
    unsigned long number = 0;
    if (ParseNumber(textOrNumber, static_cast<unsigned long>(entries.size()), number) && number > 0)
    {
        return entries[number - 1];
    }
    for (const EntryPath& path : entries)
    {
        if (EntryText(MenuOf(root, path), path.back()) == textOrNumber)
        {
            return path;
        }
    }
    return {};
}
} // namespace sndxtools
