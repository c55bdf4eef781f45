#include "win32/sharedmemory.h"

#include "gen/stringtools.h"
#include "win32/securityattributes.h"
#include "win32/systemmutex.h"

void LIPCSharedMemoryBuffer::_Create(const WCHAR* szName, std::uint64_t uSize, bool bFailIfExists,
                                     bool bGlobal)
{
    static_assert(offsetof(LIPCSharedMemoryBuffer, m_pView) == 8 &&
                  offsetof(LIPCSharedMemoryBuffer, m_uSize) == 16); // contract.md M13
    LDebugTraceFunction("LIPCSharedMemoryBuffer::_Create", false, szName);
    Close();             // a block of an earlier call
    WCHAR szGuard[LSTR]; // contract.md N3
    tsnprintf(szGuard, LSTR, TEXT("fmm%s"), szName);
    LStringReplaceChar(szGuard, TEXT('\\'), TEXT('_'));
    LSystemLockMutex guard(szGuard);
    WCHAR szGlobal[LSTR];
    const WCHAR* szMapping = szName;
    if (bGlobal)
    {
        tsnprintf(szGlobal, LSTR, TEXT("Global\\%s"), szName);
        szMapping = szGlobal;
    }
    // No time-out (contract.md D9): the guard is held only for the few calls below. Without the guard the
    // block is created all the same; then two processes may both believe to be the first.
    guard.Lock();
    LSecurityAttributesAllAccess security;
    m_Mapping.Set(CreateFileMappingW(INVALID_HANDLE_VALUE,
                                     bGlobal ? security.GetSecurityAttributes() : nullptr, PAGE_READWRITE, 0,
                                     static_cast<DWORD>(uSize), szMapping));
    const DWORD uError = GetLastError();
    if (!m_Mapping.IsOpen())
    {
        LDebugTraceSystemError("LIPCSharedMemoryBuffer::_Create CreateFileMapping failed returned error: ",
                               uError);
    }
    else if (bFailIfExists && uError == ERROR_ALREADY_EXISTS)
    {
        m_Mapping.Close();
    }
    else
    {
        m_pView = MapViewOfFile(m_Mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, static_cast<SIZE_T>(uSize));
        // Whoever came first chose the kind of the block. One whose memory is only reserved, or that shows a
        // program's file, can be mapped, but touching it would end the host.
        MEMORY_BASIC_INFORMATION memory = {};
        if (m_pView != nullptr && VirtualQuery(m_pView, &memory, sizeof(memory)) != 0 &&
            (memory.State != MEM_COMMIT || (memory.Protect & PAGE_READWRITE) == 0 ||
             memory.RegionSize < uSize))
        {
            UnmapViewOfFile(m_pView);
            m_pView = nullptr;
        }
    }
    guard.Unlock();
    m_uSize = uSize;
}

void LIPCSharedMemoryBuffer::Close()
{
    if (m_pView != nullptr)
    {
        UnmapViewOfFile(m_pView);
        m_pView = nullptr;
    }
    m_Mapping.Close();
    m_uSize = 0;
}
