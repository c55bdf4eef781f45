#include "dll/overlay.h"

#include "dll/folders.h"
#include "dll/sndxdll.h"

LShellExt::LShellExt()
{
    ++g_nShellExtObjects;
}

LShellExt::~LShellExt()
{
    --g_nShellExtObjects;
}

HRESULT LShellExt::QueryInterface(REFIID riid, void** ppv)
{
    if (ppv == nullptr)
    {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (!LIsEqualGuid(riid, IID_IShellIconOverlayIdentifier) && !LIsEqualGuid(riid, IID_IUnknown))
    {
        return E_NOINTERFACE;
    }
    *ppv = static_cast<IShellIconOverlayIdentifier*>(this);
    AddRef();
    return S_OK;
}

HRESULT LShellExt::IsMemberOf(LPCWSTR pwszPath, DWORD)
{
    const bool bFound = AnyAccountFolder([pwszPath](const WCHAR* szFolder)
                                         { return FileBelongsToFolder(szFolder, pwszPath); });
    if (!bFound)
    {
        LDebugTrace("LShellExt::IsMemberOf returned false because !bFound");
        return S_FALSE;
    }
    // Outside the lock: the read may go over a network and take as long as the file system likes. The value
    // for failure has every bit set, so an item whose attributes cannot be read gets the overlay; see
    // contract.md O6.
    const bool bArchive = (GetFileAttributesW(pwszPath) & FILE_ATTRIBUTE_ARCHIVE) != 0;
    LDebugTraceValue("LShellExt::IsMemberOf returned: ", static_cast<std::int32_t>(bArchive), false);
    return bArchive ? S_OK : S_FALSE;
}

HRESULT LShellExt::GetOverlayInfo(LPWSTR pwszIconFile, int cchMax, int* pIndex, DWORD* pdwFlags)
{
    if (pwszIconFile == nullptr || cchMax <= 0 || pIndex == nullptr || pdwFlags == nullptr)
    {
        return E_INVALIDARG;
    }
    const auto uSize = static_cast<DWORD>(cchMax);
    const DWORD uLength = GetModuleFileNameW(g_hInstance, pwszIconFile, uSize);
    // A path that does not fit is cut; older systems leave it without a terminator.
    pwszIconFile[uLength < uSize ? uLength : uSize - 1] = 0;
    *pIndex = 0;
    *pdwFlags = ISIOI_ICONFILE | ISIOI_ICONINDEX;
    return S_OK;
}

HRESULT LShellExt::GetPriority(int* pPriority)
{
    if (pPriority == nullptr)
    {
        return E_FAIL;
    }
    *pPriority = 0;
    return S_OK;
}
