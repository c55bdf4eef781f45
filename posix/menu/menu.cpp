// Menus: lists of items that may own further menus.

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "posix/base/call.h"
#include "posix/base/locked.h"
#include "sndx/menu.h"

namespace sndxposix
{
namespace
{
struct MenuItem
{
    UINT_PTR id = 0;
    HMENU popup = nullptr;
    std::u16string text;
};

struct MenuTable
{
    std::map<HMENU, std::vector<MenuItem>> menus;
    UINT_PTR next = 0;

    // Null with the last error set for what is no menu.
    std::vector<MenuItem>* Find(HMENU handle)
    {
        const auto found = menus.find(handle);
        return found == menus.end() ? FailWith(ERROR_INVALID_MENU_HANDLE, nullptr) : &found->second;
    }

    bool Destroy(HMENU handle)
    {
        const auto gone = menus.extract(handle);
        if (gone.empty())
        {
            return FailWith(ERROR_INVALID_MENU_HANDLE);
        }
        CountLive(-1);
        for (const MenuItem& item : gone.mapped())
        {
            Destroy(item.popup);
        }
        return true;
    }
};

// Nothing, with the last error set, when there is no such item.
std::optional<MenuItem> ItemAt(HMENU handle, UINT position)
{
    const Locked<MenuTable> table;
    const auto* const menu = table->Find(handle);
    const bool exists = menu != nullptr && position < menu->size();
    return exists ? std::optional((*menu)[position])
                  : FailWith(menu == nullptr ? ERROR_INVALID_MENU_HANDLE : ERROR_MENU_ITEM_NOT_FOUND,
                             std::nullopt);
}
} // namespace

extern "C" HMENU WINAPI CreatePopupMenu()
{
    const auto body = []
    {
        const Locked<MenuTable> table;
        // Values are not used twice, so that a destroyed menu stays invalid.
        const HMENU handle = reinterpret_cast<HMENU>(0x10001 + 2 * table->next++);
        table->menus.try_emplace(handle);
        CountLive(1);
        return handle;
    };
    return Call("CreatePopupMenu", HMENU{}, body);
}

extern "C" BOOL WINAPI DestroyMenu(HMENU handle)
{
    const auto body = [&]() -> BOOL
    {
        const bool destroyed = Locked<MenuTable>()->Destroy(handle);
        return !FailNextCall("DestroyMenu") && destroyed;
    };
    return Guarded(FALSE, body);
}

extern "C" BOOL WINAPI InsertMenuW(HMENU handle, UINT position, UINT flags, UINT_PTR id, LPCWSTR text)
{
    const auto body = [&]() -> BOOL
    {
        const Locked<MenuTable> table;
        const HMENU popup = (flags & MF_POPUP) != 0 ? reinterpret_cast<HMENU>(id) : nullptr;
        auto* const menu = table->Find(handle);
        if (menu == nullptr || (popup != nullptr && table->Find(popup) == nullptr))
        {
            return FALSE;
        }
        if ((flags & MF_BYPOSITION) == 0)
        {
            return FailWith(ERROR_INVALID_PARAMETER);
        }
        const auto at = static_cast<std::ptrdiff_t>(std::min<std::size_t>(position, menu->size()));
        menu->insert(menu->begin() + at, MenuItem{id, popup, text == nullptr ? u"" : text});
        return TRUE;
    };
    return Call("InsertMenuW", FALSE, body);
}

extern "C" BOOL WINAPI AppendMenuW(HMENU menu, UINT flags, UINT_PTR id, LPCWSTR text)
{
    return InsertMenuW(menu, 0xFFFFFFFFu, flags | MF_BYPOSITION, id, text);
}

extern "C" int WINAPI GetMenuItemCount(HMENU handle)
{
    const Locked<MenuTable> table;
    const auto* const menu = table->Find(handle);
    return menu == nullptr ? -1 : static_cast<int>(menu->size());
}

extern "C" UINT WINAPI GetMenuItemID(HMENU menu, int position)
{
    const auto item = ItemAt(menu, static_cast<UINT>(position));
    return item && item->popup == nullptr ? static_cast<UINT>(item->id) : 0xFFFFFFFFu;
}

extern "C" int WINAPI GetMenuStringW(HMENU menu, UINT position, LPWSTR text, int capacity, UINT /*flags*/)
{
    const std::u16string found = ItemAt(menu, position).value_or(MenuItem()).text;
    const std::size_t length = found.copy(text, static_cast<std::size_t>(capacity) - 1);
    text[length] = 0;
    return static_cast<int>(length);
}

extern "C" HMENU WINAPI GetSubMenu(HMENU menu, int position)
{
    return ItemAt(menu, static_cast<UINT>(position)).value_or(MenuItem()).popup;
}
} // namespace sndxposix
