#pragma once
// The tracker seen from outside: the memory mode of this process, its blocks read byte by byte, and the stops
// in the debugger that it raises.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#ifndef _WIN32
#include <csignal>
#endif

#include "gen/debug/heap.h"
#include "tests/gen/debug/leakchecker.h"
#include "tests/support/settings.h"
#include "tests/support/tracefile.h"

namespace sndxtest
{
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool addressSanitizer = true;
#else
inline constexpr bool addressSanitizer = false;
#endif
#ifdef __SANITIZE_THREAD__
inline constexpr bool threadSanitizer = true;
#else
inline constexpr bool threadSanitizer = false;
#endif

inline constexpr char blockFile[] = "room/source.cpp";

inline void* MakeBlock(std::size_t size, bool array = false, const char* function = "Maker",
                       std::int32_t line = 7)
{
    const LDebugHeapLock lock;
    return LMemAllocation::Record(size, blockFile, function, line, array);
}

inline void ReleaseBlock(void* user, bool array = false)
{
    const LDebugHeapLock lock;
    LMemAllocation::Release(user, array);
}

// Blocks lie at odd addresses.
template <class T>
T Peek(const void* base, std::ptrdiff_t offset = 0)
{
    T value;
    std::memcpy(&value, static_cast<const std::byte*>(base) + offset, sizeof value);
    return value;
}

// The 56 bytes of a record.
struct BlockRecord
{
    explicit BlockRecord(const void* at)
        : flags(Peek<std::uint32_t>(at, 0)), traceLine(Peek<std::uint32_t>(at, 4)),
          size(Peek<std::uint64_t>(at, 8)), file(Peek<const char*>(at, 16)),
          function(Peek<const char*>(at, 24)), line(Peek<std::int32_t>(at, 32)),
          block(Peek<std::byte*>(at, 40)), user(Peek<std::byte*>(at, 48))
    {
    }

    std::uint32_t flags;
    std::uint32_t traceLine;
    std::uint64_t size;
    const char* file;
    const char* function;
    std::int32_t line;
    std::byte* block;
    std::byte* user;
};

inline std::string Tag(const void* user)
{
    return std::string(static_cast<const char*>(user) - 4, 4);
}

// Where the record of a block lies; not for mode 5, whose blocks do not lead to theirs.
inline std::byte* RecordAddress(void* user)
{
    return Tag(user) == "3MEM" ? Peek<std::byte*>(user, -12) : static_cast<std::byte*>(user) - 60;
}

inline std::uint32_t Flags(void* user)
{
    return BlockRecord(RecordAddress(user)).flags;
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
    Breakpoints() : handler_(AddVectoredExceptionHandler(1, &Handle))
    {
        count_ = 0;
    }
    ~Breakpoints()
    {
        RemoveVectoredExceptionHandler(handler_);
    }
#else
    Breakpoints()
    {
        count_ = 0;
        struct sigaction action
        {
        };
        action.sa_handler = [](int) { count_ = count_ + 1; };
        sigaction(SIGTRAP, &action, &before_);
    }
    ~Breakpoints()
    {
        sigaction(SIGTRAP, &before_, nullptr);
    }
#endif
    Breakpoints(const Breakpoints&) = delete;
    Breakpoints& operator=(const Breakpoints&) = delete;

    // Since construction or the last call.
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
        count_ = count_ + 1;
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    inline static int count_ = 0;
    void* handler_;
#else
    inline static volatile std::sig_atomic_t count_ = 0;
    struct sigaction before_;
#endif
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
    static void SetMemoryMode(std::string_view text)
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
