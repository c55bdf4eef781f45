#pragma once
// A named mutex in the global namespace that serialises work across processes and sessions. The system object
// exists only while somebody holds or awaits the lock. One thread at a time; Unlock belongs to the thread of
// Lock; not re-entrant.

#include "gen/types.h"
#include "win32/handle.h"

class LSystemLockMutex
{
  public:
    // The object's name is "Global\" and szName. Creates nothing yet.
    explicit LSystemLockMutex(const WCHAR* szName);
    ~LSystemLockMutex();
    LSystemLockMutex(const LSystemLockMutex&) = delete;
    LSystemLockMutex& operator=(const LSystemLockMutex&) = delete;

    // True when the lock is held on return, also when its previous owner ended without releasing it.
    bool Lock(std::uint32_t uTimeoutMs);
    bool Lock() { return Lock(INFINITE); }
    void Unlock();

  private:
    WCHAR m_szName[LSTR];
    LHandle m_Mutex; // open exactly while this object holds the lock
};
static_assert(sizeof(LSystemLockMutex) == 528); // contract.md M14
