#include "tools/explorer/overlays.h"

#include <algorithm>

namespace sndxtools
{
namespace
{
constexpr int mostOverlays = 15; // an image list has four bits for them

// Throws CallError when the handler is of no use.
void Ask(OverlayHandler& handler, bool large)
{
    auto object =
        CreateRegistered<IShellIconOverlayIdentifier>(handler.registered, IID_IShellIconOverlayIdentifier);
    WCHAR file[MAX_PATH] = {};
    DWORD flags = 0;
    Check("GetOverlayInfo", object->GetOverlayInfo(file, MAX_PATH, &handler.iconIndex, &flags));
    Check("GetOverlayInfo without a file", S_OK, (flags & ISIOI_ICONFILE) != 0);
    handler.iconFile = file;
    handler.iconIndex = (flags & ISIOI_ICONINDEX) != 0 ? handler.iconIndex : 0;
    Check("GetPriority", object->GetPriority(&handler.priority));
    HICON icon = nullptr;
    // Asked for both sizes, Wine would make the small icon from the large one.
    ExtractIconExW(file, handler.iconIndex, large ? &icon : nullptr, large ? nullptr : &icon, 1);
    Check("ExtractIconEx", icon == nullptr ? E_FAIL : S_OK);
    handler.icon.reset(icon);
    handler.object = std::move(object);
}
} // namespace

OverlayHandlers::OverlayHandlers(bool largeIcons)
{
    for (const RegisteredHandler& registered : RegisteredHandlers(HKEY_LOCAL_MACHINE, overlayHandlersKey))
    {
        OverlayHandler handler;
        handler.registered = registered;
        try
        {
            Ask(handler, largeIcons);
        }
        catch (const CallError& error)
        {
            handler.problem = error.what();
        }
        handlers_.push_back(std::move(handler));
    }
    // Among equals the order of the names stays.
    std::ranges::stable_sort(handlers_, {}, &OverlayHandler::priority);
    int number = 0;
    for (OverlayHandler& handler : handlers_)
    {
        if (handler.object && number < mostOverlays)
        {
            handler.overlay = ++number;
        }
        else if (handler.problem.empty())
        {
            handler.problem = "all overlays are taken";
        }
    }
}

int OverlayHandlers::OverlayOf(const FolderItem& item) const
{
    for (const OverlayHandler& handler : handlers_)
    {
        if (handler.overlay != 0 && handler.object->IsMemberOf(item.path.c_str(), item.attributes) == S_OK)
        {
            return handler.overlay;
        }
    }
    return 0;
}
} // namespace sndxtools
