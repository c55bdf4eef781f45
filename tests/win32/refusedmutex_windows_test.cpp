// A mutex that another user holds with a security of his own. The native layer does not enforce access
// lists; there the refusal is injected.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include <windows.h>
#include <sddl.h>

#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/timing.h"
#include "win32/handle.h"
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
    RefusedMutex()
    {
        SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
        // Denies everything to everybody.
        EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
            TEXT("D:(D;;GA;;;WD)"), SDDL_REVISION_1, &attributes.lpSecurityDescriptor, nullptr));
        held_.Set(CreateMutexW(&attributes, FALSE, sndxtest::Wide("Global\\" + name_).c_str()));
        EXPECT_TRUE(held_.IsOpen());
        LocalFree(attributes.lpSecurityDescriptor);
    }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    LHandle held_;
};

TEST_F(RefusedMutex, IsTriedEvery50MillisecondsOfTheTimeOut)
{
    struct Case
    {
        std::uint32_t timeout;
        std::int64_t slept;
    };
    LSystemLockMutex mutex(sndxtest::Wide(name_).c_str());
    for (const Case& c : {Case{0, 50}, Case{50, 50}, Case{51, 100}, Case{200, 200}})
    {
        SCOPED_TRACE(c.timeout);
        const TraceCapture trace;
        const Stopwatch stopwatch;
        EXPECT_FALSE(mutex.Lock(c.timeout));
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(c.slept));
        EXPECT_LT(stopwatch.Milliseconds(), 10000);
        EXPECT_THAT(trace.Texts(), ElementsAre("LSystemLockMutex::Lock CreateMutex Timed Out"));
    }
}

TEST_F(RefusedMutex, IsHadWhenTheOtherUserHasGone)
{
    LSystemLockMutex mutex(sndxtest::Wide(name_).c_str());
    const TraceCapture trace;
    std::thread other(
        [&]
        {
            Sleep(120);
            held_.Close();
        });
    const Stopwatch stopwatch;
    EXPECT_TRUE(mutex.Lock(20000));
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(120));
    EXPECT_THAT(trace.Texts(), IsEmpty());
    other.join();
    mutex.Unlock();
}
} // namespace
