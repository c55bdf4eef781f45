#include "tools/explorer/contextmenu.h"

#include <algorithm>

#include "tools/menuhandler.h"

namespace sndxtools
{
namespace
{
constexpr UINT properties = 2;
// Own commands lie below these, so that nobody's clash.
constexpr UINT firstOfHandlers = 0x1000;
constexpr UINT lastOfHandlers = 0x7FFF;
} // namespace

ContextMenu::ContextMenu(HWND window, const Folder& folder, const std::vector<std::size_t>& selection,
                         bool extended)
    : window_(window), folder_(folder),
      kind_(folder.Items()[selection.front()].isFolder ? foldersKind : filesKind), menu_(CreatePopupMenu()),
      next_(firstOfHandlers)
{
    AppendMenuW(Get(), selection.size() == 1 ? MF_STRING : MF_STRING | MF_GRAYED, open, L"Ö&ffnen");
    SetMenuDefaultItem(Get(), open, FALSE);
    AppendMenuW(Get(), MF_SEPARATOR, 0, nullptr);
    const int before = GetMenuItemCount(Get());
    for (const RegisteredHandler& registered : RegisteredHandlers(HKEY_CLASSES_ROOT, MenuHandlersKey(kind_)))
    {
        MenuHandler handler;
        handler.registered = registered;
        try
        {
            AddHandler(handler, selection, CMF_NORMAL | CMF_ITEMMENU | (extended ? CMF_EXTENDEDVERBS : 0u));
        }
        catch (const CallError& error)
        {
            handler.problem = error.what();
        }
        handlers_.push_back(std::move(handler));
    }
    if (GetMenuItemCount(Get()) != before)
    {
        AppendMenuW(Get(), MF_SEPARATOR, 0, nullptr);
    }
    AppendMenuW(Get(), MF_STRING | MF_GRAYED, properties, L"&Eigenschaften");
}

void ContextMenu::AddHandler(MenuHandler& handler, const std::vector<std::size_t>& selection, UINT flags)
{
    // Each handler gets a data object of its own, so that none sees what another has done with it.
    const ComRef<IDataObject> data = folder_.DataObject(selection);
    const Owned<HKEY> kind = OpenKey(HKEY_CLASSES_ROOT, kind_);
    auto object = MenuForSelection(CreateRegistered<IShellExtInit>(handler.registered, IID_IShellExtInit),
                                   data.Get(), kind.get());
    const int before = GetMenuItemCount(Get());
    const HRESULT added =
        object->QueryContextMenu(Get(), static_cast<UINT>(before), next_, lastOfHandlers, flags);
    if (FAILED(added))
    {
        while (GetMenuItemCount(Get()) > before)
        {
            DeleteMenu(Get(), static_cast<UINT>(before), MF_BYPOSITION);
        }
        throw CallError("QueryContextMenu", added);
    }
    handler.object = std::move(object);
    handler.first = next_;
    handler.count = LOWORD(added); // the greatest offset used, plus one
    next_ += handler.count;
}

const MenuHandler* ContextMenu::HandlerOf(UINT id) const
{
    const auto found =
        std::ranges::find_if(handlers_, [id](const MenuHandler& handler)
                             { return id >= handler.first && id - handler.first < handler.count; });
    return found == handlers_.end() ? nullptr : &*found;
}

std::string ContextMenu::HelpText(UINT id) const
{
    const MenuHandler* const handler = HandlerOf(id);
    if (handler == nullptr)
    {
        return id == open ? "Öffnet das Element" : "";
    }
    return MenuHelpText(*handler->object.Get(), id - handler->first).value_or("");
}

HRESULT ContextMenu::Invoke(UINT id) const
{
    const MenuHandler* const handler = HandlerOf(id);
    if (handler == nullptr)
    {
        return E_INVALIDARG;
    }
    CMINVOKECOMMANDINFOEX call = {};
    call.cbSize = sizeof call;
    call.fMask = CMIC_MASK_UNICODE;
    call.hwnd = window_;
    call.lpVerb = MAKEINTRESOURCEA(id - handler->first);
    call.lpVerbW = MAKEINTRESOURCEW(id - handler->first);
    call.nShow = SW_SHOWNORMAL;
    return handler->object->InvokeCommand(reinterpret_cast<CMINVOKECOMMANDINFO*>(&call));
}
} // namespace sndxtools
