#pragma once
// The table of the local folders that are bound to the user's accounts. Every process with the module loaded
// keeps its own; it is read from the machine-wide settings at process attach and again at the first query
// after any process has called StateChanged. The signal is a stamp in a 4-byte shared memory block.
//
// To ask the table: take g_FolderListLock, call CheckPaths, walk g_FolderList calling FileBelongsToFolder,
// release the lock. AnyAccountFolder does so.

#include "gen/list.h"
#include "gen/types.h"
#include "win32/mutex.h"
#include "win32/sharedmemory.h"

struct FolderPathItem : LListable
{
    WCHAR szFolderPath[LSTR]; // as stored in the settings; never empty in the table
    std::int64_t lastUpdate;  // the account's "LastUpdate"; kept for whoever looks at a dump
};
static_assert(sizeof(FolderPathItem) == 544); // contract.md M10

// Static objects of the module, defined with all others in dll/sndxdll.
extern LList<FolderPathItem> g_FolderList;
extern LLockObject g_FolderListLock; // guards g_FolderList and g_uLoadedState
extern LIPCSharedMemory<std::uint32_t> g_SharedState;
extern std::uint32_t g_uLoadedState; // the stamp read at the start of the last load

// Both want g_FolderListLock held.
void LoadPaths();
void CheckPaths();

// True when szFile lies strictly inside szFolder, at any depth. Letters A to Z compare without case; '/' and
// '\' both separate but do not match each other (contract.md O7 to O9). A file path of 260 characters or more
// belongs nowhere.
bool FileBelongsToFolder(const WCHAR* szFolder, const WCHAR* szFile);

// Calls belongs(szFolderPath) for one account folder after the other, the last account first, until it
// returns true; tells whether one did. Takes g_FolderListLock for all of it, reloads the table when needed
// and blocks while another thread does: belongs must not take a lock.
template <class TBelongs>
bool AnyAccountFolder(TBelongs belongs)
{
    LLockObjectScope lock(g_FolderListLock);
    CheckPaths();
    for (LListIterator<FolderPathItem> it(g_FolderList); it.IsValid(); it.Next())
    {
        if (belongs(it->szFolderPath))
        {
            return true;
        }
    }
    return false;
}

// Tells every process that the settings behind the table have changed. Exported; nothing in the module calls
// it. Takes no lock.
extern "C" void StateChanged();
