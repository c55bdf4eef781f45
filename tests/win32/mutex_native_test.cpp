// How long a lock was held, to the millisecond. Only the native layer's tick count can be set.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/support/tracefile.h"
#include "win32/mutex.h"

namespace
{
using sndxtest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Hold
{
    std::uint32_t lockedAt;
    std::uint32_t milliseconds;
    bool reported;
};

class LockHold : public ::testing::TestWithParam<Hold>
{
  protected:
    ~LockHold() override { sndxposix::RunTickCount(); }
};

TEST_P(LockHold, IsReportedAboveFiveSeconds)
{
    const TraceCapture trace;
    LLockObject lock;
    sndxposix::SetTickCount(GetParam().lockedAt);
    lock.Lock();
    sndxposix::AdvanceTickCount(GetParam().milliseconds);
    lock.Unlock();
    if (GetParam().reported)
    {
        EXPECT_THAT(trace.Texts(),
                    ElementsAre("**LLockObject::Unlock Unlock called more than 5 seconds after lock. "
                                "This is not good."));
    }
    else
    {
        EXPECT_THAT(trace.Texts(), IsEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(Times, LockHold,
                         ::testing::Values(Hold{70000, 0, false}, Hold{70000, 5000, false},
                                           Hold{70000, 5001, true},
                                           // across the wrap of the counter
                                           Hold{0xFFFFFFFFu - 99, 200, false},
                                           Hold{0xFFFFFFFFu - 99, 5001, true},
                                           // a lock at tick 0 counts as a lock
                                           Hold{0, 100, false}));

TEST_F(LockHold, AnUnlockedObjectIsMeasuredFromZero)
{
    LLockObject lock;
    sndxposix::SetTickCount(5000);
    TraceCapture trace;
    lock.Unlock();
    EXPECT_THAT(trace.Texts(),
                ElementsAre("**LLockObject::Unlock Object never locked before calling Unlock."));
}
} // namespace
