// The trace's clock and thread column at values of a test's choice, which only the native layer can set.

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "diag/lifetime.h"
#include "diag/tracefile.h"
#include "sndxposix.h"
#include "tests/support/child.h"
#include "tests/support/tracefile.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;

// Of the lines "x".
std::vector<std::string> Stamps(const std::vector<TraceLine>& lines)
{
    std::vector<std::string> stamps;
    for (const TraceLine& line : lines)
    {
        if (line.text == "x")
        {
            stamps.push_back(line.stamp);
        }
    }
    return stamps;
}

TEST(TraceClock, MillisecondsOfTheDayAndTheThreadModulo10000)
{
    const TraceCapture trace;
    sndxposix::SetCurrentThreadId(~0u);
    for (const std::uint32_t ticks : {0u, 59'999u, 3'599'999u, 3'600'000u, 86'399'999u, 86'400'000u, ~0u})
    {
        sndxposix::SetTickCount(ticks);
        LDebugTrace("x");
    }
    EXPECT_THAT(Stamps(trace.Lines()),
                ElementsAre("00:00:00.000", "00:00:59.999", "00:59:59.999", "01:00:00.000", "23:59:59.999",
                            "00:00:00.000", "17:02:47.295"));
    EXPECT_EQ(trace.Lines().back().thread, "7295");
    sndxposix::RunTickCount();
    sndxposix::SetCurrentThreadId(0);
}

// Starts the trace ten seconds before midnight at the tick count of the argument.
SNDX_CHILD(Midnight)
{
    sndxposix::SetTickCount(static_cast<std::uint32_t>(std::stoul(arguments.at(0))));
    sndxposix::SetLocalTimeOfDay(23, 59, 50);
    const LDebugTraceLifetime lifetime;
    // Neither the local time nor the days that pass count from here on.
    sndxposix::SetLocalTimeOfDay(12, 0, 0);
    for (const std::uint32_t passed : {0u, 8'999u, 1'001u, 3u * 24 * 3600 * 1000})
    {
        sndxposix::AdvanceTickCount(passed);
        LDebugTrace("x");
    }
    return 0;
}

TEST(TraceClock, RunsFromLocalTimeAtTheStartAndWrapsAtMidnight)
{
    // The tick count itself wraps, too; and at less than a day the base lies before zero.
    for (const char* ticks : {"100000000", "5000", "4294960000"})
    {
        RemoveTraceFiles();
        ASSERT_EQ(ChildProcess("Midnight", {ticks}).Wait(), 0);
        // Real time may have reached the next second between the setting and the start.
        EXPECT_THAT(
            Stamps(ParseTrace(ReadWholeFile(TraceFilePath()))),
            ::testing::AnyOf(ElementsAre("23:59:50.000", "23:59:58.999", "00:00:00.000", "00:00:00.000"),
                             ElementsAre("23:59:51.000", "23:59:59.999", "00:00:01.000", "00:00:01.000")))
            << ticks;
    }
}

} // namespace
