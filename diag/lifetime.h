#pragma once
// What begins and ends the diagnostics: three static objects of the module, the only part of diag/ that dll/
// uses. What depends on their places: contract.md C22, C25, C26.

#include "gen/types.h"

// Starts the trace when it is constructed and ends it when it is destroyed; every later line is dropped.
class LDebugTraceLifetime
{
  public:
    LDebugTraceLifetime();
    ~LDebugTraceLifetime();
    LDebugTraceLifetime(const LDebugTraceLifetime&) = delete;
    LDebugTraceLifetime& operator=(const LDebugTraceLifetime&) = delete;
};

// Gives back what the allocation lock took from the system while threads waited for it. The module's first
// static object and so the last to go: blocks are released until then. A release after it makes the lock
// again.
class LDebugHeapLifetime
{
  public:
    constexpr LDebugHeapLifetime() = default;
    ~LDebugHeapLifetime();
    LDebugHeapLifetime(const LDebugHeapLifetime&) = delete;
    LDebugHeapLifetime& operator=(const LDebugHeapLifetime&) = delete;
};

// Tells an unload from the end of the process, where the system has ended every other thread wherever it was:
// in the middle of a line, or inside a lock. On Windows, to enter a lock whose owner has died ends the
// process at once; so from then on the diagnostics take no lock, leave the runtime's heap alone and wait for
// nobody's file.
//
// The module's last static object and so the first to go. What DllMain announces takes effect only then: a
// host that calls DllMain by its name changes nothing.
class LDebugProcessEnd
{
  public:
    constexpr LDebugProcessEnd() = default;
    ~LDebugProcessEnd();
    LDebugProcessEnd(const LDebugProcessEnd&) = delete;
    LDebugProcessEnd& operator=(const LDebugProcessEnd&) = delete;

    void Announce(bool bProcessEnds) { m_bAnnounced = bProcessEnds; }

    // True once this is the only thread left.
    static bool HasBegun();

  private:
    bool m_bAnnounced = false;
};
