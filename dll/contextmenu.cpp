#include "dll/contextmenu.h"

#include <shellapi.h>

#include "dll/commands.h"
#include "dll/folders.h"
#include "dll/request.h"
#include "gen/file.h"

namespace
{
// The result that tells the shell that nothing was added.
constexpr auto g_hrNothingAdded = static_cast<HRESULT>(0x80000000u);

// A popup menu until it is handed to the shell's menu, which then owns it.
class PopupMenu
{
  public:
    PopupMenu() : m_hMenu(CreatePopupMenu()) {}
    ~PopupMenu()
    {
        if (m_hMenu != nullptr)
        {
            DestroyMenu(m_hMenu);
        }
    }
    PopupMenu(const PopupMenu&) = delete;
    PopupMenu& operator=(const PopupMenu&) = delete;

    bool Insert(UINT uPosition, UINT idCommand, const WCHAR* szText)
    {
        return m_hMenu != nullptr &&
               InsertMenuW(m_hMenu, uPosition, MF_BYPOSITION | MF_STRING, idCommand, szText) != FALSE;
    }

    bool MoveInto(HMENU hMenu, UINT uPosition, const WCHAR* szText)
    {
        const bool bDone = InsertMenuW(hMenu, uPosition, MF_BYPOSITION | MF_POPUP,
                                       reinterpret_cast<UINT_PTR>(m_hMenu), szText) != FALSE;
        m_hMenu = bDone ? nullptr : m_hMenu;
        return bDone;
    }

  private:
    HMENU m_hMenu;
};

// The storage that a data object hands out, released at the end whoever owns it.
class StorageMedium
{
  public:
    StorageMedium() : m_Medium{} {}
    ~StorageMedium() { ReleaseStgMedium(&m_Medium); }
    StorageMedium(const StorageMedium&) = delete;
    StorageMedium& operator=(const StorageMedium&) = delete;

    bool GetFrom(IDataObject& source, FORMATETC& format)
    {
        const bool bReceived = SUCCEEDED(source.GetData(&format, &m_Medium));
        if (!bReceived)
        {
            m_Medium = {}; // whatever a failed call left in it is not ours to release
        }
        return bReceived;
    }
    HGLOBAL Global() const { return m_Medium.tymed == TYMED_HGLOBAL ? m_Medium.hGlobal : nullptr; }

  private:
    STGMEDIUM m_Medium;
};

class LockedGlobal
{
  public:
    explicit LockedGlobal(HGLOBAL hGlobal)
        : m_hGlobal(hGlobal), m_p(hGlobal == nullptr ? nullptr : GlobalLock(hGlobal))
    {
    }
    ~LockedGlobal()
    {
        if (m_p != nullptr)
        {
            GlobalUnlock(m_hGlobal);
        }
    }
    LockedGlobal(const LockedGlobal&) = delete;
    LockedGlobal& operator=(const LockedGlobal&) = delete;

    void* Get() const { return m_p; }

  private:
    HGLOBAL m_hGlobal;
    void* m_p;
};
} // namespace

HRESULT LSendoraContextMenu::QueryInterface(REFIID riid, void** ppv)
{
    LDebugTraceFunction("LSendoraContextMenu::QueryInterface", false, "");
    LDebugTraceGuid(riid);
    if (ppv == nullptr)
    {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (LIsEqualGuid(riid, IID_IUnknown) || LIsEqualGuid(riid, IID_IContextMenu))
    {
        *ppv = static_cast<IContextMenu*>(this);
    }
    else if (LIsEqualGuid(riid, IID_IShellExtInit))
    {
        *ppv = static_cast<IShellExtInit*>(this);
    }
    else
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

HRESULT LSendoraContextMenu::Initialize(LPCITEMIDLIST, IDataObject* pdtobj, HKEY)
{
    LDebugTraceFunction("LSendoraContextMenu::Initialize", false, "");
    if (pdtobj == nullptr)
    {
        return E_INVALIDARG;
    }
    FORMATETC format = {CF_HDROP, nullptr, DVASPECT_CONTENT, -1, TYMED_HGLOBAL};
    StorageMedium medium;
    if (!medium.GetFrom(*pdtobj, format))
    {
        return E_INVALIDARG;
    }
    const LockedGlobal drop(medium.Global());
    return drop.Get() == nullptr ? E_INVALIDARG : ReadDrop(static_cast<HDROP>(drop.Get()));
}

HRESULT LSendoraContextMenu::ReadDrop(HDROP hDrop)
{
    constexpr UINT uAskForCount = 0xFFFFFFFF;
    const UINT uFiles = DragQueryFileW(hDrop, uAskForCount, nullptr, 0);
    if (uFiles == 0)
    {
        return E_INVALIDARG;
    }
    // Behind the paths of an earlier call (contract.md O14).
    for (UINT i = 0; i < uFiles; ++i)
    {
        // A longer path arrives cut, and nothing says so; what that may lead to: contract.md O1.
        WCHAR szPath[LSTR];
        if (DragQueryFileW(hDrop, i, szPath, LSTR) == 0)
        {
            return E_INVALIDARG;
        }
        LDebugTraceFunction("LSendoraContextMenu::Initialize", false, szPath);
        const std::size_t uBefore = m_Files.GetCount();
        m_Files.Add(szPath);
        if (m_Files.GetCount() == uBefore)
        {
            // Not with one path silently missing: the user would believe it was handled.
            return E_OUTOFMEMORY;
        }
    }
    return S_OK;
}

bool LSendoraContextMenu::FirstFileBelongs() const
{
    if (m_Files.GetCount() == 0)
    {
        return false;
    }
    const WCHAR* szFile = m_Files.Get(0);
    LDebugTraceFunctionF("LSendoraContextMenu::QueryContextMenu", false, TEXT("file: %s"), szFile);
    return AnyAccountFolder(
        [szFile](const WCHAR* szFolder)
        {
            LDebugTraceFunctionF("LSendoraContextMenu::QueryContextMenu", false, TEXT("Checking folder: %s"),
                                 szFolder);
            const bool bBelongs = FileBelongsToFolder(szFolder, szFile);
            if (bBelongs)
            {
                LDebugTraceFunction("LSendoraContextMenu::QueryContextMenu", false, "Does belong");
            }
            return bBelongs;
        });
}

HRESULT LSendoraContextMenu::QueryContextMenu(HMENU hmenu, UINT indexMenu, UINT idCmdFirst, UINT idCmdLast,
                                              UINT uFlags)
{
    LDebugTraceFunction("LSendoraContextMenu::QueryContextMenu", false, "");
    if (!FirstFileBelongs())
    {
        LDebugTraceFunction("LSendoraContextMenu::QueryContextMenu", false, "Does NOT belong");
        return g_hrNothingAdded;
    }
    // Room for all commands is wanted even when the last one will not be used (contract.md O23). Written so
    // that it cannot wrap.
    if (idCmdLast < g_uCommands - 1 || idCmdFirst > idCmdLast - (g_uCommands - 1))
    {
        return g_hrNothingAdded;
    }
    if ((uFlags & CMF_DEFAULTONLY) != 0)
    {
        return S_OK;
    }
    // The first item decides for all (contract.md O22). Outside the folder lock: the attribute read may take
    // as long as the file system likes.
    const bool bFolder = LFile::IsFolder(m_Files.Get(0));
    PopupMenu popup;
    UINT uAdded = 0;
    UINT uUsed = 0; // identifiers, those of commands that were left out in between included
    for (UINT i = 0; i < g_uCommands; ++i)
    {
        if (bFolder && g_Commands[i].bFilesOnly)
        {
            continue;
        }
        if (!popup.Insert(uAdded, idCmdFirst + i, g_Commands[i].szText))
        {
            return g_hrNothingAdded; // no half a menu
        }
        ++uAdded;
        uUsed = i + 1;
    }
    return popup.MoveInto(hmenu, indexMenu, TEXT("Sendora")) ? static_cast<HRESULT>(uUsed) : g_hrNothingAdded;
}

HRESULT LSendoraContextMenu::GetCommandString(UINT_PTR idCmd, UINT uType, UINT*, LPSTR pszName, UINT cchMax)
{
    LDebugTrace("LSendoraContextMenu::GetCommandString");
    if (idCmd >= g_uCommands || uType != GCS_HELPTEXTW || pszName == nullptr)
    {
        return E_INVALIDARG;
    }
    tstrlcpy(reinterpret_cast<WCHAR*>(pszName), g_Commands[idCmd].szHelp, cchMax);
    return S_OK;
}

HRESULT LSendoraContextMenu::InvokeCommand(CMINVOKECOMMANDINFO* pici)
{
    LDebugTraceFunction("LSendoraContextMenu::InvokeCommand", false, "");
    if (pici == nullptr)
    {
        return E_INVALIDARG;
    }
    // The field holds an offset or a pointer to text; a pointer has a bit above the low word set; see
    // contract.md O10.
    const auto uVerb = reinterpret_cast<UINT_PTR>(pici->lpVerb);
    if (uVerb > 0xFFFF)
    {
        return E_INVALIDARG;
    }
    return SendRequest(static_cast<std::uint16_t>(uVerb), m_Files);
}
