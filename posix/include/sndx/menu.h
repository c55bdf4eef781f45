#pragma once
// Menus as data: nothing here is ever drawn. Items are named by their position, never by their identifier.

#include "sndx/types.h"

#define MF_BYPOSITION 0x0400u
#define MF_STRING 0x0000u
#define MF_POPUP 0x0010u

extern "C"
{
    HMENU WINAPI CreatePopupMenu();
    // Sub-menus go with their menu.
    BOOL WINAPI DestroyMenu(HMENU menu);

    // A position behind the end (or 0xFFFFFFFF) appends. With MF_POPUP the identifier is the sub-menu's
    // handle, which from then on belongs to the menu.
    BOOL WINAPI InsertMenuW(HMENU menu, UINT position, UINT flags, UINT_PTR id, LPCWSTR text);
    BOOL WINAPI AppendMenuW(HMENU menu, UINT flags, UINT_PTR id, LPCWSTR text);

    // -1 for an invalid handle.
    int WINAPI GetMenuItemCount(HMENU menu);
    // 0xFFFFFFFF for a sub-menu or a missing item.
    UINT WINAPI GetMenuItemID(HMENU menu, int position);
    // Units copied without terminator; 0 when there is no text. The buffer has room for one unit at least.
    int WINAPI GetMenuStringW(HMENU menu, UINT item, LPWSTR text, int capacity, UINT flags);
    HMENU WINAPI GetSubMenu(HMENU menu, int position);
}
