// Native only: an open that fails for the reader alone cannot be had from a file system, because the trace's
// writer asks for all that the reader asks for.

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "sndxposix.h"
#include "tests/gen/debug/heapprobe.h"
#include "tests/support/leakreport.h"

using namespace sndxtest;

using LeakReportFile = TrackerTest;

TEST_F(LeakReportFile, ThatCannotBeOpenedLeavesTheListWithoutTexts)
{
    LDebugTrace("a line, so that the file exists");
    constexpr unsigned opensForTheFirstLine = 1;
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, opensForTheFirstLine);
    LDebugHeapLeakReport();
    EXPECT_EQ(sndxposix::PendingFailures(), 1u) << "the file is not read without a leak";
    sndxposix::ResetFailures();

    void* const block = MakeBlock(10);
    LDebugTrace("after the block");
    const TraceCapture trace;
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, opensForTheFirstLine);
    LDebugHeapLeakReport();
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    EXPECT_THAT(trace.Texts(),
                testing::ElementsAre(LeakStart(10), LeakLine(10, "Maker", blockFile, 7, 2), leakEnd));
    ReleaseBlock(block);
}
