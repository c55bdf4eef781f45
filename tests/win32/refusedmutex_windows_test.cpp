// A mutex that another user holds with a security of his own. The native layer does not enforce access lists;
// there the refusal is injected.

#include <thread>

#include <gmock/gmock.h>

#include <windows.h>
#include <sddl.h>

#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/timing.h"
#include "win32/handle.h"
#include "win32/systemmutex.h"

namespace
{
using namespace sndxtest;

TEST(RefusedMutex, IsTriedEvery50MillisecondsOfTheTimeOut)
{
    const std::string name = "sndxtest" + std::to_string(GetCurrentProcessId());
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
    // Denies everything to everybody.
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
        TEXT("D:(D;;GA;;;WD)"), SDDL_REVISION_1, &attributes.lpSecurityDescriptor, nullptr));
    LHandle held(CreateMutexW(&attributes, FALSE, Wide("Global\\" + name).c_str()));
    LocalFree(attributes.lpSecurityDescriptor);
    LSystemLockMutex mutex(Wide(name).c_str());
    const TraceCapture trace;
    for (const auto& [timeout, slept] : {std::pair{0u, 50}, {50u, 50}, {51u, 100}})
    {
        const Stopwatch stopwatch;
        EXPECT_FALSE(mutex.Lock(timeout));
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(slept)) << timeout;
        EXPECT_LT(stopwatch.Milliseconds(), 10000) << timeout;
    }
    std::thread other(
        [&held]
        {
            Sleep(120);
            held.Close();
        });
    const Stopwatch stopwatch;
    EXPECT_TRUE(mutex.Lock(20000)) << "the other user has gone";
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(120));
    other.join();
    mutex.Unlock();
    EXPECT_THAT(trace.Texts(), testing::ElementsAreArray(std::vector<std::string>(
                                   3, "LSystemLockMutex::Lock CreateMutex Timed Out")));
}
} // namespace
