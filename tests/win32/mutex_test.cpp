// The in-process lock: that it excludes, and that it reports every breach of its rules without failing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/tracefile.h"
#include "tests/win32/reports.h"
#include "win32/mutex.h"

namespace
{
using sndxtest::TraceCapture;
using sndxtest::WithoutLineNumbers;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const lockedTwice =
    "**ASSERTION FAILED (uTCLockTime == 0) \"LLockObject::Lock  Locked twice on the same thread. This is "
    "prohibited. "
    "Please make sure you unlock before you lock again.\" file: win32/mutex.cpp line: N";
const char* const lockedInLock =
    "**ASSERTION FAILED (uLockThreadId != uCurrentThreadId) \"LLockObject::Lock  Locked while already in a "
    "lock. This "
    "is prohibited because it is a likely source of deadlocks.\" file: win32/mutex.cpp line: N";
const char* const neverLocked = "**LLockObject::Unlock Object never locked before calling Unlock.";
const char* const heldLong =
    "**LLockObject::Unlock Unlock called more than 5 seconds after lock. This is not good.";

std::vector<std::string> Reports(const TraceCapture& trace)
{
    return WithoutLineNumbers(trace.Texts());
}

// Locks an object on a thread of its own and unlocks it at once; tells whether that has happened yet.
class OtherLocker
{
  public:
    explicit OtherLocker(LLockObject& lock)
        : thread_(
              [this, &lock]
              {
                  lock.Lock();
                  done_ = true;
                  lock.Unlock();
              })
    {
    }
    ~OtherLocker() { thread_.join(); }
    bool DoneWithin(DWORD milliseconds) const
    {
        for (DWORD waited = 0; !done_ && waited < milliseconds; waited += 5)
        {
            Sleep(5);
        }
        return done_;
    }

  private:
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

void OnAnotherThread(const std::function<void()>& work)
{
    std::thread(work).join();
}

TEST(LockObject, KeepsThreadsApartAndReportsNothing)
{
    const TraceCapture trace;
    LLockObject lock;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int n = 0; n < 5000; ++n)
                {
                    const LLockObjectScope scope(lock);
                    const int seen = counter;
                    counter = seen + 1;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(20000, counter);
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST(LockObject, BlocksOtherThreadsForTheTimeOfTheScope)
{
    LLockObject lock;
    auto scope = std::make_unique<LLockObjectScope>(lock);
    const OtherLocker other(lock);
    EXPECT_FALSE(other.DoneWithin(100));
    scope.reset();
    EXPECT_TRUE(other.DoneWithin(20000));
}

TEST(LockObject, ADoubleLockIsReportedAndStaysBalanced)
{
    const TraceCapture trace;
    LLockObject lock;
    lock.Lock();
    lock.Lock();
    EXPECT_THAT(Reports(trace), ElementsAre(lockedTwice, lockedInLock));

    TraceCapture first;
    lock.Unlock();
    EXPECT_THAT(Reports(first), IsEmpty());
    // One level is left: the other thread still has to wait.
    const OtherLocker other(lock);
    EXPECT_FALSE(other.DoneWithin(100));

    lock.Unlock();
    EXPECT_TRUE(other.DoneWithin(20000));
    EXPECT_THAT(Reports(first), ElementsAre(neverLocked, heldLong));
}

TEST(LockObject, ASecondObjectInsideALockIsReportedAndLocked)
{
    LLockObject first;
    LLockObject second;
    first.Lock();
    TraceCapture trace;
    second.Lock();
    EXPECT_THAT(Reports(trace), ElementsAre(lockedInLock));
    {
        const OtherLocker other(second);
        EXPECT_FALSE(other.DoneWithin(50));
        second.Unlock();
    }
    first.Unlock();
    // Nothing is left behind.
    const LLockObjectScope again(second);
    EXPECT_THAT(Reports(trace), ElementsAre(lockedInLock));
}

TEST(LockObject, ResettingTheLockThreadExcusesTheNextLock)
{
    const TraceCapture trace;
    LLockObject first;
    LLockObject second;
    const LLockObjectScope outer(first);
    LLockObject::ResetLockThread();
    const LLockObjectScope inner(second);
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST(LockObject, OnlyTheMostRecentLockerCountsAsNested)
{
    const TraceCapture trace;
    LLockObject first;
    LLockObject second;
    LLockObject third;
    // The other thread's lock has taken this thread's place in between.
    first.Lock();
    OnAnotherThread([&] { const LLockObjectScope scope(third); });
    second.Lock();
    EXPECT_THAT(Reports(trace), IsEmpty());
    second.Unlock();
    first.Unlock();

    // An unlock on this thread does not clear the other thread's record.
    first.Lock();
    std::atomic<int> step = 0;
    std::thread other(
        [&]
        {
            third.Lock();
            step = 1;
            while (step != 2)
            {
                Sleep(1);
            }
            const LLockObjectScope nested(second);
            third.Unlock();
        });
    while (step != 1)
    {
        Sleep(1);
    }
    first.Unlock();
    step = 2;
    other.join();
    EXPECT_THAT(Reports(trace), ElementsAre(lockedInLock));
}

TEST(LockObject, UnlockWithoutLockIsReportedAndChangesNothing)
{
    TraceCapture trace;
    LLockObject lock;
    lock.Unlock();
    // The hold time counts from 0, and the system runs for more than five seconds.
    EXPECT_THAT(Reports(trace), ElementsAre(neverLocked, heldLong));
    EXPECT_TRUE(OtherLocker(lock).DoneWithin(20000));

    lock.Lock();
    OnAnotherThread([&] { lock.Unlock(); });
    trace.Restart();
    {
        const OtherLocker other(lock);
        EXPECT_FALSE(other.DoneWithin(100)) << "a thread left a section that it had not entered";
        lock.Unlock();
    }
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST(LockObject, DestructionWhileLockedIsReportedOnce)
{
    auto lock = std::make_unique<LLockObject>();
    lock->Lock();
    const TraceCapture trace;
    lock.reset();
    LLockObject::ResetLockThread();
    EXPECT_THAT(Reports(trace),
                ElementsAre("**LLockObject::~LLockObject  Not unlocked before destruction. Check you "
                            "have matching unlocks"));
}
} // namespace
