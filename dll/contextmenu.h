#pragma once
// The context-menu handler: one object serves one opened menu, on one thread of the shell.

#include <shlobj.h>

#include "gen/com.h"
#include "gen/stringtools.h"

class LSendoraContextMenu : public LComImplementation2<IContextMenu, IShellExtInit>
{
  public:
    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;

    // IContextMenu
    // The number of identifiers used (2 or 3), S_OK for a default-only query, or 0x80000000 when nothing was
    // added.
    HRESULT STDMETHODCALLTYPE QueryContextMenu(HMENU hmenu, UINT indexMenu, UINT idCmdFirst, UINT idCmdLast,
                                               UINT uFlags) override;
    // Blocks while the request is sent; see docs/waits.md.
    HRESULT STDMETHODCALLTYPE InvokeCommand(CMINVOKECOMMANDINFO* pici) override;
    // GCS_HELPTEXTW only; cchMax is in characters whatever the declared type of the buffer.
    HRESULT STDMETHODCALLTYPE GetCommandString(UINT_PTR idCmd, UINT uType, UINT* pReserved, LPSTR pszName,
                                               UINT cchMax) override;

    // IShellExtInit
    // Appends the paths of the data object's CF_HDROP data to the selection.
    HRESULT STDMETHODCALLTYPE Initialize(LPCITEMIDLIST pidlFolder, IDataObject* pdtobj,
                                         HKEY hkeyProgID) override;

  private:
    HRESULT ReadDrop(HDROP hDrop);
    // Whether the first selected path lies inside an account folder; traces the folders looked at.
    bool FirstFileBelongs() const;

    LStringList m_Files; // selected paths in selection order
};
// contract.md M20
static_assert(sizeof(LComImplementation2<IContextMenu, IShellExtInit>) == 24);
static_assert(sizeof(LSendoraContextMenu) == 48);
