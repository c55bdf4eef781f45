// Menus: lists of items that may own further menus.

#include "sndx/menu.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "posix/guarded.h"
#include "posix/internal.h"

namespace sndxposix
{
namespace
{
// Bounds the search through sub-menus; a menu that was put below itself has no end.
constexpr int maximumDepth = 25;

struct MenuItem
{
    UINT flags = 0;
    UINT_PTR id = 0;
    HMENU popup = nullptr;
    std::u16string text;
};

using Menu = std::vector<MenuItem>;

struct MenuTable
{
    std::mutex mutex;
    std::map<HMENU, Menu> menus;
    UINT_PTR next = 0;
};

// Never destroyed, as the other tables of the layer.
MenuTable& Table()
{
    static MenuTable& table = *new MenuTable;
    return table;
}

// Looks a menu up, under the table's lock; null, with the last error set, for what is no menu.
Menu* FindMenu(MenuTable& table, HMENU handle)
{
    const auto found = table.menus.find(handle);
    if (found == table.menus.end())
    {
        SetLastError(ERROR_INVALID_MENU_HANDLE);
        return nullptr;
    }
    return &found->second;
}

struct ItemPlace
{
    Menu* menu = nullptr;
    std::size_t position = 0;
};

// By command, sub-menus are searched as well, each where it stands.
ItemPlace FindCommand(MenuTable& table, Menu& menu, UINT id, int depth = 0)
{
    for (std::size_t position = 0; position < menu.size(); ++position)
    {
        const MenuItem& item = menu[position];
        if (item.popup == nullptr && item.id == id)
        {
            return {&menu, position};
        }
        const auto popup = table.menus.find(item.popup);
        if (popup != table.menus.end() && depth < maximumDepth)
        {
            const ItemPlace place = FindCommand(table, popup->second, id, depth + 1);
            if (place.menu != nullptr)
            {
                return place;
            }
        }
    }
    return {};
}

// Runs use(item) on an item; `failure` when the menu or the item is missing.
template <class Result, class Use>
Result WithItem(HMENU handle, UINT item, UINT flags, Result failure, Use&& use)
{
    return Guarded(failure,
                   [&]
                   {
                       MenuTable& table = Table();
                       const std::lock_guard lock(table.mutex);
                       Menu* const menu = FindMenu(table, handle);
                       if (menu == nullptr)
                       {
                           return failure;
                       }
                       const ItemPlace place = (flags & MF_BYPOSITION) != 0 ? ItemPlace{menu, item}
                                                                            : FindCommand(table, *menu, item);
                       if (place.menu == nullptr || place.position >= place.menu->size())
                       {
                           SetLastError(ERROR_MENU_ITEM_NOT_FOUND);
                           return failure;
                       }
                       return use(table, (*place.menu)[place.position]);
                   });
}

HMENU NewMenu()
{
    return Guarded(HMENU{},
                   []
                   {
                       MenuTable& table = Table();
                       const std::lock_guard lock(table.mutex);
                       // Values are not used twice, so that a destroyed menu stays invalid.
                       const HMENU handle = reinterpret_cast<HMENU>(0x10001 + 2 * table.next++);
                       table.menus.try_emplace(handle);
                       return handle;
                   });
}

void Destroy(MenuTable& table, HMENU handle)
{
    const auto found = table.menus.find(handle);
    if (found == table.menus.end())
    {
        return;
    }
    const Menu menu = std::move(found->second);
    table.menus.erase(found);
    for (const MenuItem& item : menu)
    {
        Destroy(table, item.popup);
    }
}
} // namespace
} // namespace sndxposix

using namespace sndxposix;

extern "C" HMENU WINAPI CreateMenu()
{
    return NewMenu();
}

extern "C" HMENU WINAPI CreatePopupMenu()
{
    return FailNextCall("CreatePopupMenu") ? nullptr : NewMenu();
}

extern "C" BOOL WINAPI DestroyMenu(HMENU menu)
{
    if (FailNextCall("DestroyMenu"))
    {
        return FALSE;
    }
    MenuTable& table = Table();
    const std::lock_guard lock(table.mutex);
    if (FindMenu(table, menu) == nullptr)
    {
        return FALSE;
    }
    Destroy(table, menu);
    return TRUE;
}

extern "C" BOOL WINAPI InsertMenuW(HMENU handle, UINT position, UINT flags, UINT_PTR id, LPCWSTR text)
{
    if (FailNextCall("InsertMenuW"))
    {
        return FALSE;
    }
    return Guarded(BOOL{FALSE},
                   [&]
                   {
                       MenuTable& table = Table();
                       const std::lock_guard lock(table.mutex);
                       Menu* const menu = FindMenu(table, handle);
                       if (menu == nullptr)
                       {
                           return FALSE;
                       }
                       MenuItem item;
                       item.flags = flags & (MF_GRAYED | MF_POPUP | MF_SEPARATOR);
                       item.id = id;
                       if ((flags & MF_POPUP) != 0)
                       {
                           item.popup = reinterpret_cast<HMENU>(id);
                           if (FindMenu(table, item.popup) == nullptr)
                           {
                               return FALSE;
                           }
                       }
                       if ((flags & MF_SEPARATOR) == 0 && text != nullptr)
                       {
                           item.text = text;
                       }
                       ItemPlace place = {menu, position};
                       if ((flags & MF_BYPOSITION) == 0 && position != 0xFFFFFFFFu)
                       {
                           place = FindCommand(table, *menu, position);
                           if (place.menu == nullptr)
                           {
                               SetLastError(ERROR_MENU_ITEM_NOT_FOUND);
                               return FALSE;
                           }
                       }
                       const std::size_t at = std::min(place.position, place.menu->size());
                       place.menu->insert(place.menu->begin() + static_cast<std::ptrdiff_t>(at),
                                          std::move(item));
                       return TRUE;
                   });
}

extern "C" BOOL WINAPI AppendMenuW(HMENU menu, UINT flags, UINT_PTR id, LPCWSTR text)
{
    return InsertMenuW(menu, 0xFFFFFFFFu, flags | MF_BYPOSITION, id, text);
}

extern "C" int WINAPI GetMenuItemCount(HMENU handle)
{
    MenuTable& table = Table();
    const std::lock_guard lock(table.mutex);
    const Menu* const menu = FindMenu(table, handle);
    return menu == nullptr ? -1 : static_cast<int>(menu->size());
}

extern "C" UINT WINAPI GetMenuItemID(HMENU menu, int position)
{
    return WithItem(menu, static_cast<UINT>(position), MF_BYPOSITION, 0xFFFFFFFFu,
                    [](MenuTable&, const MenuItem& item)
                    { return item.popup != nullptr ? 0xFFFFFFFFu : static_cast<UINT>(item.id); });
}

extern "C" int WINAPI GetMenuStringW(HMENU menu, UINT item, LPWSTR text, int capacity, UINT flags)
{
    if (text != nullptr && capacity > 0)
    {
        text[0] = 0;
    }
    return WithItem(menu, item, flags, 0,
                    [&](MenuTable&, const MenuItem& found)
                    {
                        if (text == nullptr || capacity <= 0)
                        {
                            return static_cast<int>(found.text.size());
                        }
                        const std::size_t length =
                            std::min(found.text.size(), static_cast<std::size_t>(capacity) - 1);
                        std::copy_n(found.text.begin(), length, text);
                        text[length] = 0;
                        return static_cast<int>(length);
                    });
}

extern "C" HMENU WINAPI GetSubMenu(HMENU menu, int position)
{
    return WithItem(menu, static_cast<UINT>(position), MF_BYPOSITION, HMENU{},
                    [](MenuTable&, const MenuItem& item) { return item.popup; });
}

extern "C" UINT WINAPI GetMenuState(HMENU menu, UINT item, UINT flags)
{
    return WithItem(menu, item, flags, 0xFFFFFFFFu,
                    [](MenuTable& table, const MenuItem& found)
                    {
                        const auto popup = table.menus.find(found.popup);
                        const std::size_t items = popup == table.menus.end() ? 0 : popup->second.size();
                        return found.flags | static_cast<UINT>(items & 0xFF) << 8;
                    });
}
