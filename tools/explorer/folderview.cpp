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
    ListView_InsertColumn(list, number, &column);
}

bool HasName(const FolderItem& item, const WideString& name)
{
    const std::size_t separator = item.path.find_last_of(L'\\');
    return CompareStringOrdinal(item.path.c_str() + separator + 1, -1, name.c_str(), -1, TRUE) == CSTR_EQUAL;
}
} // namespace

FolderView::FolderView(HWND parent, bool largeIcons)
    : largeIcons_(largeIcons),
      list_(CreateWindowExW(WS_EX_CLIENTEDGE, WC_LISTVIEWW, L"",
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
    IconList icons(largeIcons_);
    for (const OverlayHandler& handler : overlays.Handlers())
    {
        if (handler.overlay != 0)
        {
            icons.AddOverlay(handler.icon.get(), handler.overlay);
        }
    }
    ListView_SetImageList(Handle(), icons.Get(), largeIcons_ ? LVSIL_NORMAL : LVSIL_SMALL);
    icons_ = std::move(icons); // what the control showed before ends here
    for (const FolderItem& item : folder.Items())
    {
        LVITEMW entry = {};
        entry.mask = LVIF_TEXT | LVIF_IMAGE | LVIF_STATE;
        entry.iItem = Count();
        entry.pszText = const_cast<LPWSTR>(item.name.c_str()); // only read
        entry.iImage = icons_->Image(item.icon);
        entry.state = INDEXTOOVERLAYMASK(static_cast<UINT>(overlays.OverlayOf(item)));
        entry.stateMask = LVIS_OVERLAYMASK;
        ListView_InsertItem(Handle(), &entry);
        ListView_SetItemText(Handle(), entry.iItem, 1, const_cast<LPWSTR>(item.type.c_str()));
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
    ListView_GetItemText(Handle(), item, 0, text, MAX_PATH);
    return Utf8(text);
}

int FolderView::Overlay(int item) const
{
    constexpr int firstBit = 8; // of the overlay's number in the state
    return static_cast<int>(ListView_GetItemState(Handle(), item, LVIS_OVERLAYMASK) >> firstBit);
}

bool FolderView::IsSelected(int item) const
{
    return ListView_GetItemState(Handle(), item, LVIS_SELECTED) != 0;
}

int FolderView::Focused() const
{
    return ListView_GetNextItem(Handle(), -1, LVNI_FOCUSED);
}
} // namespace sndxtools
