// The cost of one tracked block must not grow with the number of live ones.

#include <algorithm>
#include <chrono>

#include "tests/gen/debug/heapprobe.h"

using namespace sndxtest;

namespace
{
// Nanoseconds for a block made and released.
double PairCost()
{
    constexpr int pairs = 2000;
    const LDebugHeapLock lock; // once: its system calls would hide what is looked for
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < pairs; ++i)
    {
        LMemAllocation::Release(LMemAllocation::Record(64, blockFile, "Maker", 7, false), false);
    }
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count() / pairs;
}

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}
} // namespace

TEST_F(TrackerTest, BlockAmongManyCostsAtMostHalfAsMuchAgainAsAmongFew)
{
    if (addressSanitizer || threadSanitizer)
    {
        GTEST_SKIP() << "a sanitizer's own bookkeeping is all that would be measured";
    }
    constexpr std::size_t few = 100;
    constexpr std::size_t many = 100000;
    std::vector<void*> live;
    const auto fill = [&live](std::size_t count)
    {
        while (live.size() < count)
        {
            live.push_back(MakeBlock(64));
        }
        while (live.size() > count)
        {
            ReleaseBlock(live.back());
            live.pop_back();
        }
    };
    // The levels alternate, so that a busy machine slows both; of each level the least disturbed half counts.
    std::vector<double> amongFew;
    std::vector<double> amongMany;
    for (int round = 0; round < 5; ++round)
    {
        fill(few);
        for (int i = 0; i < 20; ++i)
        {
            amongFew.push_back(PairCost());
        }
        fill(many);
        for (int i = 0; i < 20; ++i)
        {
            amongMany.push_back(PairCost());
        }
    }
    fill(0);
    for (auto* costs : {&amongFew, &amongMany})
    {
        std::sort(costs->begin(), costs->end());
        costs->resize(costs->size() / 2);
    }
    RecordProperty("nanosecondsAmongFew", std::to_string(Median(amongFew)));
    RecordProperty("nanosecondsAmongMany", std::to_string(Median(amongMany)));
    EXPECT_LE(Median(amongMany), 1.5 * Median(amongFew));
    EXPECT_EQ(Report(), noLeak);
}
