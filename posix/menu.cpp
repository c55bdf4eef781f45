// Menus: lists of items that may own further menus.

#include "sndx/menu.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "posix/internal.h"

namespace sndxposix
{
namespace
{
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
MenuTable& Menus()
{
    static MenuTable& table = *new MenuTable;
    return table;
}

// Runs use(table, menu) under the table's lock; `failure`, with the last error set, for what is no menu.
template <class Result, class Use>
Result WithMenu(HMENU handle, Result failure, Use&& use)
{
    const auto body = [&]() -> Result
    {
        MenuTable& table = Menus();
        const std::lock_guard lock(table.mutex);
        const auto found = table.menus.find(handle);
        return found == table.menus.end() ? FailWith(ERROR_INVALID_MENU_HANDLE, failure)
                                          : use(table, found->second);
    };
    return Guarded(failure, body);
}

// Runs use(table, item) on the item at the position.
template <class Result, class Use>
Result WithItem(HMENU handle, UINT position, Result failure, Use&& use)
{
    const auto body = [&](MenuTable& table, const Menu& menu) -> Result
    {
        return position >= menu.size() ? FailWith(ERROR_MENU_ITEM_NOT_FOUND, failure)
                                       : use(table, menu[position]);
    };
    return WithMenu(handle, failure, body);
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

extern "C" HMENU WINAPI CreatePopupMenu()
{
    const auto body = []
    {
        MenuTable& table = Menus();
        const std::lock_guard lock(table.mutex);
        // Values are not used twice, so that a destroyed menu stays invalid.
        const HMENU handle = reinterpret_cast<HMENU>(0x10001 + 2 * table.next++);
        table.menus.try_emplace(handle);
        return handle;
    };
    return Call("CreatePopupMenu", HMENU{}, body);
}

extern "C" BOOL WINAPI DestroyMenu(HMENU handle)
{
    const auto destroy = [&](MenuTable& table, Menu&)
    {
        Destroy(table, handle);
        return TRUE;
    };
    return FailNextCall("DestroyMenu") ? FALSE : WithMenu(handle, FALSE, destroy);
}

extern "C" BOOL WINAPI InsertMenuW(HMENU handle, UINT position, UINT flags, UINT_PTR id, LPCWSTR text)
{
    const auto insert = [&](MenuTable& table, Menu& menu) -> BOOL
    {
        MenuItem item{flags & MF_POPUP, id, nullptr, text == nullptr ? u"" : text};
        if ((flags & MF_POPUP) != 0)
        {
            item.popup = reinterpret_cast<HMENU>(id);
            if (!table.menus.contains(item.popup))
            {
                return FailWith(ERROR_INVALID_MENU_HANDLE);
            }
        }
        const auto at = static_cast<std::ptrdiff_t>(std::min<std::size_t>(position, menu.size()));
        menu.insert(menu.begin() + at, std::move(item));
        return TRUE;
    };
    if ((flags & MF_BYPOSITION) == 0)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    return FailNextCall("InsertMenuW") ? FALSE : WithMenu(handle, FALSE, insert);
}

extern "C" BOOL WINAPI AppendMenuW(HMENU menu, UINT flags, UINT_PTR id, LPCWSTR text)
{
    return InsertMenuW(menu, 0xFFFFFFFFu, flags | MF_BYPOSITION, id, text);
}

extern "C" int WINAPI GetMenuItemCount(HMENU handle)
{
    return WithMenu(handle, -1, [](MenuTable&, const Menu& menu) { return static_cast<int>(menu.size()); });
}

extern "C" UINT WINAPI GetMenuItemID(HMENU menu, int position)
{
    const auto identifier = [](MenuTable&, const MenuItem& item)
    { return item.popup != nullptr ? 0xFFFFFFFFu : static_cast<UINT>(item.id); };
    return WithItem(menu, static_cast<UINT>(position), 0xFFFFFFFFu, identifier);
}

extern "C" int WINAPI GetMenuStringW(HMENU menu, UINT position, LPWSTR text, int capacity, UINT /*flags*/)
{
    const bool hasRoom = text != nullptr && capacity > 0;
    if (hasRoom)
    {
        text[0] = 0;
    }
    const auto copy = [&](MenuTable&, const MenuItem& item)
    {
        std::size_t length = item.text.size();
        if (hasRoom)
        {
            length = item.text.copy(text, static_cast<std::size_t>(capacity) - 1);
            text[length] = 0;
        }
        return static_cast<int>(length);
    };
    return WithItem(menu, position, 0, copy);
}

extern "C" HMENU WINAPI GetSubMenu(HMENU menu, int position)
{
    return WithItem(menu, static_cast<UINT>(position), HMENU{},
                    [](MenuTable&, const MenuItem& item) { return item.popup; });
}

extern "C" UINT WINAPI GetMenuState(HMENU menu, UINT position, UINT /*flags*/)
{
    const auto state = [](MenuTable& table, const MenuItem& item)
    {
        const auto popup = table.menus.find(item.popup);
        const std::size_t items = popup == table.menus.end() ? 0 : popup->second.size();
        return item.flags | static_cast<UINT>(items & 0xFF) << 8;
    };
    return WithItem(menu, position, 0xFFFFFFFFu, state);
}
