#include "tools/explorer/contextmenu.h"

#include "tools/results.h"

namespace sndxtools
{
namespace
{
constexpr UINT properties = 2;
// Own commands lie below these, so that nobody's clash.
constexpr UINT firstOfHandlers = 0x1000;
constexpr UINT lastOfHandlers = 0x7FFF;

// Throws CallError when the handler is of no use.
ComRef<IContextMenu> Create(const RegisteredHandler& registered, IDataObject* selection, HKEY kind)
{
    const auto check = [](const char* call, HRESULT result)
    {
        if (FAILED(result))
        {
            throw CallError(call, result);
        }
    };
    ComRef<IShellExtInit> init;
    check("CoCreateInstance", CoCreateInstance(registered.classId, nullptr, CLSCTX_INPROC_SERVER,
                                               IID_IShellExtInit, init.Receive()));
    check("Initialize", init->Initialize(nullptr, selection, kind));
    ComRef<IContextMenu> menu;
    check("QueryInterface for IContextMenu", init->QueryInterface(IID_IContextMenu, menu.Receive()));
    return menu;
}
} // namespace

ContextMenu::ContextMenu(HWND window, const Folder& folder, const std::vector<std::size_t>& selection,
                         bool extended)
    : window_(window), folder_(folder),
      kind_(folder.Items()[selection.front()].isFolder ? foldersKind : filesKind), menu_(CreatePopupMenu()),
      next_(firstOfHandlers)
{
    Append(selection.size() == 1 ? MF_STRING : MF_STRING | MF_GRAYED, open, L"Ö&ffnen");
    SetMenuDefaultItem(Get(), open, FALSE);
    Append(MF_SEPARATOR, 0, nullptr);
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
        Append(MF_SEPARATOR, 0, nullptr);
    }
    Append(MF_STRING | MF_GRAYED, properties, L"&Eigenschaften");
}

void ContextMenu::Append(UINT flags, UINT id, const WCHAR* text)
{
    AppendMenuW(Get(), flags, id, text);
}

void ContextMenu::AddHandler(MenuHandler& handler, const std::vector<std::size_t>& selection, UINT flags)
{
    // Each handler gets a data object of its own, so that none sees what another has done with it.
    const ComRef<IDataObject> data = folder_.DataObject(selection);
    const Owned<HKEY> kind = OpenKey(HKEY_CLASSES_ROOT, kind_);
    auto object = Create(handler.registered, data.Get(), kind.get());
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
    for (const MenuHandler& handler : handlers_)
    {
        if (id >= handler.first && id - handler.first < handler.count)
        {
            return &handler;
        }
    }
    return nullptr;
}

std::string ContextMenu::HelpText(UINT id) const
{
    const MenuHandler* const handler = HandlerOf(id);
    if (handler == nullptr)
    {
        return id == open ? "Öffnet das Element" : "";
    }
    WCHAR text[MAX_PATH] = {};
    // The wide buffer travels through the narrow parameter.
    const HRESULT result = handler->object->GetCommandString(id - handler->first, GCS_HELPTEXTW, nullptr,
                                                             reinterpret_cast<LPSTR>(text), MAX_PATH);
    return FAILED(result) ? std::string() : Utf8(text);
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
