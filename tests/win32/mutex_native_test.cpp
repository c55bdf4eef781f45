// How long a lock was held, to the millisecond. Only the native layer's tick count can be set.

#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/support/reports.h"
#include "win32/mutex.h"

namespace
{
using namespace sndxtest;

TEST(LockHold, IsReportedAboveFiveSeconds)
{
    const Lines tooLong = {
        "**LLockObject::Unlock Unlock called more than 5 seconds after lock. This is not good."};
    struct Hold
    {
        std::uint32_t lockedAt;
        std::uint32_t milliseconds;
        Lines reports;
    };
    const Hold holds[] = {{70000, 5000, {}},
                          {70000, 5001, tooLong},
                          {0xFFFFFFFFu - 99, 200, {}}, // across the wrap of the counter
                          {0xFFFFFFFFu - 99, 5001, tooLong},
                          {0, 100, {}}}; // a lock at tick 0 counts as a lock
    for (const Hold& hold : holds)
    {
        LLockObject lock;
        sndxposix::SetTickCount(hold.lockedAt);
        lock.Lock();
        sndxposix::AdvanceTickCount(hold.milliseconds);
        EXPECT_EQ(Traced([&] { lock.Unlock(); }), hold.reports) << hold.lockedAt << "+" << hold.milliseconds;
    }
    LLockObject unlocked; // is measured from zero
    sndxposix::SetTickCount(5000);
    EXPECT_EQ(Traced([&] { unlocked.Unlock(); }),
              Lines{"**LLockObject::Unlock Object never locked before calling Unlock."});
    sndxposix::RunTickCount();
}
} // namespace
