// The tracker's blocks in every memory mode: how they lie in memory, what a release accepts and what it
// refuses. What a fault on a guard page looks like is in heap_guard_test.cpp.

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <limits>
#include <thread>

#ifndef _WIN32
#include "sndxposix.h"
#endif

#include "diag/lifetime.h"
#include "diag/tracefile.h"
#include "gen/debug.h"
#include "tests/diag/heapprobe.h"
#include "tests/support/child.h"
#include "tests/support/leakreport.h"
#include "tests/support/reports.h"

using namespace sndxtest;

namespace
{
// The setting's text and the mode that it means.
class TrackerMode : public TrackerTest, public testing::WithParamInterface<std::pair<const char*, int>>
{
};

// Where the block lies that the record leads to, and its inaccessible page.
void CheckPlace(int mode, std::byte* user, const LMemAllocation& record)
{
    const std::size_t page = PageSize();
    auto* const block = static_cast<std::byte*>(record.pBlock);
    std::byte* const guard = mode == 2 ? block + ((record.Size + 60) / page + 1) * page : block;
    if (mode <= 1)
    {
        EXPECT_EQ(user, block + 60);
        return;
    }
    EXPECT_EQ(user, mode == 2 ? guard - record.Size : guard + page + 12);
    EXPECT_EQ(RecordAddress(user), mode == 2 ? user - 60 : user + record.Size);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(guard) % page, 0u);
    EXPECT_EQ(Protection(guard), DWORD{PAGE_NOACCESS});
    EXPECT_EQ(Protection(guard + page - 1), DWORD{PAGE_NOACCESS});
    EXPECT_EQ(Protection(mode == 2 ? guard - 1 : guard + page), DWORD{PAGE_READWRITE});
}
} // namespace

TEST_P(TrackerMode, BlocksLieAsItSaysOrAreNull)
{
    const auto& [setting, mode] = GetParam();
    SetMemoryMode(setting);
    const std::size_t page = PageSize();
    const Breakpoints breakpoints;
    std::int32_t line = -1;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4}, page - 69, page - 68,
                                   page - 67, page - 61, page - 60, page - 59, page - 5, page - 4, page - 3,
                                   page, 2 * page - 60, 3 * page + 1, std::size_t{66564}})
    {
        SCOPED_TRACE(size);
        const bool array = size % 2 == 1;
        LDebugTrace("CheckPaths");
        auto* const user = static_cast<std::byte*>(MakeBlock(size, array, "Maker", ++line));
        ASSERT_NE(user, nullptr);
        SetUserString("Debug", "Memory Mode", mode == 2 ? "1" : "2"); // the first block has fixed the mode
        std::memset(user, 0xA5, size);                                // all of it is the caller's
        EXPECT_EQ(Tag(user), std::to_string(mode) + "MEM");
        if (mode == 5)
        {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(user) % page, 4u);
            EXPECT_EQ(Protection(user), DWORD{PAGE_READWRITE});
            ReleaseBlock(user, !array); // this mode does not know the form
            EXPECT_EQ(Protection(user), DWORD{PAGE_NOACCESS});
            continue;
        }
        const LMemAllocation record = RecordOf(user);
        EXPECT_EQ(record.uFlags, array ? 7u : 6u);
        EXPECT_EQ(record.uTraceLine, LDebugGetTraceLineNumber());
        EXPECT_EQ(record.Size, size);
        EXPECT_EQ(record.szFile, blockFile); // not copied
        EXPECT_STREQ(record.szFunction, "Maker");
        EXPECT_EQ(record.uLine, line);
        EXPECT_EQ(record.pUser, user);
        CheckPlace(mode, user, record);
        ReleaseBlock(user, array);
    }
    // Memory that cannot be had: sizes whose sum with the record wraps, and one that is merely too much.
    const Lines failed = {mode == 2 || mode == 3 ? "LMemAllocation::Record _aligned_malloc returned nullptr"
                                                 : "LMemAllocation::Record malloc returned nullptr"};
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    for (const std::size_t size : {most, most - 59, most - 67, most - page - 3, most / 2})
    {
        EXPECT_EQ(Traced([size] { EXPECT_EQ(MakeBlock(size), nullptr); }), failed) << size;
    }
    EXPECT_EQ(Breakpoints::Take(), 0);
    EXPECT_EQ(Report(), noLeak);
}

// Without any setting, as the other tests are, the mode is 0.
INSTANTIATE_TEST_SUITE_P(Settings, TrackerMode,
                         testing::Values(std::pair{"", 0}, std::pair{"0", 0}, std::pair{"1", 1},
                                         std::pair{"2", 2}, std::pair{"3", 3}, std::pair{"5", 5},
                                         std::pair{"-1", 0}, std::pair{"4", 0}, std::pair{"6", 0},
                                         std::pair{" 2 pages", 2}, std::pair{"4294967298", 0}));

using Tracker = TrackerTest;

TEST_F(Tracker, SmallBlocksOfMode5TakeAPageEachFromChunksOfTen)
{
    SetMemoryMode("5");
    const auto page = static_cast<std::ptrdiff_t>(PageSize());
    std::byte* previous = nullptr;
    for (int i = 0; i < 25; ++i)
    {
        MakeBlock(PageSize() - 3); // does not fit in a page and leaves the pool where it is
        auto* const user = static_cast<std::byte*>(MakeBlock(i % 2 == 0 ? 0 : PageSize() - 4));
        EXPECT_EQ(previous != nullptr && user - previous == page, i % 10 != 0) << i;
        previous = user;
    }
    EXPECT_EQ(Report(), noLeak); // never in the table
}

namespace
{
class TrackerRelease : public TrackerTest, public testing::WithParamInterface<int>
{
  protected:
    TrackerRelease() { SetMemoryMode(std::to_string(GetParam())); }

    // A wrong call stops once and changes nothing: neither the block nor the table.
    template <class Call>
    static void ExpectRefused(void* block, Call call)
    {
        const std::uint32_t flags = RecordOf(block).uFlags;
        const auto before = Listed();
        call();
        EXPECT_EQ(Breakpoints::Take(), 1);
        EXPECT_EQ(RecordOf(block).uFlags, flags);
        EXPECT_EQ(Listed(), before);
    }

    // What a report lists of the table, without the texts of the lines.
    static std::vector<std::string> Listed()
    {
        auto lines = Report();
        for (std::string& line : lines)
        {
            line = line.substr(0, line.find(" ["));
        }
        return lines;
    }

    const Breakpoints breakpoints_;
};
} // namespace

TEST_P(TrackerRelease, WrongFormsAndForeignPointersAreRefused)
{
    for (const bool array : {false, true})
    {
        void* const block = MakeBlock(40, array);
        ExpectRefused(block, [&] { ReleaseBlock(block, !array); });
        ReleaseBlock(block, array);
    }
    void* const block = MakeBlock(40, true);
    for (const char* tag : {"4MEM", "6MEM", "/MEM", "0MEN", "\x30\0\0\0"})
    {
        char foreign[8] = {};
        std::memcpy(foreign, tag, 4);
        ExpectRefused(block, [&] { ReleaseBlock(foreign + 4, false); });
        ExpectRefused(block, [&] { ReleaseBlock(foreign + 4, true); });
        ExpectRefused(block, [&] { LMemAllocation::IgnoreLeak(foreign + 4); });
    }
    // A block that is excused from the report is released like any other.
    LMemAllocation::IgnoreLeak(block);
    LMemAllocation::IgnoreLeak(nullptr);
    EXPECT_EQ(RecordOf(block).uFlags, 3u);
    EXPECT_EQ(Report(), noLeak);
    ExpectRefused(block, [&] { ReleaseBlock(block, false); });
    ReleaseBlock(block, true);
    ReleaseBlock(nullptr);
    EXPECT_EQ(Breakpoints::Take(), 0);
}

TEST_P(TrackerRelease, BlockThatTheTableDoesNotKnowIsRefused)
{
    // A perfect copy of a live block: record, tag and, in mode 3, the pointer to the record.
    void* const block = MakeBlock(40);
    std::vector<std::byte> copy(200);
    std::byte* const user = copy.data() + 60;
    std::byte* const record = GetParam() == 3 ? user + 40 : user - 60;
    std::memcpy(record, RecordAddress(block), 56);
    std::memcpy(record + 48, &user, sizeof user);
    std::memcpy(user - 12, &record, GetParam() == 3 ? sizeof record : 0);
    std::memcpy(user - 4, static_cast<std::byte*>(block) - 4, 4);
    const auto before = copy;
    ExpectRefused(block, [&] { ReleaseBlock(user); });
    EXPECT_EQ(copy, before);
    // What the spare bytes of a record hold does not matter.
    for (const std::uint32_t garbage : {1u, 199u, 200u, 0xFFFFFFFFu})
    {
        void* const other = MakeBlock(30);
        std::memcpy(RecordAddress(other) + 36, &garbage, sizeof garbage);
        ReleaseBlock(other);
    }
    EXPECT_EQ(Breakpoints::Take(), 0);
    EXPECT_EQ(Report().size(), 3u);
    ReleaseBlock(block);
    EXPECT_EQ(Report(), noLeak);
}

TEST_P(TrackerRelease, SecondReleaseIsRefused)
{
    if (sanitized)
    {
        GTEST_SKIP() << "a second release looks at the released record";
    }
    void* const other = MakeBlock(10);
    void* const block = MakeBlock(40);
    ReleaseBlock(block);
    EXPECT_EQ(Breakpoints::Take(), 0);
    ExpectRefused(other, [&] { ReleaseBlock(block); });
    ReleaseBlock(other);
    EXPECT_EQ(Report(), noLeak);
}

INSTANTIATE_TEST_SUITE_P(Modes, TrackerRelease, testing::Values(0, 1, 2, 3));

// A block and its releases: "1" the right one, "2" the wrong form, "3" of a foreign pointer.
SNDX_CHILD(Release)
{
    char foreign[8] = {};
    void* const block = MakeBlock(40);
    for (const char release : arguments.at(0))
    {
        ReleaseBlock(release == '3' ? foreign + 4 : block, release == '2');
    }
    return 0;
}

TEST_F(Tracker, WithoutADebuggerAWrongReleaseEndsTheProcess)
{
    EXPECT_EQ(ChildProcess("Release", {"1"}).Wait(), 0);
    for (const std::string releases :
         {"2", "3", sanitized ? "2" : "11"}) // the last looks at a released record
    {
        EXPECT_EQ(static_cast<DWORD>(ChildProcess("Release", {releases}).Wait()), 0x80000003u) << releases;
    }
}

TEST_F(Tracker, AStopInTheDebuggerHoldsNoLock)
{
    static std::atomic<bool> stopped = false;
    static std::atomic<bool> otherIsDone = false;
    const Breakpoints breakpoints;
    void* const block = MakeBlock(40);
    std::thread other(
        []
        {
            stopped.wait(false);
            ReleaseBlock(MakeBlock(8));
            otherIsDone = true;
        });
    Breakpoints::atStop = [] // in a signal handler natively
    {
        stopped = true;
        stopped.notify_one();
        for (int i = 0; i < 500 && !otherIsDone; ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    };
    ReleaseBlock(block, true);
    EXPECT_TRUE(otherIsDone) << "another thread waits for the allocation lock";
    other.join();
    EXPECT_EQ(Breakpoints::Take(), 1);
    ReleaseBlock(block);
}

// The end of a process in which another thread has died inside the allocation lock; here it sleeps there. The
// leak report's request number so many for memory is refused.
SNDX_CHILD(EndWithTheLockTaken)
{
#ifndef _WIN32
    sndxposix::FailCall("VirtualAlloc", ERROR_NOT_ENOUGH_MEMORY,
                        static_cast<unsigned>(std::stoul(arguments.at(0))));
#endif
    void* const block = MakeBlock(40);
    std::promise<void> taken;
    std::thread(
        [&taken]
        {
            const LDebugHeapLock lock;
            taken.set_value();
            Sleep(INFINITE);
        })
        .detach();
    taken.get_future().wait();
    {
        LDebugProcessEnd end;
        end.Announce(true);
    }
    MakeBlock(50);
    ReleaseBlock(block);
    LDebugHeapLeakReport();
    std::_Exit(0); // the sleeping thread does not die here as it would with the process
}

TEST_F(Tracker, AtTheEndOfTheProcessNoLockIsTaken)
{
    const std::string leak = LeakLine(50, "Maker", blockFile, 7, 0);
    TraceCapture trace;
    for (const auto& [refused, listed] : {std::pair{"9", Lines{leak + " [..."}},
#ifndef _WIN32
                                          {"0", Lines()}, // no list
                                          {"1", Lines{leak}}
#endif
         })
    {
        RemoveTraceFiles();
        trace.Restart();
        EXPECT_EQ(ChildProcess("EndWithTheLockTaken", {refused}).Wait(), 0);
        // The released block is off the table.
        EXPECT_TRUE(AreLines(trace.Texts(), Lines{LeakStart(50)} + listed + Lines{leakEnd})) << refused;
    }
}
