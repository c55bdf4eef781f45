#include "dll/folders.h"

#include <atomic>

#include "gen/file.h"
#include "gen/stringtools.h"
#include "win32/settingsrecord.h"

namespace
{
// One aligned 32-bit load or store: a reader sees the old or the new stamp, never a mixture. There is no lock
// across processes, and only a difference carries meaning.
std::uint32_t LoadStamp(std::uint32_t uWithoutBlock)
{
    std::uint32_t* pStamp = g_SharedState.Get();
    return pStamp == nullptr ? uWithoutBlock
                             : std::atomic_ref<std::uint32_t>(*pStamp).load(std::memory_order_relaxed);
}

void ReadAccount(const LSharedSettings32Record& account)
{
    FolderPathItem* pNew = LNEW("LoadPaths") FolderPathItem;
    if (pNew == nullptr)
    {
        return; // the tracker has traced it, in every memory mode; the table is shorter by this account
    }
    account.GetString(TEXT("LocalFolder"), TEXT(""), pNew->szFolderPath);
    if (pNew->szFolderPath[0] == 0)
    {
        delete pNew;
        return;
    }
    pNew->lastUpdate = account.GetInt(TEXT("LastUpdate"), 0);
    LDebugTrace("LoadPaths Add: pNew->szFolderPath"); // contract.md O28
    g_FolderList.AddTop(pNew);
}
} // namespace

void LoadPaths()
{
    LDebugTrace("LoadPaths");
    // The stamp is read before the settings: a change that comes during the load causes one load more.
    g_uLoadedState = LoadStamp(g_uLoadedState);
    g_FolderList.DeleteAll();
    LDebugTraceFunction("LoadPaths", false, "64bit build, using 32bit registry");
    const LSharedSettings32Record accounts(TEXT("Accounts"));
    LSettings32ListIteratorTemplate<LSharedSettings32Record> it(accounts);
    while (it.IsValid())
    {
        LDebugTraceFunction("LoadPaths", false, "got one");
        ReadAccount(it.GetRecord());
        it.Next();
    }
}

void CheckPaths()
{
    LDebugTrace("CheckPaths");
    // Without the shared block there is no news: the table stays as it was loaded.
    if (LoadStamp(g_uLoadedState) != g_uLoadedState)
    {
        LoadPaths();
    }
}

bool FileBelongsToFolder(const WCHAR* szFolder, const WCHAR* szFile)
{
    LDebugTrace("FileBelongsToFolder: ", szFile);
    LDebugTrace("Folder: ", szFolder);
    std::size_t uFolder = szFolder == nullptr ? LSTR : tstrlen(szFolder);
    if (uFolder >= LSTR || szFile == nullptr)
    {
        return false;
    }
    const std::size_t uFile = tstrlen(szFile);
    if (uFile >= LSTR)
    {
        WCHAR szParent[LSTR];
        LFile::GetFolderFromPath(szParent, szFile); // reports more than LSTR characters (contract.md L2)
        return false;
    }
    // One separator at the end is taken off, no second one (contract.md O9).
    if (uFolder > 0 && LFile::IsSeparator(szFolder[uFolder - 1]))
    {
        --uFolder;
    }
    // The file's ancestors are what stands in front of its separators; the last one is "/" for a file that
    // begins so, nothing for any other. Of the folder's length there is one at most.
    const bool bRooted = szFile[0] == TEXT('/');
    const bool bAncestor =
        uFolder == 0 ? !bRooted
                     : (uFolder < uFile && LFile::IsSeparator(szFile[uFolder])) || (uFolder == 1 && bRooted);
    return bAncestor && tstrnicmp(szFile, szFolder, uFolder) == 0;
}

void StateChanged()
{
    LDebugTrace("StateChanged");
    std::uint32_t* pStamp = g_SharedState.Get();
    if (pStamp != nullptr)
    {
        // Two changes within a tick are one (contract.md O25, D11).
        std::atomic_ref<std::uint32_t>(*pStamp).store(GetTickCount(), std::memory_order_relaxed);
    }
}
