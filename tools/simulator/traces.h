#pragma once
#include <cstdint>
#include <string>

#include "tools/simulator/tracedlines.h"

namespace sndxtools::simulator
{
struct TraceExpectation
{
    bool ends = false;    // in order, and nothing behind it
    bool leaks = false;   // a process may have ended under busy threads: what they held is listed
    bool growing = false; // somebody may be writing: the last line need not be whole yet
};

// What is wrong with a trace file that hosts of the simulator have left; empty when nothing is.
std::string FaultOfTrace(const std::string& content, const TraceExpectation& expected);

// The module had its last word.
bool HasEnd(const std::string& content);

// Holds the lines that one life of the module tried to write against the whole trace of it: each is there,
// but for those that were given up after the stated time-out, which are counted in lost.
std::string FaultOfLineCount(const std::string& content, const TracedLines& traced, std::uint64_t& lost);

// What is wrong with the requests that a main program has shown, all of which hosts of the simulator have
// sent.
std::string FaultOfRequests(const std::string& content);
} // namespace sndxtools::simulator
