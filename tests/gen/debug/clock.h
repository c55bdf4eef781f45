#pragma once
// Time stamps of trace lines as milliseconds of the day.

#include <cstdint>
#include <string>

namespace sndxtest
{
constexpr std::uint32_t millisecondsOfDay = 24 * 3600 * 1000;

inline std::uint32_t TimeOfStamp(const std::string& stamp) // "hh:mm:ss.mmm"
{
    const auto number = [&stamp](std::size_t at, std::size_t digits)
    { return static_cast<std::uint32_t>(std::stoul(stamp.substr(at, digits))); };
    return ((number(0, 2) * 60 + number(3, 2)) * 60 + number(6, 2)) * 1000 + number(9, 3);
}

// From one time of day forward to the other, across midnight if need be.
inline std::uint32_t TimeBetween(std::uint32_t from, std::uint32_t to)
{
    return (to + millisecondsOfDay - from) % millisecondsOfDay;
}
} // namespace sndxtest
