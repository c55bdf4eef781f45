// The lock across processes: time-outs, owners that die, names that cannot be had.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/reports.h"
#include "tests/win32/timing.h"
#include "win32/handle.h"
#include "win32/systemmutex.h"

namespace
{
using sndxtest::AtLeast;
using sndxtest::OwnTexts;
using sndxtest::Stopwatch;
using sndxtest::TraceCapture;
using sndxtest::Wide;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const timedOut = "LSystemLockMutex::Lock Timed Out";
const char* const destroyed = "LSystemLockMutex::~LSystemLockMutex";

class SystemMutex : public ::testing::Test
{
  protected:
    SystemMutex() { sndxtest::ClearPoints(); }

    // Whether the system object exists.
    bool Exists() const { return LHandle(OpenMutexW(SYNCHRONIZE, FALSE, global_.c_str())).IsOpen(); }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    const sndxtest::WideString wide_ = Wide(name_);
    const sndxtest::WideString global_ = Wide("Global\\" + name_);
};

// Holds the system object "Global\NAME" until "release"; with a second argument it ends without releasing.
SNDX_CHILD(HoldMutex)
{
    const LHandle mutex(CreateMutexW(nullptr, TRUE, Wide("Global\\" + arguments.at(0)).c_str()));
    sndxtest::Announce("held");
    sndxtest::WaitFor("release");
    if (arguments.size() == 1)
    {
        ReleaseMutex(mutex.Get());
    }
    return 0;
}

TEST_F(SystemMutex, TheSystemObjectExistsWhileTheLockIsHeld)
{
    TraceCapture trace;
    {
        LSystemLockMutex mutex(wide_.c_str());
        EXPECT_FALSE(Exists());
        mutex.Unlock();
        ASSERT_TRUE(mutex.Lock(0));
        EXPECT_TRUE(Exists());
        mutex.Unlock();
        EXPECT_FALSE(Exists());
        ASSERT_TRUE(mutex.Lock());
        mutex.Unlock();
        mutex.Unlock();
        EXPECT_FALSE(Exists());
        EXPECT_THAT(trace.Texts(), IsEmpty());
    }
    EXPECT_THAT(trace.Texts(), ElementsAre(destroyed));
}

TEST_F(SystemMutex, ASecondLockIsReportedAndNeedsNoSecondUnlock)
{
    LSystemLockMutex mutex(wide_.c_str());
    ASSERT_TRUE(mutex.Lock(0));
    const TraceCapture trace;
    EXPECT_TRUE(mutex.Lock(0));
    EXPECT_THAT(trace.Texts(), ElementsAre("**LSystemLockMutex::Lock Called when already locked!"));
    mutex.Unlock();
    EXPECT_FALSE(Exists());
}

TEST_F(SystemMutex, AnotherProcessIsWaitedForWithinTheTimeOut)
{
    sndxtest::ChildProcess child("HoldMutex", {name_});
    ASSERT_TRUE(sndxtest::WaitFor("held"));
    LSystemLockMutex mutex(wide_.c_str());
    TraceCapture trace;
    const Stopwatch none;
    EXPECT_FALSE(mutex.Lock(0));
    EXPECT_LT(none.Milliseconds(), 5000);
    const Stopwatch some;
    EXPECT_FALSE(mutex.Lock(200));
    EXPECT_GE(some.Milliseconds(), AtLeast(200));
    EXPECT_LT(some.Milliseconds(), 10000);
    EXPECT_THAT(trace.Texts(), ElementsAre(timedOut, timedOut));

    trace.Restart();
    std::thread release(
        []
        {
            Sleep(200);
            sndxtest::Announce("release");
        });
    const Stopwatch waiting;
    EXPECT_TRUE(mutex.Lock());
    EXPECT_GE(waiting.Milliseconds(), AtLeast(200));
    release.join();
    EXPECT_EQ(0, child.Wait());
    EXPECT_THAT(OwnTexts(trace), IsEmpty());
    EXPECT_TRUE(Exists());
    mutex.Unlock();
    EXPECT_FALSE(Exists()) << "a time-out left its handle open";
}

TEST_F(SystemMutex, AnOwnerThatEndsPassesTheLockOn)
{
    for (const bool killed : {false, true})
    {
        SCOPED_TRACE(killed);
        sndxtest::ClearPoints();
        sndxtest::ChildProcess child("HoldMutex", {name_, "forget"});
        ASSERT_TRUE(sndxtest::WaitFor("held"));
        LSystemLockMutex mutex(wide_.c_str());
        const TraceCapture trace;
        std::thread ending(
            [&]
            {
                Sleep(100);
                killed ? child.Kill() : sndxtest::Announce("release");
            });
        EXPECT_TRUE(mutex.Lock(20000));
        ending.join();
        child.Wait();
        // It is really held: nobody else gets it.
        std::thread(
            [&]
            {
                LSystemLockMutex other(wide_.c_str());
                EXPECT_FALSE(other.Lock(0));
            })
            .join();
        EXPECT_THAT(OwnTexts(trace), ElementsAre(timedOut, destroyed));
        mutex.Unlock();
    }
}

TEST_F(SystemMutex, DestructionWhileLockedIsReported)
{
    auto mutex = std::make_unique<LSystemLockMutex>(wide_.c_str());
    ASSERT_TRUE(mutex->Lock(0));
    const TraceCapture trace;
    mutex.reset();
    EXPECT_THAT(trace.Texts(), ElementsAre(destroyed, "**LSystemLockMutex::~LSystemLockMutex when Locked!"));
    EXPECT_FALSE(Exists());
}

TEST_F(SystemMutex, UnlockingOnTheWrongThreadIsReportedAndCloses)
{
    LSystemLockMutex mutex(wide_.c_str());
    std::thread owner([&] { ASSERT_TRUE(mutex.Lock(0)); });
    // The owner ends without releasing, so that this thread owns nothing.
    owner.join();
    const TraceCapture trace;
    mutex.Unlock();
    constexpr DWORD notOwner = 288;
    EXPECT_THAT(trace.Texts(),
                ElementsAre("LSystemLockMutex::Unlock FAILED " + sndxtest::SystemText(notOwner)));
    EXPECT_FALSE(Exists());
}

TEST_F(SystemMutex, ANameThatCannotBeHadIsReported)
{
    const TraceCapture trace;
    {
        const LHandle section(
            CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4, global_.c_str()));
        ASSERT_TRUE(section.IsOpen());
        LSystemLockMutex mutex(wide_.c_str());
        const Stopwatch stopwatch;
        EXPECT_FALSE(mutex.Lock(30000));
        EXPECT_LT(stopwatch.Milliseconds(), 15000) << "only a refused access is waited for";
    }
    EXPECT_THAT(trace.Texts(), ElementsAre("**LSystemLockMutex::Lock CreateMutex FAILED", destroyed));
    LSystemLockMutex mutex(wide_.c_str());
    EXPECT_TRUE(mutex.Lock(0));
    mutex.Unlock();
}

TEST_F(SystemMutex, AnOverlongNameIsReportedAndCut)
{
    const std::string name(300, 'm');
    const TraceCapture trace;
    const LSystemLockMutex mutex(Wide(name).c_str());
    const auto report = sndxtest::OverflowReport(("Global\\" + name).substr(0, 259));
    EXPECT_THAT(trace.Texts(), ElementsAre(report[0], report[1]));
}

TEST_F(SystemMutex, LeavesNoHandleBehind)
{
    const LHandle held(CreateMutexW(nullptr, FALSE, global_.c_str()));
    EXPECT_EQ(0, sndxtest::HandlesLeft(
                     [&]
                     {
                         LSystemLockMutex mutex(wide_.c_str());
                         EXPECT_TRUE(mutex.Lock(0));
                         mutex.Unlock();
                         EXPECT_TRUE(mutex.Lock(0));
                     }));
}

// Adds to the number in a mapping, a hundred times, slowly.
SNDX_CHILD(CountUnderMutex)
{
    const LHandle section(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, Wide(arguments.at(1)).c_str()));
    auto* const number =
        static_cast<volatile int*>(MapViewOfFile(section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(int)));
    if (number == nullptr)
    {
        return 1;
    }
    LSystemLockMutex mutex(Wide(arguments.at(0)).c_str());
    for (int i = 0; i < 100; ++i)
    {
        if (!mutex.Lock(30000))
        {
            return 2;
        }
        const int seen = *number;
        if (i % 10 == 0)
        {
            Sleep(1);
        }
        *number = seen + 1;
        mutex.Unlock();
    }
    return 0;
}

TEST_F(SystemMutex, SerialisesProcesses)
{
    const std::string numberName = name_ + "number";
    const LHandle section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(int),
                                             Wide(numberName).c_str()));
    ASSERT_TRUE(section.IsOpen());
    sndxtest::ChildProcess one("CountUnderMutex", {name_, numberName});
    sndxtest::ChildProcess two("CountUnderMutex", {name_, numberName});
    EXPECT_EQ(0, one.Wait(60000));
    EXPECT_EQ(0, two.Wait(60000));
    void* const number = MapViewOfFile(section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(int));
    ASSERT_NE(nullptr, number);
    EXPECT_EQ(200, *static_cast<int*>(number));
    UnmapViewOfFile(number);
}
} // namespace
