#pragma once
// Time and handles that an operation takes. Upper bounds in tests are for a machine that is busy with other
// things; lower bounds are real.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

#include "win32/handle.h"

namespace sndxtest
{
class Stopwatch
{
  public:
    std::int64_t Milliseconds() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                     start_)
            .count();
    }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// What a wait of n milliseconds takes at least: the system's clock may be a tick behind.
constexpr std::int64_t AtLeast(std::int64_t milliseconds)
{
    return milliseconds - 16;
}

// Handles that a hundred runs of an operation leave open. Handle values grow by 4 with every further open
// handle on both targets; the slack is for what the system itself opens once.
template <class Operation>
std::int64_t HandlesLeft(Operation operation)
{
    // The highest of several new values: the first ones may be closed handles' values used again.
    const auto highest = []
    {
        std::array<LHandle, 32> handles;
        std::int64_t value = 0;
        for (LHandle& handle : handles)
        {
            handle.Set(CreateEventW(nullptr, TRUE, FALSE, nullptr));
            value = std::max(value, static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(handle.Get())));
        }
        return value;
    };
    operation();
    const std::int64_t before = highest();
    for (int i = 0; i < 100; ++i)
    {
        operation();
    }
    const std::int64_t grown = (highest() - before) / 4;
    return grown < 50 ? 0 : grown;
}
} // namespace sndxtest
