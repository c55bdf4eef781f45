// Accesses that the memory modes make fault: a process of its own makes one.

#include <csignal>
#include <tuple>

#include "tests/diag/heapprobe.h"
#include "tests/support/child.h"

using namespace sndxtest;

namespace
{
constexpr int noFault = 0;
constexpr auto fault = static_cast<int>(0xC0000005u); // access violation
} // namespace

SNDX_CHILD(TouchOneByte)
{
    leakCheckerIsOff = true;
    auto* const user = static_cast<std::byte*>(MakeBlock(std::stoul(arguments.at(0))));
    volatile std::byte* const touched = user + std::stol(arguments.at(1));
    const std::string& access = arguments.at(2); // with "released " in front for a block that was
    if (access.starts_with("released "))
    {
        ReleaseBlock(user);
    }
    std::signal(SIGSEGV, SIG_DFL); // no sanitizer's handler
    if (access.ends_with("release"))
    {
        ReleaseBlock(user);
    }
    else if (access.ends_with("read"))
    {
        [[maybe_unused]] const std::byte value = *touched;
    }
    else
    {
        *touched = std::byte{1};
    }
    return noFault;
}

TEST_F(TrackerTest, GuardPagesAndReleasedPagesFault)
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
