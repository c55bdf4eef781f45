#pragma once
#include <ostream>

#include "tools/shellhost/host.h"

namespace sndxtools
{
// What a host can do wrong with a reference; both deeds go on with an object that has ended, so they belong
// into a process of their own.
enum class Misuse
{
    overRelease, // one Release more than there were references
    // A reference taken and given back after the end: the object ends a second time, and its block is
    // released a second time. The end leaves the object with the function table of its abstract base, whose
    // entry for an end is empty; a call through it would only show that. The table is put back first, as a
    // compiler that fills the entry would have it.
    doubleRelease
};

// Commits it in this process. The memory of the ended object is fetched back from the runtime first: what is
// touched then belongs to this process and nobody else writes to it. Returns exitRefused, with nothing done
// wrong, when the runtime does not hand it out again. The second end of an object stops the process.
int CommitMisuse(Host& host, Misuse misuse, std::ostream& out);
} // namespace sndxtools
