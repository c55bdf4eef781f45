// What a test can set and see (sndxposix.h), and the calls that it governs: the clock, the thread's
// identifier, the debugger's output.

#include "sndxposix.h"

#include "posix/base/call.h"
#include "posix/base/locked.h"
#include "sndx/base.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

namespace sndxposix
{
namespace
{
struct Failure
{
    std::string function;
    DWORD error;
    unsigned skip;
};

constexpr std::size_t maximumDebugOutput = std::size_t{1} << 20;

struct Control
{
    std::vector<Failure> failures;
    std::string debugOutput;
};

// Number of failures asked for, so that the ordinary call need not take the lock.
std::atomic<unsigned> pendingFailures{0};
std::atomic<FailureChooser> failureChooser{nullptr};

std::atomic<std::size_t> liveObjects{0};

// The tick count a test has set, with this bit; 0 while the real one runs.
constexpr std::uint64_t tickCountIsSet = std::uint64_t{1} << 32;
std::atomic<std::uint64_t> setTickCount{0};

thread_local DWORD setThreadId = 0;

std::uint32_t RealTickCount()
{
    using namespace std::chrono;
    return static_cast<std::uint32_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

bool KeepDebugOutput(std::string_view text)
{
    const Locked<Control> control;
    control->debugOutput.append(text);
    // Cut seldom: moving the rest costs as much as keeping it.
    if (control->debugOutput.size() > 2 * maximumDebugOutput)
    {
        control->debugOutput.erase(0, control->debugOutput.size() - maximumDebugOutput);
    }
    return true;
}

// Whether the call meets a request; its error then.
bool TakeFailure(const char* function, DWORD& error)
{
    if (pendingFailures == 0)
    {
        return false;
    }
    const Locked<Control> control;
    // Every request for the function counts the call; of those that are due the first one takes it.
    auto due = control->failures.end();
    for (auto failure = control->failures.begin(); failure != control->failures.end(); ++failure)
    {
        if (failure->function == function && failure->skip > 0)
        {
            --failure->skip;
        }
        else if (failure->function == function && due == control->failures.end())
        {
            due = failure;
        }
    }
    if (due == control->failures.end())
    {
        return false;
    }
    error = due->error;
    control->failures.erase(due);
    --pendingFailures;
    return true;
}
} // namespace

void SetTickCount(std::uint32_t milliseconds)
{
    setTickCount = tickCountIsSet | milliseconds;
}

void AdvanceTickCount(std::uint32_t milliseconds)
{
    std::uint64_t old = setTickCount;
    std::uint32_t next;
    do
    {
        next = (old == 0 ? RealTickCount() : static_cast<std::uint32_t>(old)) + milliseconds;
    } while (!setTickCount.compare_exchange_weak(old, tickCountIsSet | next));
}

void RunTickCount()
{
    setTickCount = 0;
}

void SetLocalTimeOfDay(int hour, int minute, int second)
{
    constexpr long day = 24 * 60 * 60;
    const long wanted = (hour * 60L + minute) * 60 + second;
    long west = (std::time(nullptr) - wanted) % day; // seconds that local time is behind UTC
    // The zone's offset is at most half a day either way, as real ones are.
    if (west > day / 2)
    {
        west -= day;
    }
    const long absolute = std::labs(west);
    char zone[64];
    std::snprintf(zone, sizeof zone, "<TEST>%c%02ld:%02ld:%02ld", west < 0 ? '-' : '+', absolute / 3600,
                  absolute / 60 % 60, absolute % 60);
    setenv("TZ", zone, 1);
    tzset();
}

void SetCurrentThreadId(std::uint32_t id)
{
    setThreadId = id;
}

void FailCall(const char* function, std::uint32_t error, unsigned skip)
{
    const Locked<Control> control;
    control->failures.push_back({function, error, skip});
    ++pendingFailures;
}

void ResetFailures()
{
    const Locked<Control> control;
    control->failures.clear();
    pendingFailures = 0;
}

unsigned PendingFailures()
{
    return pendingFailures;
}

void ChooseFailures(FailureChooser chooser)
{
    failureChooser = chooser;
}

std::size_t LiveObjects()
{
    return liveObjects;
}

void CountLive(int difference)
{
    liveObjects += static_cast<std::size_t>(difference);
}

bool FailNextCall(const char* function, Outputs outputs)
{
    const FailureChooser chooser = failureChooser;
    DWORD error = chooser == nullptr ? 0 : chooser(function);
    if (error == 0 && !TakeFailure(function, error))
    {
        return false;
    }
    for (const Output& output : outputs)
    {
        if (output.size != 0)
        {
            std::memset(output.at, 0xCC, output.size);
        }
    }
    SetLastError(error);
    return true;
}

std::string TakeDebugOutput()
{
    const Locked<Control> control;
    return std::exchange(control->debugOutput, {});
}

extern "C" DWORD WINAPI GetTickCount()
{
    const std::uint64_t set = setTickCount;
    return set != 0 ? static_cast<DWORD>(set) : RealTickCount();
}

extern "C" DWORD WINAPI GetCurrentThreadId()
{
    return setThreadId != 0 ? setThreadId : static_cast<DWORD>(syscall(SYS_gettid));
}

extern "C" void WINAPI OutputDebugStringA(LPCSTR text)
{
    Guarded(false, [&] { return KeepDebugOutput(text == nullptr ? "" : text); });
}
} // namespace sndxposix
