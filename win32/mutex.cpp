#include "win32/mutex.h"

#include "gen/debug.h"

constinit std::atomic<std::uint32_t> LLockObject::uLockThreadId{0};

LLockObject::LLockObject() : uTCLockTime(0), uOwnerThreadId(0), uEntryCount(0)
{
    static_assert(offsetof(LLockObject, uTCLockTime) == 40); // contract.md M6
    // Without the system's debug record, a block of the process's heap for each section, which a lock that is
    // made again behind the last static object would leave behind in the host. The call cannot fail.
    InitializeCriticalSectionEx(&m_CriticalSection, 0, CRITICAL_SECTION_NO_DEBUG_INFO);
}

LLockObject::~LLockObject()
{
    if (uTCLockTime != 0)
    {
        LDebugTraceError(
            "LLockObject::~LLockObject  Not unlocked before destruction. Check you have matching unlocks");
    }
    DeleteCriticalSection(&m_CriticalSection);
}

void LLockObject::Lock()
{
    EnterCriticalSection(&m_CriticalSection);
    const std::uint32_t uThreadId = GetCurrentThreadId();
    uOwnerThreadId.store(uThreadId, std::memory_order_relaxed);
    ++uEntryCount;
    if (uTCLockTime != 0)
    {
        LDebugCheckFailed(
            "uTCLockTime == 0",
            "LLockObject::Lock  Locked twice on the same thread. This is prohibited. Please make sure "
            "you unlock before you lock again.",
            __FILE__, __LINE__);
    }
    // A tick count of exactly 0 would read as "not locked"; one millisecond more does no harm.
    const std::uint32_t uNow = GetTickCount();
    uTCLockTime = uNow == 0 ? 1 : uNow;
    if (uLockThreadId.load(std::memory_order_relaxed) == uThreadId)
    {
        LDebugCheckFailed(
            "uLockThreadId != uCurrentThreadId",
            "LLockObject::Lock  Locked while already in a lock. This is prohibited because it is a "
            "likely source of deadlocks.",
            __FILE__, __LINE__);
    }
    uLockThreadId.store(uThreadId, std::memory_order_relaxed);
}

void LLockObject::Unlock()
{
    const std::uint32_t uThreadId = GetCurrentThreadId();
    // Only this thread can have stored its own id, so the answer is certain without the section.
    const bool bOwner = uOwnerThreadId.load(std::memory_order_relaxed) == uThreadId;
    const std::uint32_t uLockTime = bOwner ? uTCLockTime : 0;
    if (uLockTime == 0)
    {
        LDebugTraceFunction("LLockObject::Unlock", true, "Object never locked before calling Unlock.");
    }
    if (static_cast<std::uint32_t>(GetTickCount() - uLockTime) > 5000) // contract.md D10
    {
        LDebugTraceFunction("LLockObject::Unlock", true,
                            "Unlock called more than 5 seconds after lock. This is not good.");
    }
    if (!bOwner)
    {
        return;
    }
    uTCLockTime = 0;
    if (uLockThreadId.load(std::memory_order_relaxed) == uThreadId)
    {
        uLockThreadId.store(0, std::memory_order_relaxed);
    }
    --uEntryCount;
    if (uEntryCount == 0)
    {
        uOwnerThreadId.store(0, std::memory_order_relaxed);
    }
    LeaveCriticalSection(&m_CriticalSection);
}

void LLockObject::ResetLockThread()
{
    uLockThreadId.store(0, std::memory_order_relaxed);
}
