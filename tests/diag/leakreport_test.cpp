// The leak report: which blocks it lists, in what order and words, and which trace line it finds for each. A
// report of several hundred blocks is tested with the module.

#ifndef _WIN32
#include "sndxposix.h"
#endif

#include "gen/debug.h"
#include "diag/tracefile.h"
#include "tests/diag/heapprobe.h"
#include "tests/support/leakreport.h"
#include "tests/support/reports.h"
#include "tests/support/traceoracle.h"

using namespace sndxtest;

namespace
{
// A new trace: the line counter and the file begin at 0. What a test leaves of its blocks is released.
class LeakReport : public TrackerTest
{
  protected:
    LeakReport()
    {
        LDebugRotateFiles(LDebugGetFilePath());
        ExpectForeignLines();
    }
    ~LeakReport() override
    {
        for (void* block : blocks_)
        {
            ReleaseBlock(block);
        }
        EXPECT_TRUE(blocks_.empty() || Report() == noLeak);
    }

    void* Make(std::size_t size, const char* function = "Maker")
    {
        return blocks_.emplace_back(MakeBlock(size, false, function));
    }
    // The line of the file with that index among the stamped ones, as the report shows it.
    static std::string Shown(std::size_t index)
    {
        return " [" + StampedLines(ReadWholeFile(TraceFilePath())).at(index) + "]";
    }
    static std::string Leak(std::size_t size, std::size_t traceLine, const char* function = "Maker")
    {
        return LeakLine(size, function, blockFile, 7, traceLine);
    }

  private:
    std::vector<void*> blocks_;
};
} // namespace

TEST_F(LeakReport, OnlyEmptyOrExcusedBlocksAreNoLeak)
{
    Make(0);
    LMemAllocation::IgnoreLeak(Make(100));
    EXPECT_EQ(Report(), noLeak);
}

TEST_F(LeakReport, ListsTheLargestFirstWithTheLineWrittenAfterEach)
{
    LDebugTrace("first line");
    Make(100, "Small");
    LDebugTrace("after the small block\r\nand its second part");
    Make(70000, "Class::Large");
    LMemAllocation::IgnoreLeak(Make(80000));
    Make(500, "Beside"); // at the same line of the trace
    void* const released = MakeBlock(90000);
    LDebugTraceError("after the large one");
    ReleaseBlock(released);
    Make(0, "Empty");
    LDebugTrace("after the empty one\nit goes on\rand on\r\n\r\n12:00 is no stamp, ab:cd:ef.");
    Make(300, "Last");
    const auto lines = Report();
    // Four lines stood there when the report began; its own first line follows the last block.
    EXPECT_EQ(lines, (Lines{LeakStart(70900), Leak(70000, 2, "Class::Large") + Shown(2),
                            Leak(500, 2, "Beside") + Shown(2), Leak(300, 4, "Last") + Shown(4),
                            Leak(100, 1, "Small") + Shown(1), Leak(0, 3, "Empty") + Shown(3), leakEnd}));
    EXPECT_TRUE(Shown(1).ends_with("  after the small block]")) << Shown(1);
    EXPECT_TRUE(Shown(2).ends_with("**after the large one]")) << Shown(2);
    EXPECT_TRUE(Shown(3).ends_with("  after the empty one]")) << Shown(3);
    EXPECT_TRUE(Shown(4).ends_with("**" + LeakStart(70900).substr(2) + "]")) << Shown(4);
}

TEST_F(LeakReport, ABlockWhoseTagWasOverwrittenIsPassedOverWithoutAStop)
{
    const Breakpoints breakpoints;
    Make(10);
    auto* const damaged = static_cast<char*>(Make(20));
    const std::string tag = Tag(damaged);
    std::memset(damaged - 4, 0, 4);
    EXPECT_TRUE(AreLines(Report(), {LeakStart(10), Leak(10, 0) + "...", leakEnd}));
    EXPECT_EQ(Breakpoints::Take(), 0);
    tag.copy(damaged - 4, 4);
}

TEST_F(LeakReport, LongLinesAreCutAt511Characters)
{
    Make(2);
    LDebugTrace((std::string(600, 'x') + "end").c_str());
    Make(1);
    const std::string head = Leak(1, 1) + " [";
    // The stamp and the thread take 20 characters of the shown line, a bracket closes it.
    const std::size_t room = 511 + 2 - head.size() - 20 - 1;
    LDebugTrace(std::string(room, 'y').c_str());
    const auto lines = Report();
    EXPECT_EQ(lines,
              (Lines{LeakStart(3), (Leak(2, 0) + Shown(0)).substr(0, 513), Leak(1, 1) + Shown(1), leakEnd}));
    EXPECT_EQ(lines[2].size(), 513u); // with the two characters that mark an error line here
}

TEST_F(LeakReport, FileThatWasRotatedAwayGivesNoTexts)
{
    LDebugTrace("line");
    LDebugTrace("line");
    Make(20);
    LDebugTrace("after the block");
    RemoveTraceFiles(); // as another process of the same name does when it starts
    Make(10);
    EXPECT_EQ(Report(), (Lines{LeakStart(30), Leak(20, 2), Leak(10, 3), leakEnd}));
}

TEST_F(LeakReport, WhateverStampedLinesTheFileHoldsAreCounted)
{
    for (const std::size_t size : {40u, 30u, 20u, 10u})
    {
        Make(size);
        LDebugTrace("own line");
    }
    // Line ends of every kind, what only looks like a stamp or not quite, a line beyond the reader's buffer,
    // a block of the file that ends inside CR LF.
    const std::string foreign =
        "\r\nno stamp\n12:34:56,7 no point\n\rab:cd:ef. the form alone decides\n10:00:00.000 one\r"
        "10:00:00.001" +
        std::string(9000, 'z') + "\n\n10:00:00.002 " + std::string(6900, 'q') + "\r\n";
    std::string content = foreign;
    content.insert(0, std::string(2 * 8192 + 1 - foreign.size(), '-'));
    WriteWholeFile(TraceFilePath(), content);
    Report();
    EXPECT_TRUE(Shown(0).ends_with("[ab:cd:ef. the form alone decides]")) << Shown(0);
    EXPECT_TRUE(Shown(2).starts_with(" [10:00:00.001zz"));
    const std::string texts = ReadWholeFile(TraceFilePath());
    for (const std::size_t index : {0u, 1u, 2u, 3u})
    {
        const std::string listed = (Leak(40 - 10 * index, index) + Shown(index)).substr(0, 513);
        EXPECT_NE(texts.find(listed.substr(2) + "\r\n"), std::string::npos) << listed;
    }
}

#ifndef _WIN32 // an open that fails for the reader alone: the writer asks for all that the reader asks for
TEST_F(LeakReport, FileThatCannotBeOpenedLeavesTheListWithoutTexts)
{
    constexpr unsigned opensForTheFirstLine = 1;
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, opensForTheFirstLine);
    LDebugHeapLeakReport();
    EXPECT_EQ(sndxposix::PendingFailures(), 1u) << "the file is not read without a leak";
    sndxposix::ResetFailures();
    Make(10);
    LDebugTrace("after the block");
    const TraceCapture trace;
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, opensForTheFirstLine);
    LDebugHeapLeakReport();
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    EXPECT_EQ(trace.Texts(), (Lines{LeakStart(10), Leak(10, 1), leakEnd}));
}
#endif
