#pragma once
// Time and handles that an operation takes. Upper bounds in tests are for a machine that is busy with other
// things; lower bounds are real.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <thread>

#include <windows.h>

namespace sndxtest
{
class Stopwatch
{
  public:
    long long Milliseconds() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_).count();
    }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};

// What a wait of n milliseconds takes at least: the system's clock may be a tick behind.
constexpr long long AtLeast(long long milliseconds)
{
    return milliseconds - 16;
}

// Whether the condition comes true in time. A test that expects it says what it waits for.
template <class Condition>
bool Within(DWORD milliseconds, Condition condition)
{
    const Stopwatch stopwatch;
    bool met = condition();
    while (!met && stopwatch.Milliseconds() < milliseconds)
    {
        Sleep(5);
        met = condition();
    }
    return met;
}

// Runs the action in so many milliseconds on a thread of its own, which ends with the returned object at the
// latest.
template <class Action>
std::jthread Later(DWORD milliseconds, Action action)
{
    return std::jthread(
        [=]
        {
            Sleep(milliseconds);
            action();
        });
}

// Handles that a hundred runs of an operation leave open. Handle values grow by 4 with every further open
// handle on both targets; the slack is for what the system itself opens once.
template <class Operation>
std::intptr_t HandlesLeft(Operation operation)
{
    // The highest of several new values: the first ones may be closed handles' values used again.
    const auto highest = []
    {
        HANDLE handles[32];
        std::generate_n(handles, 32, [] { return CreateEventW(nullptr, TRUE, FALSE, nullptr); });
        std::for_each(handles, handles + 32, &CloseHandle);
        return reinterpret_cast<std::intptr_t>(*std::max_element(handles, handles + 32));
    };
    operation();
    const std::intptr_t before = highest();
    for (int i = 0; i < 100; ++i)
    {
        operation();
    }
    const std::intptr_t grown = (highest() - before) / 4;
    return grown < 50 ? 0 : grown;
}
} // namespace sndxtest
