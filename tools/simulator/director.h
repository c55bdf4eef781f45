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
    unsigned hosts = 0; // at the same time
};

// Plays everything around the hosts: writes the settings and announces the changes, starts and ends hosts and
// main programs, and looks at what they leave. 0 when all went well, 3 with the reason on out.
int RunDirector(const RunPlan& plan, std::ostream& out);
} // namespace sndxtools::simulator
