#pragma once
// The courtesy among the threads of a process that write trace lines. The trace file shuts other writers out
// while it is open, and who finds it shut sleeps 24 ms or longer, often below the folder lock. So a thread
// first lets another one finish that is in the middle of a line.
//
// It is no lock and excludes nobody: after a quarter of a second a thread goes on all the same, and meets the
// file's share mode as it would without. A thread that dies with its turn holds up the others once, for no
// longer than that.

#include "gen/types.h"

// One attempt at one line, from before the open until after the close. Any thread; not for the end of the
// process, where nobody is left to be waited for. A line that is written while the same thread writes another
// one is not held up.
class LTraceTurn
{
  public:
    LTraceTurn();
    ~LTraceTurn();
    LTraceTurn(const LTraceTurn&) = delete;
    LTraceTurn& operator=(const LTraceTurn&) = delete;

  private:
    std::uint32_t m_uThread; // what this turn has noted; 0 for nothing
};
