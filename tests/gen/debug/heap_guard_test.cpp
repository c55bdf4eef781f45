// Accesses that the memory modes make fault: a process of its own touches one byte and its handler for access
// violations tells by the exit code whether it was that byte.

#include <cstdlib>

#include "tests/gen/debug/heapprobe.h"
#include "tests/support/child.h"

#ifndef _WIN32
#include <unistd.h>
#endif

using namespace sndxtest;

namespace
{
constexpr int noFault = 0;
constexpr int faultAtTheByte = 42;
constexpr int faultElsewhere = 43;

volatile std::byte* g_touched = nullptr;

int Verdict(const void* address)
{
    return address == const_cast<const std::byte*>(g_touched) ? faultAtTheByte : faultElsewhere;
}

#ifdef _WIN32
void HandleFaults()
{
    AddVectoredExceptionHandler(1,
                                [](EXCEPTION_POINTERS* exception) -> LONG
                                {
                                    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
                                    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION)
                                    {
                                        TerminateProcess(GetCurrentProcess(),
                                                         static_cast<UINT>(Verdict(reinterpret_cast<void*>(
                                                             record.ExceptionInformation[1]))));
                                    }
                                    return EXCEPTION_CONTINUE_SEARCH;
                                });
}
#else
void HandleFaults()
{
    struct sigaction action
    {
    };
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t* information, void*) { _exit(Verdict(information->si_addr)); };
    sigaction(SIGSEGV, &action, nullptr);
    sigaction(SIGBUS, &action, nullptr);
}
#endif

struct Touch
{
    int mode;
    std::size_t size;
    std::ptrdiff_t offset; // of the byte from the block's begin
    const char* state;     // "live" or "released"
    const char* access;    // "read", "write" or "release"
    int result;
};
} // namespace

SNDX_CHILD(TouchOneByte)
{
    HandleFaults();
    leakCheckerIsOff = true;
    auto* const user = static_cast<std::byte*>(MakeBlock(std::stoul(arguments.at(0))));
    if (arguments.at(2) == "released")
    {
        ReleaseBlock(user);
    }
    g_touched = user + std::stol(arguments.at(1));
    if (arguments.at(3) == "release")
    {
        ReleaseBlock(user);
    }
    else if (arguments.at(3) == "read")
    {
        [[maybe_unused]] const std::byte value = *g_touched;
    }
    else
    {
        *g_touched = std::byte{1};
    }
    return noFault;
}

TEST_F(TrackerTest, GuardPagesAndReleasedPagesFaultAtTheByte)
{
    const auto page = static_cast<std::ptrdiff_t>(PageSize());
    const auto whole = static_cast<std::size_t>(page);
    const Touch touches[] = {
        // One byte past the end, for sizes with and without a tail, and the bytes that are the caller's.
        {2, 0, 0, "live", "write", faultAtTheByte},
        {2, 1, 1, "live", "write", faultAtTheByte},
        {2, 1, 1, "live", "read", faultAtTheByte},
        {2, 1, 0, "live", "write", noFault},
        {2, whole - 60, page - 60, "live", "write", faultAtTheByte},
        {2, whole - 60, page - 61, "live", "write", noFault},
        {2, 3 * whole, 4 * page - 1, "live", "write", faultAtTheByte}, // up to the page's end
        // In front of the pointer to the record.
        {3, 0, -13, "live", "write", faultAtTheByte},
        {3, 100, -13, "live", "read", faultAtTheByte},
        {3, 100, -page - 12, "live", "write", faultAtTheByte}, // the page's begin
        {3, 100, -12, "live", "write", noFault},
        {3, 100, 99, "live", "write", noFault},
        // Anything in a released page; the first page of a larger block.
        {5, 1, 0, "live", "write", noFault},
        {5, 1, 0, "released", "read", faultAtTheByte},
        {5, 1, 0, "released", "write", faultAtTheByte},
        {5, 1, -4, "released", "read", faultAtTheByte},
        {5, 1, page - 5, "released", "write", faultAtTheByte},
        {5, 2 * whole, 0, "released", "write", faultAtTheByte},
        {5, 2 * whole, page - 5, "released", "read", faultAtTheByte},
        {5, 1, -4, "released", "release", faultAtTheByte}, // a second release reads the tag
    };
    for (const Touch& touch : touches)
    {
        SetMemoryMode(std::to_string(touch.mode));
        EXPECT_EQ(ChildProcess("TouchOneByte", {std::to_string(touch.size), std::to_string(touch.offset),
                                                touch.state, touch.access})
                      .Wait(),
                  touch.result)
            << "mode " << touch.mode << ", size " << touch.size << ", " << touch.access << " of byte "
            << touch.offset << " of the " << touch.state << " block";
    }
}
