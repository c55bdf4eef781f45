#pragma once
// The in-process lock: a critical section that watches how it is used. The rules, which it enforces by
// reporting in the trace: a thread never locks the same object twice, never takes a lock while it holds
// another, and never holds a lock for more than five seconds. A violation never fails a lock.

#include <atomic>

#include "gen/types.h"

class LLockObject
{
  public:
    LLockObject();
    ~LLockObject();
    LLockObject(const LLockObject&) = delete;
    LLockObject& operator=(const LLockObject&) = delete;

    // Blocks without bound until the other thread leaves.
    void Lock();
    // On a thread that has not locked the object the call is reported and changes nothing.
    void Unlock();

    // Forgets which thread holds a lock, so that the Lock that follows is not reported as nested: for the
    // diagnostics and the registry of COM objects, which are used below any lock.
    static void ResetLockThread();

  private:
    CRITICAL_SECTION m_CriticalSection;
    // GetTickCount of the last Lock, 0 while not locked. Written only by the thread inside the section.
    std::uint32_t uTCLockTime;
    // Owner and depth of the critical section, which the system keeps to itself: an Unlock must leave once
    // for each enter, and never on a thread that did not enter. The owner is read by other threads.
    std::atomic<std::uint32_t> uOwnerThreadId;
    std::uint32_t uEntryCount;

    // The thread that most recently locked any object and has not unlocked it; 0 for none. One unguarded
    // variable for the whole process, so the nested-lock report is a heuristic: another thread's lock in
    // between hides a nesting (contract.md O24). Relaxed loads and stores are all it needs.
    static std::atomic<std::uint32_t> uLockThreadId;
};
static_assert(sizeof(LLockObject) == 56); // contract.md M6

// Holds an LLockObject for a scope.
class LLockObjectScope
{
  public:
    explicit LLockObjectScope(LLockObject& lock) : m_pLock(&lock) { m_pLock->Lock(); }
    ~LLockObjectScope() { m_pLock->Unlock(); }
    LLockObjectScope(const LLockObjectScope&) = delete;
    LLockObjectScope& operator=(const LLockObjectScope&) = delete;

  private:
    LLockObject* m_pLock;
};
static_assert(sizeof(LLockObjectScope) == 8); // contract.md M7
