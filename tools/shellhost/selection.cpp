#include "tools/shellhost/selection.h"

#include "tools/dropdata.h"

namespace sndxtools
{
ComRef<IContextMenu> MenuHandlerForSelection(Host& host, const std::vector<WideString>& paths)
{
    const auto init = host.CreateHandler<IShellExtInit>(contextMenuClass, IID_IShellExtInit);
    const ComRef<IDataObject> data = CreateDropData(paths);
    const HRESULT initialized = init->Initialize(nullptr, data.Get(), nullptr);
    if (FAILED(initialized))
    {
        throw CallError("IShellExtInit::Initialize", initialized);
    }
    ComRef<IContextMenu> menu;
    const HRESULT asked = init->QueryInterface(IID_IContextMenu, menu.Receive());
    if (FAILED(asked) || !menu)
    {
        throw CallError("QueryInterface for IContextMenu", asked);
    }
    return menu;
}
} // namespace sndxtools
