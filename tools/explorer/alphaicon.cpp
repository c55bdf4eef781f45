#include "tools/explorer/alphaicon.h"

#include <cstdint>
#include <vector>

namespace sndxtools
{
namespace
{
using Pixels = std::vector<std::uint32_t>; // 0xAARRGGBB

BITMAPINFO TopDown(LONG width, LONG height)
{
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    return info;
}

bool Read(HBITMAP bitmap, LONG width, LONG height, Pixels& pixels)
{
    const ScreenContext screen;
    BITMAPINFO info = TopDown(width, height);
    pixels.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0);
    return GetDIBits(screen.Get(), bitmap, 0, static_cast<UINT>(height), pixels.data(), &info,
                     DIB_RGB_COLORS) != 0;
}
} // namespace

Owned<HICON> WithAlpha(HICON icon)
{
    ICONINFO parts = {};
    if (!GetIconInfo(icon, &parts))
    {
        return nullptr;
    }
    const Owned<HBITMAP> colour(parts.hbmColor);
    const Owned<HBITMAP> mask(parts.hbmMask);
    BITMAP size = {};
    // An icon without colours has none to keep; overlays never are of that kind.
    if (!colour || GetObjectW(colour.get(), sizeof size, &size) == 0)
    {
        return nullptr;
    }
    Pixels pixels;
    Pixels masked;
    if (!Read(colour.get(), size.bmWidth, size.bmHeight, pixels) ||
        !Read(mask.get(), size.bmWidth, size.bmHeight, masked))
    {
        return nullptr;
    }
    constexpr std::uint32_t opaque = 0xFF000000u;
    bool hasAlpha = false;
    for (const std::uint32_t pixel : pixels)
    {
        hasAlpha = hasAlpha || (pixel & opaque) != 0;
    }
    for (std::size_t i = 0; i < pixels.size() && !hasAlpha; ++i)
    {
        pixels[i] = (masked[i] & ~opaque) != 0 ? 0 : pixels[i] | opaque;
    }
    const BITMAPINFO info = TopDown(size.bmWidth, size.bmHeight);
    void* memory = nullptr;
    const Owned<HBITMAP> mixed(CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &memory, nullptr, 0));
    if (!mixed)
    {
        return nullptr;
    }
    GdiFlush();
    std::copy(pixels.begin(), pixels.end(), static_cast<std::uint32_t*>(memory));
    parts.hbmColor = mixed.get();
    return Owned<HICON>(CreateIconIndirect(&parts));
}
} // namespace sndxtools
