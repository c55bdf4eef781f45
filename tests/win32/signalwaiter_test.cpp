// The plain waiter's answers, and the forms without a time-out that every waiter has.

#include <gtest/gtest.h>

#include "tests/win32/recordingwaiter.h"
#include "tests/support/timing.h"
#include "win32/handle.h"

namespace
{
using namespace sndxtest;

class SimpleSignalWaiter : public ::testing::Test
{
  protected:
    LWaitResult WaitForGroup(std::vector<HANDLE> handles, std::uint32_t milliseconds)
    {
        LSignalObjectGroup group = {};
        std::copy(handles.begin(), handles.end(), group.hObjects);
        group.idxSOArray = static_cast<decltype(group.idxSOArray)>(handles.size());
        return waiter_.WaitSignalObjectGroup(group, milliseconds);
    }

    LSimpleSignalWaiter waiter_;
    const LHandle signalled_{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    const LHandle silent_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

TEST_F(SimpleSignalWaiter, WaitsForOneObjectOrSleepsAndNeverStops)
{
    EXPECT_FALSE(waiter_.IsStopRequested());
    EXPECT_EQ(waiter_.WaitSignal(signalled_.Get()), LWaitResult::Signalled);
    const Stopwatch stopwatch;
    EXPECT_EQ(waiter_.WaitSignal(silent_.Get(), 100), LWaitResult::TimedOut);
    EXPECT_EQ(waiter_.Sleep(100), LWaitResult::Signalled);
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(200));
    EXPECT_LT(stopwatch.Milliseconds(), 10000);
    EXPECT_EQ(waiter_.WaitSignal(nullptr, 100), LWaitResult::Signalled) << "only the time-out counts as one";
}

TEST_F(SimpleSignalWaiter, WaitsForAnyOfAGroup)
{
    const HANDLE signalled = signalled_.Get();
    const Stopwatch stopwatch;
    EXPECT_EQ(WaitForGroup({silent_.Get(), signalled}, 30000), LWaitResult::Signalled);
    EXPECT_EQ(WaitForGroup({silent_.Get()}, 100), LWaitResult::TimedOut);
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(100));
    EXPECT_EQ(WaitForGroup({signalled, nullptr}, 0), LWaitResult::TimedOut) << "a wait that fails";
    EXPECT_EQ(WaitForGroup(std::vector<HANDLE>(LSIGNALOBJECTGROUPMAX, signalled), 0), LWaitResult::TimedOut)
        << "the message queue takes one of the system's 64 places";
    MSG message;
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE); // makes the thread's queue
    ASSERT_TRUE(PostThreadMessageW(GetCurrentThreadId(), WM_APP, 0, 0));
    EXPECT_EQ(WaitForGroup({silent_.Get()}, 30000), LWaitResult::TimedOut) << "a message ends the wait";
    EXPECT_LT(stopwatch.Milliseconds(), 15000);
}

TEST(SignalWaiter, WithoutATimeOutTheWaitIsInfinite)
{
    RecordingWaiter waiter;
    LSignalWaiter& base = waiter;
    base.SleepForever();
    EXPECT_EQ(base.WaitSignal(nullptr), LWaitResult::Stopped);
    EXPECT_EQ(base.WaitSignalObjectGroup(LSignalObjectGroup{}), LWaitResult::Stopped);
    EXPECT_EQ(waiter.asked, RecordingWaiter::Times(3, INFINITE));
}
} // namespace
