// The cost of one tracked block must not grow with the number of live ones.

#include <algorithm>
#include <chrono>

#include "tests/gen/debug/heapprobe.h"

using namespace sndxtest;

namespace
{
// Nanoseconds for a block made and released while so many others live: the median of a series of
// measurements.
class PairCost
{
  public:
    void Measure()
    {
        constexpr int pairs = 2000;
        const LDebugHeapLock lock; // once: its system calls would hide what is looked for
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < pairs; ++i)
        {
            LMemAllocation::Release(LMemAllocation::Record(64, blockFile, "Maker", 7, false), false);
        }
        const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
        costs_.push_back(elapsed.count() / pairs);
    }
    // Of the least disturbed half.
    double Median()
    {
        std::sort(costs_.begin(), costs_.end());
        return costs_[costs_.size() / 4];
    }

  private:
    std::vector<double> costs_;
};
} // namespace

TEST_F(TrackerTest, BlockAmongManyCostsAtMostHalfAsMuchAgainAsAmongFew)
{
    if (sanitized)
    {
        GTEST_SKIP() << "a sanitizer's own bookkeeping is all that would be measured";
    }
    std::vector<void*> live;
    PairCost amongFew;
    PairCost amongMany;
    for (int round = 0; round < 100; ++round)
    {
        // The levels alternate, so that a busy machine slows both.
        const std::size_t level = round % 20 < 10 ? 100 : 100000;
        for (; live.size() < level; live.push_back(MakeBlock(64)))
        {
        }
        for (; live.size() > level; live.pop_back())
        {
            ReleaseBlock(live.back());
        }
        (level == 100 ? amongFew : amongMany).Measure();
    }
    std::for_each(live.begin(), live.end(), [](void* block) { ReleaseBlock(block); });
    RecordProperty("nanosecondsAmongFew", std::to_string(amongFew.Median()));
    RecordProperty("nanosecondsAmongMany", std::to_string(amongMany.Median()));
    EXPECT_LE(amongMany.Median(), 1.5 * amongFew.Median());
    EXPECT_EQ(Report(), noLeak);
}
