#pragma once
#include <cstdint>
#include <ostream>

#include "tools/text.h"

namespace sndxtools::simulator
{
struct RunPlan
{
    WideString module;
    WideString mainProgram;
    std::uint64_t seed = 0;
    unsigned seconds = 0;
    unsigned hosts = 0;   // at the same time
    unsigned threads = 0; // of one host that asks the overlay all the time, the others only announcing
                          // changes; 0 for shells that do everything
};

// Plays everything around the hosts: writes the settings and announces the changes, starts and ends hosts and
// main programs, and looks at what they leave. 0 when all went well, 3 with the reason on out.
int RunDirector(const RunPlan& plan, std::ostream& out);
} // namespace sndxtools::simulator
