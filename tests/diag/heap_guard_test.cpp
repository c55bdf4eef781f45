// Accesses that the memory modes make fault: a process of its own touches one byte and its handler for access
// violations tells by the exit code whether it was that byte.

#include <tuple>

#include "tests/diag/heapprobe.h"
#include "tests/support/child.h"

#ifndef _WIN32
#include <unistd.h>
#endif

using namespace sndxtest;

namespace
{
constexpr int noFault = 0;
constexpr int fault = 42;
constexpr int faultElsewhere = 43;

volatile std::byte* g_touched = nullptr;

#ifdef _WIN32
LONG CALLBACK HandleFault(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION)
    {
        const bool there = record.ExceptionInformation[1] == reinterpret_cast<ULONG_PTR>(g_touched);
        TerminateProcess(GetCurrentProcess(), there ? fault : faultElsewhere);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}
void HandleFaults()
{
    AddVectoredExceptionHandler(1, &HandleFault);
}
#else
void HandleFaults()
{
    struct sigaction action
    {
    };
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t* information, void*)
    { _exit(information->si_addr == const_cast<std::byte*>(g_touched) ? fault : faultElsewhere); };
    sigaction(SIGSEGV, &action, nullptr);
    sigaction(SIGBUS, &action, nullptr);
}
#endif
} // namespace

SNDX_CHILD(TouchOneByte)
{
    leakCheckerIsOff = true;
    auto* const user = static_cast<std::byte*>(MakeBlock(std::stoul(arguments.at(0))));
    g_touched = user + std::stol(arguments.at(1));
    const std::string& access = arguments.at(2); // with "released " in front for a block that was
    if (access.starts_with("released "))
    {
        ReleaseBlock(user);
    }
    HandleFaults(); // of the next access, no earlier ones
    if (access.ends_with("release"))
    {
        ReleaseBlock(user);
    }
    else if (access.ends_with("read"))
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
    // The mode, the block's size, the byte as seen from its begin, the access and its result.
    const std::tuple<int, std::ptrdiff_t, std::ptrdiff_t, const char*, int> touches[] = {
        // One byte past the end, for sizes with and without a tail, and the bytes that are the caller's.
        {2, 0, 0, "write", fault},
        {2, 1, 1, "read", fault},
        {2, 1, 0, "write", noFault},
        {2, page - 60, page - 60, "write", fault},
        {2, page - 60, page - 61, "write", noFault},
        {2, 3 * page, 4 * page - 1, "write", fault}, // up to the page's end
        // In front of the pointer to the record.
        {3, 0, -13, "write", fault},
        {3, 100, -13, "read", fault},
        {3, 100, -page - 12, "write", fault}, // the page's begin
        {3, 100, -12, "write", noFault},
        {3, 100, 99, "write", noFault},
        // Anything in a released page; the first page of a larger block.
        {5, 1, 0, "write", noFault},
        {5, 1, 0, "released read", fault},
        {5, 1, -4, "released write", fault},
        {5, 1, page - 5, "released write", fault},
        {5, 2 * page, 0, "released write", fault},
        {5, 2 * page, page - 5, "released read", fault},
        {5, 1, -4, "released release", fault}, // a second release reads the tag
    };
    for (const auto& [mode, size, offset, access, result] : touches)
    {
        SetMemoryMode(std::to_string(mode));
        const Lines arguments = {std::to_string(size), std::to_string(offset), access};
        EXPECT_EQ(ChildProcess("TouchOneByte", arguments).Wait(), result)
            << "mode " << mode << ": " << testing::PrintToString(arguments);
    }
}
