#include "win32/systemmutex.h"

#include "gen/debug.h"
#include "gen/stringtools.h"

LSystemLockMutex::LSystemLockMutex(const WCHAR* szName) : m_szName{}
{
    static_assert(offsetof(LSystemLockMutex, m_Mutex) == 520); // contract.md M14
    tsnprintf(m_szName, LSTR, TEXT("Global\\%s"), szName);
}

bool LSystemLockMutex::Lock(std::uint32_t uTimeoutMs)
{
    if (m_Mutex.IsOpen())
    {
        LDebugTraceError("LSystemLockMutex::Lock Called when already locked!");
        return true;
    }
    constexpr std::uint32_t uRetryMs = 50;
    WCHAR szName[LSTR];
    tstrlcpy(szName, m_szName);
    for (;;)
    {
        m_Mutex.Set(CreateMutexW(nullptr, FALSE, szName));
        if (m_Mutex.IsOpen())
        {
            break;
        }
        if (GetLastError() != ERROR_ACCESS_DENIED)
        {
            LDebugTraceError("LSystemLockMutex::Lock CreateMutex FAILED");
            return false;
        }
        // A process of another user holds the object with its own security. It goes with that lock, so the
        // name is tried again, for as long as the time-out allows (contract.md D9).
        Sleep(uRetryMs);
        if (uTimeoutMs <= uRetryMs)
        {
            LDebugTrace("LSystemLockMutex::Lock CreateMutex Timed Out");
            return false;
        }
        uTimeoutMs -= uRetryMs;
    }
    // Bounded by what is left of the caller's time-out; without one, by the holder.
    if (WaitForSingleObject(m_Mutex.Get(), uTimeoutMs) == WAIT_TIMEOUT)
    {
        LDebugTrace("LSystemLockMutex::Lock Timed Out");
        m_Mutex.Close();
        return false;
    }
    return true;
}

void LSystemLockMutex::Unlock()
{
    if (!m_Mutex.IsOpen())
    {
        return;
    }
    if (!ReleaseMutex(m_Mutex.Get()))
    {
        LDebugTraceSystemError("LSystemLockMutex::Unlock FAILED ", GetLastError());
    }
    m_Mutex.Close();
}

LSystemLockMutex::~LSystemLockMutex()
{
    LDebugTrace("LSystemLockMutex::~LSystemLockMutex");
    if (m_Mutex.IsOpen())
    {
        LDebugTraceError("LSystemLockMutex::~LSystemLockMutex when Locked!");
        m_Mutex.Close();
    }
}
