// The lock across processes: time-outs, owners that die, names that cannot be had.

#include <memory>
#include <thread>

#ifndef _WIN32
#include "sndxposix.h"
#endif
#include "tests/support/child.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "win32/handle.h"
#include "win32/systemmutex.h"

namespace
{
using namespace sndxtest;

const char* const timedOut = "LSystemLockMutex::Lock Timed Out";
const char* const destroyed = "LSystemLockMutex::~LSystemLockMutex";

class SystemMutex : public ::testing::Test
{
  protected:
    SystemMutex() { ClearPoints(); }

    // Whether the system object exists.
    bool Exists() const { return LHandle(OpenMutexW(SYNCHRONIZE, FALSE, global_.c_str())).IsOpen(); }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    const WideString global_ = Wide("Global\\" + name_);
    std::unique_ptr<LSystemLockMutex> mutex_ = std::make_unique<LSystemLockMutex>(Wide(name_).c_str());
    TraceCapture trace_;
};

// Holds the system object "Global\NAME" until "release"; with a second argument it ends without releasing.
SNDX_CHILD(HoldMutex)
{
    const LHandle mutex(CreateMutexW(nullptr, TRUE, Wide("Global\\" + arguments.at(0)).c_str()));
    Announce("held");
    WaitFor("release");
    return arguments.size() > 1 || ReleaseMutex(mutex.Get()) ? 0 : 1;
}

TEST_F(SystemMutex, ASecondLockAndDestructionWhileLockedAreReported)
{
    EXPECT_FALSE(Exists());
    mutex_->Unlock(); // of nothing
    EXPECT_TRUE(mutex_->Lock(0));
    EXPECT_TRUE(mutex_->Lock());
    EXPECT_TRUE(Exists());
    mutex_->Unlock();
    EXPECT_FALSE(Exists()) << "needs no second unlock";
    EXPECT_TRUE(mutex_->Lock(0));
    mutex_.reset();
    EXPECT_FALSE(Exists());
    EXPECT_EQ(trace_.Texts(), (Lines{"**LSystemLockMutex::Lock Called when already locked!", destroyed,
                                     "**LSystemLockMutex::~LSystemLockMutex when Locked!"}));
}

TEST_F(SystemMutex, AnotherProcessIsWaitedForWithinTheTimeOut)
{
    ChildProcess child("HoldMutex", {name_});
    ASSERT_TRUE(WaitFor("held"));
    const Stopwatch some;
    EXPECT_FALSE(mutex_->Lock(0));
    EXPECT_FALSE(mutex_->Lock(200));
    EXPECT_GE(some.Milliseconds(), AtLeast(200));
    EXPECT_LT(some.Milliseconds(), 10000);
    EXPECT_EQ(trace_.Texts(), (Lines{timedOut, timedOut}));
    const Stopwatch waiting;
    auto release = Later(200, [] { Announce("release"); });
    EXPECT_TRUE(mutex_->Lock());
    EXPECT_GE(waiting.Milliseconds(), AtLeast(200));
    release.join();
    EXPECT_EQ(child.Wait(), 0);
    mutex_->Unlock();
    EXPECT_FALSE(Exists()) << "a time-out left its handle open";
}

TEST_F(SystemMutex, AnOwnerThatEndsPassesTheLockOn)
{
    for (const bool killed : {false, true})
    {
        SCOPED_TRACE(killed);
        ClearPoints();
        ChildProcess child("HoldMutex", {name_, "forget"});
        ASSERT_TRUE(WaitFor("held"));
        auto ending = Later(100, [&] { killed ? child.Kill() : Announce("release"); });
        trace_.Restart();
        EXPECT_TRUE(mutex_->Lock(20000));
        ending.join();
        child.Wait();
        // It is really held: nobody else gets it.
        std::thread([this] { EXPECT_FALSE(LSystemLockMutex(Wide(name_).c_str()).Lock(0)); }).join();
        EXPECT_EQ(OwnTexts(trace_), (Lines{timedOut, destroyed}));
        mutex_->Unlock();
    }
}

TEST_F(SystemMutex, UnlockingOnTheWrongThreadIsReportedAndCloses)
{
    // The owner ends without releasing, so that this thread owns nothing.
    std::thread([this] { EXPECT_TRUE(mutex_->Lock(0)); }).join();
    mutex_->Unlock();
    constexpr DWORD notOwner = 288;
    EXPECT_EQ(trace_.Texts(), Lines{"LSystemLockMutex::Unlock FAILED " + SystemText(notOwner)});
    EXPECT_FALSE(Exists());
}

TEST_F(SystemMutex, ANameThatCannotBeHadIsReported)
{
    {
        const LHandle section(
            CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4, global_.c_str()));
        const Stopwatch stopwatch;
        EXPECT_FALSE(mutex_->Lock(30000));
        EXPECT_LT(stopwatch.Milliseconds(), 15000) << "only a refused access is waited for";
    }
    EXPECT_EQ(trace_.Texts(), Lines{"**LSystemLockMutex::Lock CreateMutex FAILED"});
    EXPECT_TRUE(mutex_->Lock(0));
    mutex_->Unlock();
    const std::string name(300, 'm');
    EXPECT_EQ(Traced([&] { LSystemLockMutex overlong(Wide(name).c_str()); }),
              (Overflow("lw", ("Global\\" + name).substr(0, 259)) + Lines{destroyed}));
}

#ifndef _WIN32 // nobody refuses the access on Windows; injected, the number of refusals is exact, too
void RefuseAccess(unsigned tries)
{
    for (unsigned i = 0; i < tries; ++i)
    {
        sndxposix::FailCall("CreateMutexW", ERROR_ACCESS_DENIED, i);
    }
}

TEST_F(SystemMutex, RefusedAccessIsTriedEvery50MillisecondsOfTheTimeOut)
{
    for (const auto& [timeout, tries] : {std::pair{0u, 1u}, {50u, 1u}, {51u, 2u}, {100u, 2u}, {201u, 5u}})
    {
        SCOPED_TRACE(timeout);
        RefuseAccess(tries + 1);
        const Stopwatch stopwatch;
        EXPECT_EQ(Traced([&, t = timeout] { EXPECT_FALSE(mutex_->Lock(t)); }),
                  Lines{"LSystemLockMutex::Lock CreateMutex Timed Out"});
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(50 * tries));
        EXPECT_EQ(sndxposix::PendingFailures(), 1u);
        sndxposix::ResetFailures();
    }
    RefuseAccess(3);
    EXPECT_TRUE(mutex_->Lock()) << "the refusals have ended";
    RefuseAccess(4);
    std::thread(
        [this]
        {
            LSystemLockMutex other(Wide(name_).c_str());
            const Stopwatch stopwatch;
            EXPECT_FALSE(other.Lock(300));
            // 200 ms of sleep and a wait of 100 ms; a wait of the whole time-out would make 500.
            EXPECT_GE(stopwatch.Milliseconds(), AtLeast(300));
            EXPECT_LT(stopwatch.Milliseconds(), 480);
        })
        .join();
    mutex_->Unlock();
    RefuseAccess(1);
    sndxposix::FailCall("CreateMutexW", ERROR_INVALID_HANDLE, 1);
    trace_.Restart();
    EXPECT_FALSE(mutex_->Lock()) << "another error is not waited for";
    EXPECT_EQ(trace_.Texts(), Lines{"**LSystemLockMutex::Lock CreateMutex FAILED"});
}
#endif
} // namespace
