#pragma once
// The icon overlay identifier: the shell asks it for every item it shows whether to draw our icon on it.

#include <shlobj.h>

#include "gen/com.h"

class LShellExt : public LComImplementation<IShellIconOverlayIdentifier>
{
  public:
    LShellExt();
    ~LShellExt() override;

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;

    // IShellIconOverlayIdentifier
    // Called on several threads at once, on this object too. S_OK for an item inside an account folder whose
    // archive attribute is set, or whose attributes cannot be read; otherwise S_FALSE. The attributes that
    // the shell passes are not used (contract.md O30).
    HRESULT STDMETHODCALLTYPE IsMemberOf(LPCWSTR pwszPath, DWORD dwAttrib) override;
    // The module itself, icon index 0. cchMax is the buffer's size in characters.
    HRESULT STDMETHODCALLTYPE GetOverlayInfo(LPWSTR pwszIconFile, int cchMax, int* pIndex,
                                             DWORD* pdwFlags) override;
    // 0, the highest.
    HRESULT STDMETHODCALLTYPE GetPriority(int* pPriority) override;
};
static_assert(sizeof(LShellExt) == 16); // contract.md M19
