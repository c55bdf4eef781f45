#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace sndxtools::simulator
{
// The lines that the module of this process has handed to the debugger. It hands over every line that it
// tried to write, behind the writing.
struct TracedLines
{
    std::uint64_t count = 0;
    std::vector<std::string>
        late; // whole lines that came to the debugger too late to have been written at once
};

// Watches from now on; to be called once, before the module is loaded.
void WatchTracedLines();

// The lines since the last call, which must be those of one life of the module: its clock starts anew in
// each.
TracedLines TakeTracedLines();
} // namespace sndxtools::simulator
