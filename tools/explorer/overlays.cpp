#include "tools/explorer/overlays.h"

#include <algorithm>

#include "tools/results.h"

namespace sndxtools
{
namespace
{
constexpr int mostOverlays = 15; // an image list has four bits for them

// Throws CallError when the handler is of no use.
void Ask(OverlayHandler& handler)
{
    const auto check = [](const char* call, HRESULT result)
    {
        if (FAILED(result))
        {
            throw CallError(call, result);
        }
    };
    ComRef<IShellIconOverlayIdentifier> object;
    check("CoCreateInstance", CoCreateInstance(handler.registered.classId, nullptr, CLSCTX_INPROC_SERVER,
                                               IID_IShellIconOverlayIdentifier, object.Receive()));
    WCHAR file[MAX_PATH] = {};
    DWORD flags = 0;
    check("GetOverlayInfo", object->GetOverlayInfo(file, MAX_PATH, &handler.iconIndex, &flags));
    if ((flags & ISIOI_ICONFILE) == 0)
    {
        throw CallError("GetOverlayInfo without a file", S_OK);
    }
    handler.iconFile = file;
    handler.iconIndex = (flags & ISIOI_ICONINDEX) != 0 ? handler.iconIndex : 0;
    check("GetPriority", object->GetPriority(&handler.priority));
    HICON large = nullptr;
    HICON small = nullptr;
    // One size at a time: asked for both, Wine makes the small icon from the large one.
    ExtractIconExW(file, handler.iconIndex, &large, nullptr, 1);
    ExtractIconExW(file, handler.iconIndex, nullptr, &small, 1);
    handler.largeIcon.reset(large);
    handler.smallIcon.reset(small);
    if (!handler.largeIcon || !handler.smallIcon)
    {
        throw CallError("ExtractIconEx for " + Utf8(file), E_FAIL);
    }
    handler.object = std::move(object);
}
} // namespace

OverlayHandlers::OverlayHandlers()
{
    for (const RegisteredHandler& registered : RegisteredHandlers(HKEY_LOCAL_MACHINE, overlayHandlersKey))
    {
        OverlayHandler handler;
        handler.registered = registered;
        try
        {
            Ask(handler);
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
