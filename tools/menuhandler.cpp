#include "tools/menuhandler.h"

#include "tools/results.h"
#include "tools/text.h"

namespace sndxtools
{
ComRef<IContextMenu> MenuForSelection(ComRef<IShellExtInit> handler, IDataObject* selection, HKEY kind)
{
    Check("IShellExtInit::Initialize", handler->Initialize(nullptr, selection, kind));
    ComRef<IContextMenu> menu;
    const HRESULT asked = handler->QueryInterface(IID_IContextMenu, menu.Receive());
    Check("QueryInterface for IContextMenu", asked, bool(menu));
    return menu;
}

std::optional<std::string> MenuHelpText(IContextMenu& handler, UINT_PTR offset)
{
    WCHAR text[MAX_PATH] = {};
    // The shell passes the wide buffer through the narrow parameter.
    const HRESULT result =
        handler.GetCommandString(offset, GCS_HELPTEXTW, nullptr, reinterpret_cast<LPSTR>(text), MAX_PATH);
    return FAILED(result) ? std::nullopt : std::optional(Utf8(text));
}
} // namespace sndxtools
