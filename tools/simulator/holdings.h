#pragma once
#include <cstdint>

namespace sndxtools::simulator
{
// What this process holds, while none of its threads is at work.
struct Holdings
{
    std::int64_t handles;
    std::int64_t kilobytes; // in memory

    static Holdings Now();
};
} // namespace sndxtools::simulator
