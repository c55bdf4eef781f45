// A shell extension that makes what the host does visible: the menu shows the selection's paths, results
// tell command and number of paths. It misbehaves on request: after StateChanged it always agrees to be
// unloaded; a path that contains "broken" makes calls fail.

#include <vector>

#include <windows.h>
#include <shlobj.h>
#include <shellapi.h>

#include "tools/comobject.h"
#include "tools/comref.h"
#include "tools/contract.h"
#include "tools/text.h"

namespace
{
using sndxtools::ComRef;
using sndxtools::WideString;
namespace contract = sndxtools::contract;

int handlers = 0;
bool alwaysAgrees = false;

bool Contains(const WideString& path, const WCHAR* word)
{
    return path.find(word) != WideString::npos;
}

// An object of either class.
class Handler final : public sndxtools::ComObject<IShellIconOverlayIdentifier, IContextMenu, IShellExtInit>
{
  public:
    Handler() : ComObject(IID_IShellIconOverlayIdentifier, IID_IContextMenu, IID_IShellExtInit)
    {
        ++handlers;
    }
    ~Handler() override { --handlers; }
    HRESULT STDMETHODCALLTYPE IsMemberOf(PCWSTR path, DWORD) override
    {
        return Contains(path, TEXT("broken")) ? E_FAIL : Contains(path, TEXT("inside")) ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE GetOverlayInfo(PWSTR file, int, int* index, DWORD* flags) override
    {
        WideString(TEXT("C:\\icon.dll")).copy(file, 11);
        *index = 4;
        *flags = ISIOI_ICONFILE | ISIOI_ICONINDEX;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetPriority(int* priority) override
    {
        *priority = 9;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Initialize(LPCITEMIDLIST, IDataObject* data, HKEY) override
    {
        FORMATETC format = {CF_HDROP, nullptr, DVASPECT_CONTENT, -1, TYMED_HGLOBAL};
        STGMEDIUM medium = {};
        data->GetData(&format, &medium); // the host's always has one
        const auto drop = static_cast<HDROP>(GlobalLock(medium.hGlobal));
        WCHAR path[260];
        for (UINT i = 0; DragQueryFileW(drop, i, path, 260) != 0; ++i)
        {
            paths_.push_back(path);
        }
        GlobalUnlock(medium.hGlobal);
        ReleaseStgMedium(&medium);
        return paths_.empty() || Contains(paths_[0], TEXT("broken")) ? E_INVALIDARG : S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryContextMenu(HMENU menu, UINT index, UINT first, UINT last,
                                               UINT flags) override
    {
        if (!Contains(paths_[0], TEXT("inside")) || first + paths_.size() - 1 > last)
        {
            return static_cast<HRESULT>(0x80000000u);
        }
        if ((flags & CMF_DEFAULTONLY) != 0)
        {
            return S_OK;
        }
        HMENU submenu = CreatePopupMenu();
        for (UINT i = 0; i < paths_.size(); ++i)
        {
            InsertMenuW(submenu, i, MF_BYPOSITION, first + i, paths_[i].c_str());
        }
        InsertMenuW(menu, index, MF_BYPOSITION | MF_POPUP, reinterpret_cast<UINT_PTR>(submenu),
                    TEXT("Stand-in"));
        return static_cast<HRESULT>(paths_.size());
    }
    // Command c of n paths: 0x80040cnn.
    HRESULT STDMETHODCALLTYPE InvokeCommand(CMINVOKECOMMANDINFO* info) override
    {
        const auto command = static_cast<UINT>(reinterpret_cast<ULONG_PTR>(info->lpVerb));
        return static_cast<HRESULT>(
            command == 1 ? 0u : 0x80040000u | command << 8 | static_cast<UINT>(paths_.size()));
    }
    HRESULT STDMETHODCALLTYPE GetCommandString(UINT_PTR command, UINT type, UINT*, CHAR* text, UINT) override
    {
        if (command != 1 || type != GCS_HELPTEXTW)
        {
            return E_INVALIDARG;
        }
        WideString(TEXT("Help \u00F6")).copy(reinterpret_cast<WCHAR*>(text), 6);
        return S_OK;
    }

  private:
    std::vector<WideString> paths_;
};

class Factory final : public sndxtools::ComObject<IClassFactory>
{
  public:
    Factory() : ComObject(IID_IClassFactory) {}
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** out) override
    {
        return ComRef<Handler>::Adopt(new Handler)->QueryInterface(iid, out);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};
} // namespace

#ifdef _WIN32
#define EXPORTED extern "C" __declspec(dllexport)
#else
#define EXPORTED extern "C" __attribute__((visibility("default")))
#endif

EXPORTED HRESULT STDMETHODCALLTYPE DllGetClassObject(REFCLSID classId, REFIID iid, void** out)
{
    const bool isKnown =
        IsEqualCLSID(classId, contract::overlayClass) || IsEqualCLSID(classId, contract::menuClass);
    return isKnown ? ComRef<Factory>::Adopt(new Factory)->QueryInterface(iid, out)
                   : CLASS_E_CLASSNOTAVAILABLE;
}

EXPORTED HRESULT STDMETHODCALLTYPE DllCanUnloadNow()
{
    return handlers > 0 && !alwaysAgrees ? S_FALSE : S_OK;
}

EXPORTED void STDMETHODCALLTYPE StateChanged()
{
    alwaysAgrees = true;
}
