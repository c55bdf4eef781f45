#pragma once
// Owners of what the system hands out by handle.

#include <memory>
#include <type_traits>

#include <windows.h>
#include <commctrl.h>
#include <objbase.h>
#include <shtypes.h>

namespace sndxtools
{
struct HandleCloser
{
    void operator()(HMENU menu) const { DestroyMenu(menu); }
    void operator()(HICON icon) const { DestroyIcon(icon); }
    void operator()(HBITMAP bitmap) const { DeleteObject(bitmap); }
    void operator()(HKEY key) const { RegCloseKey(key); }
    void operator()(HIMAGELIST list) const { ImageList_Destroy(list); }
    void operator()(HWND window) const { DestroyWindow(window); }
};

template <class Handle>
using Owned = std::unique_ptr<std::remove_pointer_t<Handle>, HandleCloser>;

// Memory of the shell's: item identifiers, texts.
struct TaskMemory
{
    void operator()(void* memory) const { CoTaskMemFree(memory); }
};

template <class T>
using OwnedMemory = std::unique_ptr<T, TaskMemory>;
using ItemId = OwnedMemory<ITEMIDLIST>;

// A drawing context in memory with a bitmap selected, for drawings as the screen has them.
class BitmapContext
{
  public:
    explicit BitmapContext(HBITMAP bitmap)
        : context_(CreateCompatibleDC(nullptr)), before_(SelectObject(context_, bitmap))
    {
    }
    ~BitmapContext()
    {
        SelectObject(context_, before_);
        DeleteDC(context_);
    }
    BitmapContext(const BitmapContext&) = delete;
    BitmapContext& operator=(const BitmapContext&) = delete;
    HDC Get() const { return context_; }

  private:
    HDC context_;
    HGDIOBJ before_;
};
} // namespace sndxtools
