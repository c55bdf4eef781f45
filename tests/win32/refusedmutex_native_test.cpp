// A mutex whose access the system refuses for some tries. The layer enforces no access lists, so the
// refusals are injected; that also makes their number exact.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "sndxposix.h"
#include "tests/support/tracefile.h"
#include "tests/win32/timing.h"
#include "win32/systemmutex.h"

namespace
{
using sndxtest::AtLeast;
using sndxtest::Stopwatch;
using sndxtest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RefusedMutex : public ::testing::Test
{
  protected:
    ~RefusedMutex() override { sndxposix::ResetFailures(); }

    static void Refuse(unsigned tries)
    {
        for (unsigned i = 0; i < tries; ++i)
        {
            sndxposix::FailCall("CreateMutexW", ERROR_ACCESS_DENIED, i);
        }
    }

    LSystemLockMutex mutex_{TEXT("refused")};
};

TEST_F(RefusedMutex, IsTriedEvery50MillisecondsOfTheTimeOut)
{
    struct Case
    {
        std::uint32_t timeout;
        unsigned tries;
    };
    for (const Case& c : {Case{0, 1}, Case{50, 1}, Case{51, 2}, Case{100, 2}, Case{201, 5}})
    {
        SCOPED_TRACE(c.timeout);
        const TraceCapture trace;
        Refuse(c.tries + 1);
        const Stopwatch stopwatch;
        EXPECT_FALSE(mutex_.Lock(c.timeout));
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(50 * c.tries));
        EXPECT_EQ(1u, sndxposix::PendingFailures());
        EXPECT_THAT(trace.Texts(), ElementsAre("LSystemLockMutex::Lock CreateMutex Timed Out"));
        sndxposix::ResetFailures();
    }
}

TEST_F(RefusedMutex, IsHadWhenTheRefusalsEnd)
{
    const TraceCapture trace;
    Refuse(3);
    EXPECT_TRUE(mutex_.Lock());
    mutex_.Unlock();
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST_F(RefusedMutex, TheWaitGetsWhatTheRefusalsHaveLeft)
{
    ASSERT_TRUE(mutex_.Lock(0));
    Refuse(4);
    std::thread(
        []
        {
            LSystemLockMutex other(TEXT("refused"));
            const Stopwatch stopwatch;
            EXPECT_FALSE(other.Lock(300));
            // 200 ms of sleep and a wait of 100 ms; a wait of the whole time-out would make 500.
            EXPECT_GE(stopwatch.Milliseconds(), AtLeast(300));
            EXPECT_LT(stopwatch.Milliseconds(), 480);
        })
        .join();
    mutex_.Unlock();
}

TEST_F(RefusedMutex, AnotherErrorBetweenEndsTheTries)
{
    const TraceCapture trace;
    Refuse(1);
    sndxposix::FailCall("CreateMutexW", ERROR_INVALID_HANDLE, 1);
    EXPECT_FALSE(mutex_.Lock());
    EXPECT_THAT(trace.Texts(), ElementsAre("**LSystemLockMutex::Lock CreateMutex FAILED"));
}
} // namespace
