// The plain waiter, and the forms without a time-out that every waiter has.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/win32/timing.h"
#include "win32/handle.h"
#include "win32/signalwaiter.h"

namespace
{
using sndxtest::AtLeast;
using sndxtest::Stopwatch;

LHandle& MakeEvent(LHandle& handle, bool signalled)
{
    handle.Set(CreateEventW(nullptr, TRUE, signalled ? TRUE : FALSE, nullptr));
    return handle;
}

LSignalObjectGroup Group(std::initializer_list<HANDLE> handles)
{
    LSignalObjectGroup group = {};
    for (const HANDLE handle : handles)
    {
        group.hObjects[group.idxSOArray] = handle;
        ++group.idxSOArray;
    }
    return group;
}

TEST(SimpleSignalWaiter, WaitsForOneObject)
{
    LSimpleSignalWaiter waiter;
    EXPECT_FALSE(waiter.IsStopRequested());
    LHandle signalled;
    LHandle silent;
    EXPECT_EQ(LWaitResult::Signalled, waiter.WaitSignal(MakeEvent(signalled, true).Get(), 0));
    EXPECT_EQ(LWaitResult::Signalled, waiter.WaitSignal(signalled.Get()));

    const Stopwatch stopwatch;
    EXPECT_EQ(LWaitResult::TimedOut, waiter.WaitSignal(MakeEvent(silent, false).Get(), 100));
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(100));
    EXPECT_LT(stopwatch.Milliseconds(), 10000);
    // Only the time-out counts as one, not a wait that fails.
    EXPECT_EQ(LWaitResult::Signalled, waiter.WaitSignal(nullptr, 100));

    std::thread other(
        [&]
        {
            Sleep(50);
            SetEvent(silent.Get());
        });
    EXPECT_EQ(LWaitResult::Signalled, waiter.WaitSignal(silent.Get(), 20000));
    other.join();
}

TEST(SimpleSignalWaiter, SleepsTheTimeThrough)
{
    LSimpleSignalWaiter waiter;
    const Stopwatch stopwatch;
    EXPECT_EQ(LWaitResult::Signalled, waiter.Sleep(100));
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(100));
    EXPECT_LT(stopwatch.Milliseconds(), 10000);
}

TEST(SimpleSignalWaiter, WaitsForAnyOfAGroup)
{
    LSimpleSignalWaiter waiter;
    LHandle signalled;
    LHandle silent;
    MakeEvent(signalled, true);
    MakeEvent(silent, false);
    EXPECT_EQ(LWaitResult::Signalled, waiter.WaitSignalObjectGroup(Group({signalled.Get()}), 0));
    EXPECT_EQ(LWaitResult::Signalled,
              waiter.WaitSignalObjectGroup(Group({silent.Get(), signalled.Get()}), 20000));
    EXPECT_EQ(LWaitResult::Signalled, waiter.WaitSignalObjectGroup(Group({silent.Get(), signalled.Get()})));

    const Stopwatch stopwatch;
    EXPECT_EQ(LWaitResult::TimedOut, waiter.WaitSignalObjectGroup(Group({silent.Get()}), 100));
    EXPECT_EQ(LWaitResult::TimedOut, waiter.WaitSignalObjectGroup(Group({}), 100));
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(200));
    EXPECT_LT(stopwatch.Milliseconds(), 20000);
    EXPECT_EQ(LWaitResult::TimedOut, waiter.WaitSignalObjectGroup(Group({signalled.Get(), nullptr}), 0))
        << "a wait that fails";

    LSignalObjectGroup full = {};
    std::fill(std::begin(full.hObjects), std::end(full.hObjects), signalled.Get());
    full.idxSOArray = LSIGNALOBJECTGROUPMAX;
    EXPECT_EQ(LWaitResult::TimedOut, waiter.WaitSignalObjectGroup(full, 0))
        << "the message queue takes one of the system's 64 places";
    full.idxSOArray = LSIGNALOBJECTGROUPMAX - 1;
    EXPECT_EQ(LWaitResult::Signalled, waiter.WaitSignalObjectGroup(full, 0));
}

TEST(SimpleSignalWaiter, AMessageEndsAGroupsWait)
{
    LSimpleSignalWaiter waiter;
    MSG message;
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE); // makes the thread's queue
    LHandle silent;
    MakeEvent(silent, false);
    ASSERT_TRUE(PostThreadMessageW(GetCurrentThreadId(), WM_APP, 0, 0));
    const Stopwatch stopwatch;
    EXPECT_EQ(LWaitResult::TimedOut, waiter.WaitSignalObjectGroup(Group({silent.Get()}), 30000));
    EXPECT_LT(stopwatch.Milliseconds(), 15000);
}

// Notes the time-outs that it is asked for.
class RecordingWaiter final : public LSignalWaiter
{
  public:
    using LSignalWaiter::WaitSignal;
    using LSignalWaiter::WaitSignalObjectGroup;
    bool IsStopRequested() override { return true; }
    LWaitResult Sleep(std::uint32_t milliseconds) override { return Note(milliseconds); }
    LWaitResult WaitSignal(HANDLE, std::uint32_t milliseconds) override { return Note(milliseconds); }
    LWaitResult WaitSignalObjectGroup(const LSignalObjectGroup&, std::uint32_t milliseconds) override
    {
        return Note(milliseconds);
    }
    std::vector<std::uint32_t> asked;

  private:
    LWaitResult Note(std::uint32_t milliseconds)
    {
        asked.push_back(milliseconds);
        return LWaitResult::Stopped;
    }
};

TEST(SignalWaiter, WithoutATimeOutTheWaitIsInfinite)
{
    RecordingWaiter waiter;
    LSignalWaiter& base = waiter;
    base.SleepForever();
    EXPECT_EQ(LWaitResult::Stopped, base.WaitSignal(nullptr));
    EXPECT_EQ(LWaitResult::Stopped, base.WaitSignalObjectGroup(Group({})));
    EXPECT_THAT(waiter.asked, ::testing::ElementsAre(INFINITE, INFINITE, INFINITE));
}
} // namespace
