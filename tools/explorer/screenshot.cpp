#include "tools/explorer/screenshot.h"

#include "tools/explorer/owners.h"

#include <gdiplus.h>

#include "tools/results.h"

namespace sndxtools
{
namespace
{
using namespace Gdiplus;

void Check(const char* call, GpStatus status)
{
    if (status != Ok)
    {
        throw CallError(std::string(call) + " (status " + std::to_string(status) + ")", E_FAIL);
    }
}

class GdiPlus
{
  public:
    GdiPlus()
    {
        const GdiplusStartupInput input;
        Check("GdiplusStartup", GdiplusStartup(&token_, &input, nullptr));
    }
    ~GdiPlus() { GdiplusShutdown(token_); }
    GdiPlus(const GdiPlus&) = delete;
    GdiPlus& operator=(const GdiPlus&) = delete;

  private:
    ULONG_PTR token_ = 0;
};

Owned<HBITMAP> CopyScreen()
{
    const ScreenContext screen;
    const int width = GetSystemMetrics(SM_CXSCREEN);
    const int height = GetSystemMetrics(SM_CYSCREEN);
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    void* memory = nullptr;
    Owned<HBITMAP> bitmap(CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &memory, nullptr, 0));
    if (!bitmap)
    {
        throw CallError("CreateDIBSection", E_OUTOFMEMORY);
    }
    const BitmapContext copy(screen.Get(), bitmap.get());
    if (!BitBlt(copy.Get(), 0, 0, width, height, screen.Get(), 0, 0, SRCCOPY))
    {
        throw CallError("BitBlt from the screen", HRESULT_FROM_WIN32(GetLastError()));
    }
    return bitmap;
}
} // namespace

void TakeScreenshot(const WideString& file)
{
    const Owned<HBITMAP> bitmap = CopyScreen();
    const GdiPlus session;
    // The PNG encoder, the same in every version of the system.
    constexpr CLSID png = {0x557CF406, 0x1A04, 0x11D3, {0x9A, 0x73, 0x00, 0x00, 0xF8, 0x1E, 0xF3, 0x2E}};
    GpBitmap* image = nullptr;
    Check("GdipCreateBitmapFromHBITMAP",
          DllExports::GdipCreateBitmapFromHBITMAP(bitmap.get(), nullptr, &image));
    const GpStatus saved = DllExports::GdipSaveImageToFile(image, file.c_str(), &png, nullptr);
    DllExports::GdipDisposeImage(image);
    Check("writing the picture", saved);
}
} // namespace sndxtools
