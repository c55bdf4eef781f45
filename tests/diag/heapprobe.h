#pragma once
// The tracker seen from outside: the memory mode of this process, its blocks byte by byte, and the stops in
// the debugger that it raises.

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#include "diag/heap.h"
#include "tests/support/leakchecker.h"
#include "tests/support/settings.h"
#include "tests/support/tracefile.h"

namespace sndxtest
{
inline constexpr char blockFile[] = "room/source.cpp";

inline void* MakeBlock(std::size_t size, bool array = false, const char* function = "Maker",
                       std::int32_t line = 7)
{
    const LDebugHeapLock lock;
    return LMemAllocation::Record(size, blockFile, function, line, array);
}

inline void ReleaseBlock(void* user, bool array = false)
{
    LDebugHeapRelease(user, array);
}

// What lies at an odd address.
template <class T>
T Peek(const void* at)
{
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

inline std::string Tag(const void* user)
{
    return std::string(static_cast<const char*>(user) - 4, 4);
}

// Where the record of a block lies; not for mode 5, whose blocks do not lead to theirs.
inline std::byte* RecordAddress(void* user)
{
    auto* const bytes = static_cast<std::byte*>(user);
    return Tag(user) == "3MEM" ? Peek<std::byte*>(bytes - 12) : bytes - 60;
}

inline LMemAllocation RecordOf(void* user)
{
    return Peek<LMemAllocation>(RecordAddress(user));
}

inline std::size_t PageSize()
{
    SYSTEM_INFO info{};
    GetSystemInfo(&info);
    return info.dwPageSize;
}

inline DWORD Protection(const void* address)
{
    MEMORY_BASIC_INFORMATION information{};
    VirtualQuery(address, &information, sizeof information);
    return information.Protect;
}

// Stops in the debugger while one lives; without it the process ends at the first.
class Breakpoints
{
  public:
#ifdef _WIN32
    Breakpoints() : handler_(AddVectoredExceptionHandler(1, &Handle)) {}
    ~Breakpoints()
    {
        RemoveVectoredExceptionHandler(handler_);
    }
#else
    Breakpoints() : handler_(std::signal(SIGTRAP, [](int) { Count(); })) {}
    ~Breakpoints()
    {
        std::signal(SIGTRAP, handler_);
    }
#endif
    Breakpoints(const Breakpoints&) = delete;
    Breakpoints& operator=(const Breakpoints&) = delete;

    // Runs at each stop, on the thread that stops.
    inline static void (*atStop)() = nullptr;

    // Since the last call.
    static int Take()
    {
        return std::exchange(count_, 0);
    }

  private:
#ifdef _WIN32
    static LONG CALLBACK Handle(EXCEPTION_POINTERS* exception)
    {
        if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
        {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        constexpr BYTE breakInstruction = 0xCC;
        if (*reinterpret_cast<const BYTE*>(exception->ContextRecord->Rip) == breakInstruction)
        {
            exception->ContextRecord->Rip += 1; // it stands on the instruction, not behind it
        }
        Count();
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    void* handler_;
#else
    void (*handler_)(int);
#endif
    static void Count()
    {
        count_ = count_ + 1;
        if (atStop != nullptr)
        {
            atStop();
        }
    }
    inline static volatile std::sig_atomic_t count_ = 0;
};

// No settings and no trace file. The mode is read once per process, so the tests want a process each.
class TrackerTest : public testing::Test
{
  protected:
    TrackerTest() { RemoveTraceFiles(); }

    void SetUp() override
    {
        static bool used = false;
        if (std::exchange(used, true))
        {
            GTEST_SKIP() << "needs a process of its own";
        }
    }

    // In front of the first block.
    static void SetMemoryMode(const std::string& text)
    {
        SetUserString("Debug", "Memory Mode", text);
        leakCheckerIsOff = text == "5";
    }

    // The lines of a leak report.
    static std::vector<std::string> Report()
    {
        const TraceCapture trace;
        LDebugHeapLeakReport();
        return trace.Texts();
    }

  private:
    CleanSettings settings_;
};

inline const std::vector<std::string> noLeak = {" --- No Memory Leak Detected ---"};
} // namespace sndxtest
