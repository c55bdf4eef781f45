#include "tools/explorer/flaticon.h"

#include <cstdint>
#include <vector>

namespace sndxtools
{
namespace
{
using Pixel = std::uint32_t; // 0xAARRGGBB

std::uint32_t Alpha(Pixel pixel)
{
    return pixel >> 24;
}

std::vector<Pixel> Read(HBITMAP bitmap, LONG width, LONG height)
{
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height; // rows from the top
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    const ScreenContext screen;
    std::vector<Pixel> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    if (GetDIBits(screen.Get(), bitmap, 0, static_cast<UINT>(height), pixels.data(), &info, DIB_RGB_COLORS) ==
        0)
    {
        pixels.clear();
    }
    return pixels;
}

Pixel Mix(Pixel pixel, COLORREF ground)
{
    // The one has red on top, the other blue.
    const Pixel under = Pixel{GetRValue(ground)} << 16 | Pixel{GetGValue(ground)} << 8 | GetBValue(ground);
    const std::uint32_t alpha = Alpha(pixel);
    Pixel mixed = 0;
    for (int shift = 0; shift < 24; shift += 8)
    {
        const std::uint32_t own = pixel >> shift & 0xFF;
        const std::uint32_t other = under >> shift & 0xFF;
        mixed |= (own * alpha + other * (255 - alpha) + 127) / 255 << shift;
    }
    return mixed;
}
} // namespace

Owned<HICON> Flattened(HICON icon, COLORREF ground)
{
    ICONINFO parts = {};
    if (!GetIconInfo(icon, &parts))
    {
        return nullptr;
    }
    const Owned<HBITMAP> colour(parts.hbmColor);
    const Owned<HBITMAP> mask(parts.hbmMask);
    BITMAP size = {};
    if (!colour || GetObjectW(colour.get(), sizeof size, &size) == 0)
    {
        return nullptr;
    }
    std::vector<Pixel> pixels = Read(colour.get(), size.bmWidth, size.bmHeight);
    Pixel any = 0;
    for (const Pixel pixel : pixels)
    {
        any |= Alpha(pixel);
    }
    if (any == 0)
    {
        return Owned<HICON>(CopyIcon(icon)); // the mask is all it has
    }
    const auto width = static_cast<std::size_t>(size.bmWidth);
    const std::size_t maskRow =
        (width + 15) / 16 * 2; // bytes: a mask has one bit a pixel, rows of whole words
    std::vector<BYTE> transparent(maskRow * static_cast<std::size_t>(size.bmHeight));
    for (std::size_t i = 0; i < pixels.size(); ++i)
    {
        const std::size_t column = i % width;
        if (Alpha(pixels[i]) == 0)
        {
            transparent[i / width * maskRow + column / 8] |= static_cast<BYTE>(0x80 >> column % 8);
            pixels[i] = 0; // the ground is ANDed with the mask, then ORed with this
            continue;
        }
        pixels[i] = Mix(pixels[i], ground);
    }
    const Owned<HBITMAP> flat(CreateBitmap(size.bmWidth, size.bmHeight, 1, 32, pixels.data()));
    const Owned<HBITMAP> flatMask(CreateBitmap(size.bmWidth, size.bmHeight, 1, 1, transparent.data()));
    parts.hbmColor = flat.get();
    parts.hbmMask = flatMask.get();
    return Owned<HICON>(CreateIconIndirect(&parts));
}
} // namespace sndxtools
