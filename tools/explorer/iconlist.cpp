#include "tools/explorer/iconlist.h"

#include <shlobj.h>

#include "tools/results.h"

namespace sndxtools
{
IconList::IconList(bool large)
{
    HIMAGELIST small = nullptr;
    Check("Shell_GetImageLists", Shell_GetImageLists(&system_, &small) ? S_OK : E_FAIL);
    system_ = large ? system_ : small;
    Check("ImageList_GetIconSize", ImageList_GetIconSize(system_, &width_, &height_) ? S_OK : E_FAIL);
    list_.reset(ImageList_Create(width_, height_, ILC_COLOR24 | ILC_MASK, 16, 16));
    Check("ImageList_Create", list_ ? S_OK : E_FAIL);
}

void IconList::AddOverlay(HICON icon, int number)
{
    Check("ImageList_SetOverlayImage", ImageList_SetOverlayImage(Get(), Add(icon), number) ? S_OK : E_FAIL);
}

int IconList::Image(int systemImage)
{
    const auto known = images_.find(systemImage);
    if (known != images_.end())
    {
        return known->second;
    }
    const Owned<HICON> icon(ImageList_GetIcon(system_, systemImage, ILD_TRANSPARENT));
    return images_[systemImage] = Add(icon.get());
}

int IconList::Add(HICON icon)
{
    ICONINFO parts = {};
    Check("GetIconInfo", GetIconInfo(icon, &parts) ? S_OK : E_FAIL);
    const Owned<HBITMAP> colours(parts.hbmColor);
    const Owned<HBITMAP> mask(parts.hbmMask);
    const Owned<HBITMAP> flat(CreateBitmap(width_, height_, 1, 32, nullptr));
    {
        const BitmapContext context(flat.get());
        const RECT all = {0, 0, width_, height_};
        FillRect(context.Get(), &all, GetSysColorBrush(COLOR_WINDOW));
        DrawIconEx(context.Get(), 0, 0, icon, width_, height_, 0, nullptr, DI_NORMAL);
    }
    const int image = ImageList_Add(Get(), flat.get(), mask.get());
    Check("ImageList_Add", image < 0 ? E_FAIL : S_OK);
    return image;
}
} // namespace sndxtools
