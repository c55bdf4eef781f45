#pragma once
#include <string>

namespace sndxtools::simulator
{
struct TraceExpectation
{
    bool ends;  // in order, and nothing behind it
    bool leaks; // a process may have ended under busy threads: what they held is listed
};

// What is wrong with a trace file that hosts of the simulator have left; empty when nothing is.
std::string FaultOfTrace(const std::string& content, const TraceExpectation& expected);
} // namespace sndxtools::simulator
