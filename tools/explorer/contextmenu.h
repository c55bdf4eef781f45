#pragma once
#include <string>
#include <vector>

#include "tools/explorer/folder.h"
#include "tools/explorer/registry.h"

namespace sndxtools
{
struct MenuHandler
{
    RegisteredHandler registered;
    ComRef<IContextMenu> object; // none when it is of no use
    std::string problem;         // why it is of no use
    UINT first = 0;              // its commands have the identifiers first to first + count - 1
    UINT count = 0;              // 0 when it added nothing
};

// The context menu of some items of a folder: entries of our own and those of the handlers that are
// registered for the first item's kind. The handlers are created with the menu and released with it.
class ContextMenu
{
  public:
    static constexpr UINT open = 1;

    // The window is the parent of what handlers show. Throws CallError.
    ContextMenu(HWND window, const Folder& folder, const std::vector<std::size_t>& selection, bool extended);

    HMENU Get() const { return menu_.get(); }
    const WideString& Kind() const { return kind_; }
    const std::vector<MenuHandler>& Handlers() const { return handlers_; }

    // Null for an entry of our own.
    const MenuHandler* HandlerOf(UINT id) const;
    // The line for the status bar; empty when there is none.
    std::string HelpText(UINT id) const;
    // Has the command's handler carry it out.
    HRESULT Invoke(UINT id) const;

  private:
    void AddHandler(MenuHandler& handler, const std::vector<std::size_t>& selection, UINT flags);

    HWND window_;
    const Folder& folder_;
    WideString kind_; // the key of the items' class
    Owned<HMENU> menu_;
    UINT next_; // the first identifier that is still free
    std::vector<MenuHandler> handlers_;
};
} // namespace sndxtools
