// Native only: an open that fails for the reader alone cannot be had from a file system, because the trace's
// writer asks for all that the reader asks for.

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "sndxposix.h"
#include "tests/gen/debug/heapprobe.h"
#include "tests/gen/debug/tracereader.h"

using namespace sndxtest;
using testing::ElementsAre;

namespace
{
class LeakReportFile : public TrackerTest
{
};
} // namespace

TEST_F(LeakReportFile, IsNotReadWithoutALeak)
{
    LDebugTrace("a line, so that the file exists");
    void* const empty = MakeBlock(0);
    constexpr unsigned opensForTheLine = 1;
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, opensForTheLine);
    LDebugHeapLeakReport();
    EXPECT_EQ(sndxposix::PendingFailures(), 1u);
    sndxposix::ResetFailures();
    ReleaseBlock(empty);
}

TEST_F(LeakReportFile, ThatCannotBeOpenedLeavesTheListWithoutTexts)
{
    void* const block = MakeBlock(10);
    LDebugTrace("after the block");
    const TraceCapture trace;
    constexpr unsigned opensForTheFirstLine = 1;
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, opensForTheFirstLine);
    LDebugHeapLeakReport();
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    EXPECT_THAT(trace.Texts(), ElementsAre(LeakStart(10), LeakLine(10, "Maker", blockFile, 7, 0), leakEnd));
    ReleaseBlock(block);
}
