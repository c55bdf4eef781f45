// The in-process lock: that it excludes, and that it reports every breach of its rules without failing.

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <tuple>

#ifndef _WIN32
#include "sndxposix.h"
#endif

#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "win32/mutex.h"

namespace
{
using namespace sndxtest;

const std::string lockedTwice =
    FailedCheck("uTCLockTime == 0",
                "LLockObject::Lock  Locked twice on the same thread. This is prohibited. Please make sure "
                "you unlock before you lock again.",
                "win32/mutex.cpp");
const std::string lockedInLock =
    FailedCheck("uLockThreadId != uCurrentThreadId",
                "LLockObject::Lock  Locked while already in a lock. This is prohibited because it is a "
                "likely source of deadlocks.",
                "win32/mutex.cpp");
const char* const neverLocked = "**LLockObject::Unlock Object never locked before calling Unlock.";
const char* const heldLong =
    "**LLockObject::Unlock Unlock called more than 5 seconds after lock. This is not good.";

// Locks an object on a thread of its own and unlocks it at once; waits for that at its end.
std::future<void> LockElsewhere(LLockObject& lock)
{
    return std::async(std::launch::async, [&lock] { const LLockObjectScope scope(lock); });
}

bool DoneWithin(int milliseconds, const std::future<void>& other)
{
    return other.wait_for(std::chrono::milliseconds(milliseconds)) == std::future_status::ready;
}

TEST(LockObject, BlocksOtherThreadsForTheTimeOfTheScope)
{
    LLockObject lock;
    auto scope = std::make_unique<LLockObjectScope>(lock);
    const auto other = LockElsewhere(lock);
    EXPECT_FALSE(DoneWithin(100, other));
    scope.reset();
    EXPECT_TRUE(DoneWithin(20000, other));
}

TEST(LockObject, ADoubleLockIsReportedAndStaysBalanced)
{
    LLockObject lock;
    lock.Lock();
    EXPECT_EQ(Traced([&] { lock.Lock(); }), (Lines{lockedTwice, lockedInLock}));
    EXPECT_EQ(Traced([&] { lock.Unlock(); }), Lines());
    // One level is left: the other thread still has to wait.
    const auto other = LockElsewhere(lock);
    EXPECT_FALSE(DoneWithin(100, other));
    EXPECT_EQ(Traced([&] { lock.Unlock(); }), (Lines{neverLocked, heldLong}));
    EXPECT_TRUE(DoneWithin(20000, other));
}

TEST(LockObject, ASecondObjectInsideALockIsReportedAndLocked)
{
    LLockObject first;
    LLockObject second;
    first.Lock();
    EXPECT_EQ(Traced([&] { second.Lock(); }), Lines{lockedInLock});
    {
        const auto other = LockElsewhere(second);
        EXPECT_FALSE(DoneWithin(50, other));
        second.Unlock();
    }
    first.Unlock();
    EXPECT_EQ(Traced([&] { const LLockObjectScope again(second); }), Lines());
}

TEST(LockObject, OnlyTheMostRecentLockerCountsAsNested)
{
    LLockObject first;
    LLockObject second;
    LLockObject third;
    // The other thread's lock has taken this thread's place in between.
    first.Lock();
    EXPECT_TRUE(DoneWithin(20000, LockElsewhere(third)));
    EXPECT_EQ(Traced([&] { const LLockObjectScope nested(second); }), Lines());
    // An unlock on this thread does not clear the other thread's record.
    std::atomic<bool> locked = false;
    std::atomic<bool> unlocked = false;
    std::thread other(
        [&]
        {
            const LLockObjectScope scope(third);
            locked = true;
            EXPECT_TRUE(Within(20000, [&] { return unlocked.load(); })) << "the unlock on this thread";
            EXPECT_EQ(Traced([&] { const LLockObjectScope nested(second); }), Lines{lockedInLock});
        });
    EXPECT_TRUE(Within(20000, [&] { return locked.load(); })) << "the lock on the other thread";
    first.Unlock();
    unlocked = true;
    other.join();
}

TEST(LockObject, UnlockWithoutLockIsReportedAndChangesNothing)
{
    LLockObject lock;
    // The hold time counts from 0, and the system runs for more than five seconds.
    EXPECT_EQ(Traced([&] { lock.Unlock(); }), (Lines{neverLocked, heldLong}));
    EXPECT_TRUE(DoneWithin(20000, LockElsewhere(lock)));
    lock.Lock();
    std::thread([&] { lock.Unlock(); }).join();
    const auto other = LockElsewhere(lock);
    EXPECT_FALSE(DoneWithin(100, other)) << "a thread left a section that it had not entered";
    EXPECT_EQ(Traced([&] { lock.Unlock(); }), Lines());
}

TEST(LockObject, DestructionWhileLockedIsReportedOnce)
{
    auto lock = std::make_unique<LLockObject>();
    lock->Lock();
    EXPECT_EQ(Traced([&] { lock.reset(); }),
              Lines{"**LLockObject::~LLockObject  Not unlocked before destruction. Check you "
                    "have matching unlocks"});
    LLockObject::ResetLockThread();
}

#ifndef _WIN32 // the native layer's tick count can be set
TEST(LockObject, ALockHeldForMoreThanFiveSecondsIsReported)
{
    const std::tuple<DWORD, DWORD, Lines> holds[] = {
        {70000, 5000, {}},
        {70000, 5001, {heldLong}},
        {0xFFFFFFFFu - 99, 200, {}}, // across the wrap of the counter
        {0xFFFFFFFFu - 99, 5001, {heldLong}},
        {0, 100, {}}}; // a lock at tick 0 counts as a lock
    for (const auto& [lockedAt, milliseconds, reports] : holds)
    {
        LLockObject lock;
        sndxposix::SetTickCount(lockedAt);
        lock.Lock();
        sndxposix::AdvanceTickCount(milliseconds);
        EXPECT_EQ(Traced([&] { lock.Unlock(); }), reports) << lockedAt << "+" << milliseconds;
    }
    LLockObject unlocked; // is measured from zero
    sndxposix::SetTickCount(5000);
    EXPECT_EQ(Traced([&] { unlocked.Unlock(); }), Lines{neverLocked});
    sndxposix::RunTickCount();
}
#endif
} // namespace
