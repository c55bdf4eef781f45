// The tracker's blocks in every memory mode: how they lie in memory, what a release accepts and what it
// refuses. What a fault on a guard page looks like is in heap_guard_test.cpp.

#include <array>
#include <limits>
#include <ostream>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/tracefile.h"
#include "tests/gen/debug/heapprobe.h"
#include "tests/support/child.h"
#include "win32/mutex.h"

using namespace sndxtest;
using testing::IsEmpty;

namespace
{
struct ModeCase
{
    const char* setting; // null: none
    int mode;
};

void PrintTo(const ModeCase& mode, std::ostream* stream)
{
    *stream << (mode.setting == nullptr ? "no setting" : mode.setting);
}

std::string ModeName(const testing::TestParamInfo<ModeCase>& info)
{
    return "Setting" + std::to_string(info.index) + "IsMode" + std::to_string(info.param.mode);
}

class TrackerMode : public TrackerTest, public testing::WithParamInterface<ModeCase>
{
  protected:
    TrackerMode()
    {
        if (GetParam().setting != nullptr)
        {
            SetMemoryMode(GetParam().setting);
        }
    }

    static int Mode() { return GetParam().mode; }
};

class TrackerRelease : public TrackerTest, public testing::WithParamInterface<int>
{
  protected:
    TrackerRelease() { SetMemoryMode(std::to_string(GetParam())); }

    // A wrong call stops once and changes nothing: neither the block nor the table.
    template <class Call>
    static void ExpectRefused(void* block, Call call)
    {
        const std::uint32_t flags = Flags(block);
        const auto before = Report();
        call();
        EXPECT_EQ(Breakpoints::Take(), 1);
        EXPECT_EQ(Flags(block), flags);
        // The blocks of a report are the table's; the stamps of the lines in it differ.
        const auto after = Report();
        ASSERT_EQ(after.size(), before.size());
        for (std::size_t i = 0; i < after.size(); ++i)
        {
            EXPECT_EQ(after[i].substr(0, after[i].find(" [")), before[i].substr(0, before[i].find(" [")));
        }
    }

    const Breakpoints breakpoints_;
};

using Tracker = TrackerTest;

void CheckPlace(int mode, std::byte* user, const BlockRecord& record)
{
    const std::size_t page = PageSize();
    const std::size_t size = record.size;
    if (mode <= 1)
    {
        EXPECT_EQ(user - record.block, 60);
        return;
    }
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(record.block) % page, 0u);
    if (mode == 2)
    {
        std::byte* const guard = record.block + ((size + 60) / page + 1) * page;
        EXPECT_EQ(user + size, guard);
        EXPECT_EQ(Protection(guard), DWORD{PAGE_NOACCESS});
        EXPECT_EQ(Protection(guard - 1), DWORD{PAGE_READWRITE});
    }
    else
    {
        EXPECT_EQ(user, record.block + page + 12);
        EXPECT_EQ(RecordAddress(user), user + size);
        EXPECT_EQ(Protection(record.block + page - 1), DWORD{PAGE_NOACCESS});
        EXPECT_EQ(Protection(record.block + page), DWORD{PAGE_READWRITE});
    }
}

void CheckRecord(int mode, std::byte* user, std::size_t size, bool array, std::int32_t line)
{
    const BlockRecord record(RecordAddress(user));
    EXPECT_EQ(record.flags, array ? 7u : 6u);
    EXPECT_EQ(record.traceLine, LDebugGetTraceLineNumber());
    EXPECT_EQ(record.size, size);
    EXPECT_EQ(record.file, blockFile); // not copied
    EXPECT_STREQ(record.function, "Maker");
    EXPECT_EQ(record.line, line);
    EXPECT_EQ(record.user, user);
    CheckPlace(mode, user, record);
}
} // namespace

TEST_P(TrackerMode, BlocksLieAsTheModeSays)
{
    const std::size_t page = PageSize();
    const Breakpoints breakpoints;
    const std::string tag = std::to_string(Mode()) + "MEM";
    std::int32_t line = -1;
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{4}, std::size_t{60}, page - 69,
          page - 68, page - 67, page - 61, page - 60, page - 59, page - 5, page - 4, page - 3, page,
          2 * page - 68, 2 * page - 60, 3 * page + 1, std::size_t{66564}})
    {
        for (const bool array : {false, true})
        {
            LDebugTrace("a line between the blocks");
            auto* const user = static_cast<std::byte*>(MakeBlock(size, array, "Maker", ++line));
            ASSERT_NE(user, nullptr);
            std::memset(user, 0xA5, size); // all of it is the caller's
            EXPECT_EQ(Tag(user), tag) << size;
            if (Mode() != 5)
            {
                CheckRecord(Mode(), user, size, array, line);
                ReleaseBlock(user, array);
                continue;
            }
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(user) % page, 4u) << size;
            EXPECT_EQ(Protection(user), DWORD{PAGE_READWRITE});
            ReleaseBlock(user, !array); // this mode does not know the form
            EXPECT_EQ(Protection(user), DWORD{PAGE_NOACCESS}) << size;
        }
    }
    EXPECT_EQ(Breakpoints::Take(), 0);
    EXPECT_EQ(Report(), noLeak);
}

INSTANTIATE_TEST_SUITE_P(Settings, TrackerMode,
                         testing::Values(ModeCase{nullptr, 0}, ModeCase{"", 0}, ModeCase{"0", 0},
                                         ModeCase{"1", 1}, ModeCase{"2", 2}, ModeCase{"3", 3},
                                         ModeCase{"5", 5}, ModeCase{"-1", 0}, ModeCase{"4", 0},
                                         ModeCase{"6", 0}, ModeCase{"plain", 0}, ModeCase{" 2 pages", 2},
                                         ModeCase{"4294967298", 0}),
                         ModeName);

TEST_F(Tracker, ModeIsReadOnceWithTheFirstBlock)
{
    SetMemoryMode("1");
    void* const first = MakeBlock(1);
    SetMemoryMode("2");
    void* const second = MakeBlock(1);
    EXPECT_EQ(Tag(first), "1MEM");
    EXPECT_EQ(Tag(second), "1MEM");
    ReleaseBlock(first);
    ReleaseBlock(second);
}

TEST_F(Tracker, SmallBlocksOfMode5TakeAPageEachFromChunksOfTen)
{
    SetMemoryMode("5");
    const auto page = static_cast<std::ptrdiff_t>(PageSize());
    std::byte* previous = nullptr;
    int chunk = 0;
    int inChunk = 0;
    for (int i = 0; i < 35; ++i)
    {
        // A block that does not fit in a page leaves the pool where it is.
        auto* const large = static_cast<std::byte*>(MakeBlock(PageSize() - 3));
        auto* const user = static_cast<std::byte*>(MakeBlock(i % 2 == 0 ? 0 : PageSize() - 4));
        EXPECT_NE(large, user + page);
        if (inChunk == 10 || previous == nullptr)
        {
            ++chunk;
            inChunk = 0;
        }
        else
        {
            EXPECT_EQ(user - previous, page) << i;
        }
        ++inChunk;
        previous = user;
    }
    EXPECT_EQ(chunk, 4);
    EXPECT_EQ(Report(), noLeak); // never in the table
}

TEST_P(TrackerRelease, WrongFormIsRefusedAndTheRightOneStillWorks)
{
    for (const bool array : {false, true})
    {
        void* const block = MakeBlock(40, array);
        ExpectRefused(block, [&] { ReleaseBlock(block, !array); });
        ReleaseBlock(block, array);
        EXPECT_EQ(Breakpoints::Take(), 0);
    }
    EXPECT_EQ(Report(), noLeak);
}

TEST_P(TrackerRelease, SecondReleaseIsRefused)
{
    if (addressSanitizer)
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

TEST_P(TrackerRelease, BlockThatTheTableDoesNotKnowIsRefused)
{
    // A perfect copy of a live block: record, tag and, in mode 3, the pointer to the record.
    void* const block = MakeBlock(40);
    std::array<std::byte, 200> copy{};
    std::byte* const user = copy.data() + 60;
    std::byte* const record = GetParam() == 3 ? user + 40 : user - 60;
    std::memcpy(record, RecordAddress(block), 56);
    std::memcpy(record + 48, &user, sizeof user);
    std::memcpy(user - 12, &record, GetParam() == 3 ? sizeof record : 0);
    std::memcpy(user - 4, static_cast<std::byte*>(block) - 4, 4);
    const auto before = copy;
    ExpectRefused(block, [&] { ReleaseBlock(user); });
    EXPECT_EQ(copy, before);
    ReleaseBlock(block);
    EXPECT_EQ(Breakpoints::Take(), 0);
}

TEST_P(TrackerRelease, ForeignPointerIsRefused)
{
    void* const block = MakeBlock(40);
    for (const char* tag : {"4MEM", "6MEM", "/MEM", "0MEN", "MEM0", "\x30", "\xFD\xFD\xFD\xFD"})
    {
        char foreign[8] = {};
        std::memcpy(foreign, tag, std::min(std::strlen(tag), std::size_t{4}));
        ExpectRefused(block, [&] { ReleaseBlock(foreign + 4, false); });
        ExpectRefused(block, [&] { ReleaseBlock(foreign + 4, true); });
        ExpectRefused(block, [&] { LMemAllocation::IgnoreLeak(foreign + 4); });
    }
    ReleaseBlock(block);
    ReleaseBlock(nullptr, false);
    ReleaseBlock(nullptr, true);
    EXPECT_EQ(Breakpoints::Take(), 0);
}

TEST_P(TrackerRelease, ExcusedBlockIsReleasedLikeAnyOther)
{
    void* const block = MakeBlock(40, true);
    LMemAllocation::IgnoreLeak(block);
    LMemAllocation::IgnoreLeak(nullptr);
    EXPECT_EQ(Flags(block), 3u);
    EXPECT_EQ(Report(), noLeak);
    ExpectRefused(block, [&] { ReleaseBlock(block, false); });
    ReleaseBlock(block, true);
    EXPECT_EQ(Breakpoints::Take(), 0);
}

TEST_P(TrackerRelease, UnusedBytesOfTheRecordDoNotMatter)
{
    void* const other = MakeBlock(30);
    for (const std::uint32_t garbage : {0u, 1u, 199u, 200u, 0xFFFFFFFFu})
    {
        void* const block = MakeBlock(40);
        std::memcpy(RecordAddress(block) + 36, &garbage, sizeof garbage);
        ReleaseBlock(block);
        EXPECT_EQ(Breakpoints::Take(), 0);
    }
    EXPECT_EQ(Report().size(), 3u);
    ReleaseBlock(other);
    EXPECT_EQ(Report(), noLeak);
}

INSTANTIATE_TEST_SUITE_P(Modes, TrackerRelease, testing::Values(0, 1, 2, 3));

namespace
{
class TrackerFailure : public TrackerTest, public testing::WithParamInterface<int>
{
};
} // namespace

TEST_P(TrackerFailure, MemoryThatCannotBeHadGivesNull)
{
    SetMemoryMode(std::to_string(GetParam()));
    const std::vector<std::string> lines[] = {
        {"LMemAllocation::Record malloc returned nullptr"},
        {"LMemAllocation::Record _aligned_malloc returned nullptr"},
        {},
    };
    const auto& expected = lines[GetParam() <= 1 ? 0 : GetParam() == 5 ? 2 : 1];
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    // Sizes whose sum with the record wraps, and one that is merely too much.
    for (const std::size_t size : {most, most - 59, most - 67, most - PageSize() - 3, most / 2})
    {
        for (const bool array : {false, true})
        {
            const TraceCapture trace;
            EXPECT_EQ(MakeBlock(size, array), nullptr) << size;
            EXPECT_EQ(trace.Texts(), expected) << size;
        }
    }
    EXPECT_EQ(Report(), noLeak);
}

INSTANTIATE_TEST_SUITE_P(Modes, TrackerFailure, testing::Values(0, 1, 2, 3, 5));

TEST_F(Tracker, AllocationLockMayBeTakenBelowAnyOtherAndForgetsIt)
{
    LLockObject outer;
    LLockObject inner;
    const TraceCapture trace;
    outer.Lock();
    ReleaseBlock(MakeBlock(1));
    inner.Lock(); // the allocation has cleared the mark of the outer lock
    inner.Unlock();
    outer.Unlock();
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

SNDX_CHILD(StopInTheDebugger)
{
    const std::string& what = arguments.at(0);
    char foreign[8] = {};
    void* const block = MakeBlock(40);
    if (what == "form")
    {
        ReleaseBlock(block, true);
    }
    else if (what == "foreign")
    {
        ReleaseBlock(foreign + 4);
    }
    else if (what == "excuse")
    {
        LMemAllocation::IgnoreLeak(foreign + 4);
    }
    return 0;
}

TEST_F(Tracker, WithoutADebuggerAWrongReleaseEndsTheProcess)
{
    EXPECT_EQ(ChildProcess("StopInTheDebugger", {"nothing"}).Wait(), 0);
    for (const char* what : {"form", "foreign", "excuse"})
    {
        EXPECT_EQ(static_cast<DWORD>(ChildProcess("StopInTheDebugger", {what}).Wait()), 0x80000003u) << what;
    }
}
