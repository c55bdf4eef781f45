#pragma once
#include <cstdint>
#include <ostream>

#include "tools/text.h"

namespace sndxtools::simulator
{
enum class HostManner
{
    shell,    // everything, in one life of the module after the other
    storm,    // nothing but the overlay, with as many threads as are asked for, in one life
    announcer // tells of changes that there are none, all the time
};

enum class HostEnd
{
    inOrder,
    underBusyThreads, // the process ends in order, but its threads are at work
    terminated        // it is gone at once
};
constexpr int terminatedCode = 77; // its exit code then

// One process that uses the module, until the director says that the run ends or its time is over.
struct HostPlan
{
    WideString module;
    std::uint64_t seed = 0;    // of the run: what the settings are
    std::uint64_t ownSeed = 0; // of this host: what it does
    unsigned milliseconds = 0; // how long
    HostManner manner = HostManner::shell;
    HostEnd end = HostEnd::inOrder;
    unsigned threads = 0;     // of a storm
    bool lasting = false;     // it stays for the whole run, and tells how it has grown
    bool sharedTrace = false; // another process of the same name may be at work
};

// 0 when everything that must hold has held; 3, with a line on out, when it has not.
int RunHost(const HostPlan& plan, std::ostream& out);
} // namespace sndxtools::simulator
