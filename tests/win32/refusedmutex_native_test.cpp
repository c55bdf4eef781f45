// A mutex whose access the system refuses for some tries. The layer enforces no access lists, so the refusals
// are injected; that also makes their number exact.

#include <thread>

#include <gmock/gmock.h>

#include "sndxposix.h"
#include "tests/support/tracefile.h"
#include "tests/win32/timing.h"
#include "win32/systemmutex.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;

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
    TraceCapture trace_;
};

TEST_F(RefusedMutex, IsTriedEvery50MillisecondsOfTheTimeOut)
{
    for (const auto& [timeout, tries] : {std::pair{0u, 1u}, {50u, 1u}, {51u, 2u}, {100u, 2u}, {201u, 5u}})
    {
        SCOPED_TRACE(timeout);
        trace_.Restart();
        Refuse(tries + 1);
        const Stopwatch stopwatch;
        EXPECT_FALSE(mutex_.Lock(timeout));
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(50 * tries));
        EXPECT_EQ(sndxposix::PendingFailures(), 1u);
        EXPECT_THAT(trace_.Texts(), ElementsAre("LSystemLockMutex::Lock CreateMutex Timed Out"));
        sndxposix::ResetFailures();
    }
}

TEST_F(RefusedMutex, IsHadWhenTheRefusalsEndAndNotAfterAnotherError)
{
    Refuse(3);
    EXPECT_TRUE(mutex_.Lock());
    mutex_.Unlock();
    Refuse(1);
    sndxposix::FailCall("CreateMutexW", ERROR_INVALID_HANDLE, 1);
    EXPECT_FALSE(mutex_.Lock());
    EXPECT_THAT(trace_.Texts(), ElementsAre("**LSystemLockMutex::Lock CreateMutex FAILED"));
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
} // namespace
