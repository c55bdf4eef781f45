#pragma once
#include <optional>
#include <string>
#include <vector>

#include "tools/explorer/iconlist.h"
#include "tools/explorer/overlays.h"

namespace sndxtools
{
// The list of a folder's items.
class FolderView
{
  public:
    FolderView(HWND parent, bool largeIcons);
    FolderView(const FolderView&) = delete;
    FolderView& operator=(const FolderView&) = delete;

    HWND Handle() const { return list_.get(); }

    // Shows the folder's items as they are now, none of them selected. Throws CallError.
    void Show(const Folder& folder, const OverlayHandlers& overlays);

    // Throws std::runtime_error when there is no item of that name.
    void Select(const Folder& folder, const std::string& name);
    // The selected items by their place in the folder, the focused one first.
    std::vector<std::size_t> Selection() const;
    // The right edge of the focused item's icon, on the screen.
    POINT BesideFocusedIcon() const;

    // What the control shows; the number of the overlay, 0 for none.
    int Count() const;
    std::string Text(int item) const;
    int Overlay(int item) const;
    bool IsSelected(int item) const;

  private:
    int Focused() const;

    const bool largeIcons_;
    std::optional<IconList> icons_; // the control only borrows it, and ends before it
    Owned<HWND> list_;
};
} // namespace sndxtools
