#include "tools/explorer/iconlist.h"

#include "tools/explorer/flaticon.h"
#include "tools/results.h"

namespace sndxtools
{
IconList::IconList(HIMAGELIST system, COLORREF ground) : system_(system), ground_(ground)
{
    int width = 0;
    int height = 0;
    if (ImageList_GetIconSize(system, &width, &height))
    {
        list_.reset(ImageList_Create(width, height, ILC_COLOR24 | ILC_MASK, 16, 16));
    }
    if (!list_)
    {
        throw CallError("ImageList_Create", E_FAIL);
    }
}

void IconList::AddOverlays(const OverlayHandlers& overlays, bool large)
{
    for (const OverlayHandler& handler : overlays.Handlers())
    {
        if (handler.overlay == 0)
        {
            continue;
        }
        const int image = Add((large ? handler.largeIcon : handler.smallIcon).get());
        if (!ImageList_SetOverlayImage(Get(), image, handler.overlay))
        {
            throw CallError("ImageList_SetOverlayImage", E_FAIL);
        }
    }
}

int IconList::Image(int systemImage)
{
    const auto known = images_.find(systemImage);
    if (known != images_.end())
    {
        return known->second;
    }
    const Owned<HICON> icon(ImageList_GetIcon(system_, systemImage, ILD_TRANSPARENT));
    const int image = Add(icon.get());
    images_.emplace(systemImage, image);
    return image;
}

int IconList::Add(HICON icon)
{
    const Owned<HICON> flat = Flattened(icon, ground_);
    const int image = ImageList_ReplaceIcon(Get(), -1, flat.get());
    if (image < 0)
    {
        throw CallError("ImageList_ReplaceIcon", E_FAIL);
    }
    return image;
}
} // namespace sndxtools
