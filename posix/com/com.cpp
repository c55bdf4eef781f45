// Identifiers of COM's basic interfaces, storage mediums, and the initialisation of a thread.

#include "sndx/com.h"
#include "sndx/memory.h"
#include "sndx/shell.h"

namespace sndxposix
{
namespace
{
constexpr IID SystemId(DWORD number)
{
    return {number, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}
} // namespace

extern "C"
{
    extern const IID IID_IUnknown = SystemId(0x00000000);
    extern const IID IID_IClassFactory = SystemId(0x00000001);
    extern const IID IID_IDataObject = SystemId(0x0000010E);
    extern const IID IID_IContextMenu = SystemId(0x000214E4);
    extern const IID IID_IShellExtInit = SystemId(0x000214E8);
    extern const IID IID_IShellIconOverlayIdentifier = {
        0x0C6C4200, 0xC589, 0x11D0, {0x99, 0x9A, 0x00, 0xC0, 0x4F, 0xD6, 0x55, 0xE1}};
}

extern "C" void WINAPI ReleaseStgMedium(STGMEDIUM* medium)
{
    if (medium == nullptr)
    {
        return;
    }
    IUnknown* const owner = medium->pUnkForRelease;
    if (owner == nullptr && medium->tymed == TYMED_HGLOBAL && medium->hGlobal != nullptr)
    {
        GlobalFree(medium->hGlobal);
    }
    medium->tymed = TYMED_NULL;
    medium->pUnkForRelease = nullptr;
    if (owner != nullptr)
    {
        owner->Release();
    }
}

extern "C" HRESULT WINAPI CoInitializeEx(LPVOID, DWORD)
{
    return S_OK;
}

extern "C" void WINAPI CoUninitialize() {}
} // namespace sndxposix
