#include "tools/explorer/screenshot.h"

#include <filesystem>
#include <fstream>

#include "tools/explorer/owners.h"
#include "tools/results.h"

namespace sndxtools
{
void TakeScreenshot(const WideString& file)
{
    const int width = GetSystemMetrics(SM_CXSCREEN);
    const int height = GetSystemMetrics(SM_CYSCREEN);
    const BITMAPINFO info = {{sizeof info.bmiHeader, width, height, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
    void* memory = nullptr;
    const Owned<HBITMAP> bitmap(CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &memory, nullptr, 0));
    Check("CreateDIBSection", bitmap ? S_OK : E_OUTOFMEMORY);
    const BitmapContext copy(bitmap.get());
    const HDC screen = GetDC(nullptr);
    const BOOL copied = BitBlt(copy.Get(), 0, 0, width, height, screen, 0, 0, SRCCOPY);
    ReleaseDC(nullptr, screen);
    GdiFlush(); // what was drawn is in the memory then
    Check("BitBlt from the screen", copied ? S_OK : E_FAIL);

    const auto bytes =
        static_cast<DWORD>((width * 3 + 3) / 4 * 4) * static_cast<DWORD>(height); // rows of whole words
    constexpr WORD mark = 'B' | 'M' << 8;
    constexpr DWORD headers = sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER);
    const BITMAPFILEHEADER begin = {mark, headers + bytes, 0, 0, headers};
    std::ofstream out(std::filesystem::path(file), std::ios::binary);
    out.write(reinterpret_cast<const char*>(&begin), sizeof begin);
    out.write(reinterpret_cast<const char*>(&info.bmiHeader), sizeof info.bmiHeader);
    out.write(static_cast<const char*>(memory), static_cast<std::streamsize>(bytes));
    Check("writing the picture", out.flush() ? S_OK : E_FAIL);
}
} // namespace sndxtools
