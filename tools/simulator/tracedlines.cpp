#include "tools/simulator/tracedlines.h"

#include <atomic>
#include <mutex>
#include <string_view>
#include <utility>

#include <windows.h>

namespace sndxtools::simulator
{
namespace
{
// A line that cannot be written is given up 1512 ms after the first try. The clock has steps of about 16 ms.
constexpr DWORD writersPatience = 1480;
constexpr DWORD dayLength = 24 * 60 * 60 * 1000;
constexpr DWORD noDistance = 0xFFFFFFFF;

constinit std::atomic<std::uint64_t> tracedCount{0};
// From the time of day that a line names to the tick count at which it is here: the shortest so far.
constinit std::atomic<DWORD> shortestDistance{noDistance};

struct LateLines
{
    std::mutex mutex;
    std::vector<std::string> lines;
};
LateLines& Late()
{
    static LateLines& late = *new LateLines; // the module's last lines come behind our static objects
    return late;
}

// The milliseconds of "hh:mm:ss.mmm".
DWORD TimeOfDay(std::string_view line)
{
    constexpr DWORD units[] = {36'000'000, 3'600'000, 0, 600'000, 60'000, 0, 10'000, 1'000, 0, 100, 10, 1};
    DWORD time = 0;
    for (std::size_t i = 0; i < std::size(units) && i < line.size(); ++i)
    {
        time += units[i] * static_cast<DWORD>(line[i] - '0');
    }
    return time;
}

// On the thread that writes, whatever locks of the module it holds.
void NoteLine(std::string_view line)
{
    ++tracedCount;
    const DWORD distance = (GetTickCount() % dayLength + dayLength - TimeOfDay(line) % dayLength) % dayLength;
    DWORD known = shortestDistance;
    while (distance < known && !shortestDistance.compare_exchange_weak(known, distance))
    {
    }
    if (known != noDistance && distance > known && distance - known >= writersPatience)
    {
        const std::lock_guard lock(Late().mutex);
        Late().lines.emplace_back(line);
    }
}
} // namespace

#ifdef _WIN32
void WatchTracedLines()
{
    Late();
    // The text travels as an exception, with its length, which counts a terminator. Taken here it reaches no
    // debug viewer.
    const auto take = [](EXCEPTION_POINTERS* exception) -> LONG
    {
        constexpr DWORD printing = 0x40010006; // DBG_PRINTEXCEPTION_C
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (record.ExceptionCode != printing || record.NumberParameters < 2)
        {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        NoteLine(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
        return EXCEPTION_CONTINUE_EXECUTION;
    };
    AddVectoredExceptionHandler(1, +take);
}
#else
void WatchTracedLines()
{
    Late();
}

// Stands in front of the layer's own function for the whole program, the module included.
extern "C" void WINAPI OutputDebugStringA(LPCSTR text)
{
    NoteLine(text);
}
#endif

TracedLines TakeTracedLines()
{
    const std::lock_guard lock(Late().mutex);
    shortestDistance = noDistance;
    return {tracedCount.exchange(0), std::exchange(Late().lines, {})};
}
} // namespace sndxtools::simulator
