#include "tools/explorer/folderview.h"

#include <stdexcept>

namespace sndxtools
{
namespace
{
void AddColumn(HWND list, int number, const WCHAR* title, int width)
{
    LVCOLUMNW column = {};
    column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM;
    column.pszText = const_cast<LPWSTR>(title); // only read
    column.cx = width;
    column.iSubItem = number;
    SendMessageW(list, LVM_INSERTCOLUMNW, static_cast<WPARAM>(number), reinterpret_cast<LPARAM>(&column));
}

bool HasName(const FolderItem& item, const WideString& name)
{
    const std::size_t separator = item.path.find_last_of(L'\\');
    return CompareStringOrdinal(item.path.c_str() + separator + 1, -1, name.c_str(), -1, TRUE) == CSTR_EQUAL;
}
} // namespace

FolderView::FolderView(HWND parent, bool largeIcons)
    : list_(CreateWindowExW(WS_EX_CLIENTEDGE, WC_LISTVIEWW, L"",
                            WS_CHILD | WS_VISIBLE | WS_TABSTOP | LVS_SHOWSELALWAYS | LVS_SHAREIMAGELISTS |
                                LVS_AUTOARRANGE | (largeIcons ? LVS_ICON : LVS_REPORT),
                            0, 0, 0, 0, parent, nullptr, GetModuleHandleW(nullptr), nullptr))
{
    AddColumn(Handle(), 0, L"Name", 180);
    AddColumn(Handle(), 1, L"Typ", 140);
}

void FolderView::Show(const Folder& folder, const OverlayHandlers& overlays)
{
    ListView_DeleteAllItems(Handle());
    const std::vector<FolderItem>& items = folder.Items();
    if (items.empty())
    {
        return;
    }
    const auto icons = [&](bool large)
    {
        IconList list(folder.SystemImages(large), GetSysColor(COLOR_WINDOW));
        list.AddOverlays(overlays, large);
        for (const FolderItem& item : items)
        {
            list.Image(item.icon);
        }
        return list;
    };
    IconList large = icons(true);
    IconList small = icons(false);
    ListView_SetImageList(Handle(), large.Get(), LVSIL_NORMAL);
    ListView_SetImageList(Handle(), small.Get(), LVSIL_SMALL);
    large_ = std::move(large);
    small_ = std::move(small);
    for (std::size_t i = 0; i < items.size(); ++i)
    {
        LVITEMW entry = {};
        entry.mask = LVIF_TEXT | LVIF_IMAGE | LVIF_STATE;
        entry.iItem = static_cast<int>(i);
        entry.pszText = const_cast<LPWSTR>(items[i].name.c_str());
        entry.iImage = large_->Image(items[i].icon); // the same in both lists
        entry.state = INDEXTOOVERLAYMASK(static_cast<UINT>(overlays.OverlayOf(items[i])));
        entry.stateMask = LVIS_OVERLAYMASK;

        SendMessageW(Handle(), LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&entry));
        entry.iSubItem = 1;
        entry.pszText = const_cast<LPWSTR>(items[i].type.c_str());
        SendMessageW(Handle(), LVM_SETITEMTEXTW, i, reinterpret_cast<LPARAM>(&entry));
    }
}

void FolderView::Select(const Folder& folder, const std::string& name)
{
    const WideString wide = Wide(name);
    for (std::size_t i = 0; i < folder.Items().size(); ++i)
    {
        if (HasName(folder.Items()[i], wide))
        {
            const UINT focus = Focused() < 0 ? UINT{LVIS_FOCUSED} : 0u;
            ListView_SetItemState(Handle(), static_cast<int>(i), LVIS_SELECTED | focus,
                                  LVIS_SELECTED | focus);
            return;
        }
    }
    throw std::runtime_error("no item " + Quoted(name) + " in " + Quoted(Utf8(folder.Path())));
}

std::vector<std::size_t> FolderView::Selection() const
{
    std::vector<std::size_t> selection;
    const int focused = Focused();
    if (focused >= 0 && IsSelected(focused))
    {
        selection.push_back(static_cast<std::size_t>(focused));
    }
    for (int item = 0; item < Count(); ++item)
    {
        if (item != focused && IsSelected(item))
        {
            selection.push_back(static_cast<std::size_t>(item));
        }
    }
    return selection;
}

POINT FolderView::BesideFocusedIcon() const
{
    RECT icon = {};
    ListView_GetItemRect(Handle(), Focused(), &icon, LVIR_ICON);
    POINT edge = {icon.right, (icon.top + icon.bottom) / 2};
    ClientToScreen(Handle(), &edge);
    return edge;
}

int FolderView::Count() const
{
    return ListView_GetItemCount(Handle());
}

std::string FolderView::Text(int item) const
{
    WCHAR text[MAX_PATH] = {};
    LVITEMW entry = {};
    entry.pszText = text;
    entry.cchTextMax = MAX_PATH;
    SendMessageW(Handle(), LVM_GETITEMTEXTW, static_cast<WPARAM>(item), reinterpret_cast<LPARAM>(&entry));
    return Utf8(text);
}

int FolderView::Overlay(int item) const
{
    constexpr int firstBit = 8; // of the overlay's number in the state
    return static_cast<int>(State(item, LVIS_OVERLAYMASK) >> firstBit);
}

bool FolderView::IsSelected(int item) const
{
    return State(item, LVIS_SELECTED) != 0;
}

UINT FolderView::State(int item, UINT mask) const
{
    return static_cast<UINT>(
        SendMessageW(Handle(), LVM_GETITEMSTATE, static_cast<WPARAM>(item), static_cast<LPARAM>(mask)));
}

int FolderView::Focused() const
{
    return static_cast<int>(
        SendMessageW(Handle(), LVM_GETNEXTITEM, static_cast<WPARAM>(-1), MAKELPARAM(LVNI_FOCUSED, 0)));
}
} // namespace sndxtools
