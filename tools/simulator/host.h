#pragma once
#include <cstdint>
#include <ostream>

#include "tools/text.h"

namespace sndxtools::simulator
{
// One process that uses the module as a shell does: life after life of it, some threads in each, until the
// director says that the run ends or the life is over.
struct HostPlan
{
    WideString module;
    std::uint64_t seed = 0;    // of the run: what the accounts are
    std::uint64_t ownSeed = 0; // of this host: what it does
    unsigned milliseconds = 0; // how long
    bool endsBusy = false;     // ends the process while its threads are at work
};

// 0 when everything that must hold has held; 3, with a line on out, when it has not.
int RunHost(const HostPlan& plan, std::ostream& out);
} // namespace sndxtools::simulator
