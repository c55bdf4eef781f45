// The cost of one tracked block must not grow with the number of live ones.

#include <algorithm>
#include <chrono>
#include <limits>

#include "tests/diag/heapprobe.h"

using namespace sndxtest;

namespace
{
// Nanoseconds for a block made and released: the best of many measurements, since a busy machine can only
// add.
double PairCost()
{
    constexpr int pairs = 2000;
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i < 200; ++i)
    {
        const LDebugHeapLock lock; // once: its system calls would hide what is looked for
        const auto start = std::chrono::steady_clock::now();
        for (int pair = 0; pair < pairs; ++pair)
        {
            LMemAllocation::Release(LMemAllocation::Record(64, blockFile, "Maker", 7, false), false);
        }
        const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
        best = std::min(best, elapsed.count() / pairs);
    }
    return best;
}
} // namespace

TEST_F(TrackerTest, BlockAmongManyCostsAtMostHalfAsMuchAgainAsAmongFew)
{
    if (sanitized)
    {
        GTEST_SKIP() << "a sanitizer's own bookkeeping is all that would be measured";
    }
    std::vector<void*> live;
    const auto costAmong = [&live](std::size_t count)
    {
        while (live.size() < count)
        {
            live.push_back(MakeBlock(64));
        }
        return PairCost();
    };
    const double amongFew = costAmong(100); // first: what the table has grown to once it stays
    const double amongMany = costAmong(100000);
    RecordProperty("nanosecondsAmongFew", std::to_string(amongFew));
    RecordProperty("nanosecondsAmongMany", std::to_string(amongMany));
    EXPECT_LE(amongMany, 1.5 * amongFew);
    std::for_each(live.begin(), live.end(), [](void* block) { ReleaseBlock(block); });
    EXPECT_EQ(Report(), noLeak);
}
