// The trace file: its place, its lines and its older generations. Its start and its end, and several writers,
// are tested with the module.

#include <thread>

#include "gen/debug.h"
#include "diag/lifetime.h"
#include "diag/tracefile.h"
#include "diag/traceturn.h"
#include "tests/support/child.h"
#include "tests/support/debuggeroutput.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "tests/support/traceoracle.h"
#include "win32/file.h"

namespace
{
using namespace sndxtest;
using TraceFile = ForeignLinesTest;

TEST_F(TraceFile, LinesAreStampedAppendedAndPassedToTheDebugger)
{
    const WCHAR* path = LDebugGetFilePath();
    EXPECT_EQ(Utf8(path), TraceFilePath());
    EXPECT_EQ(LDebugGetFilePath(), path) << "computed once";
    WriteWholeFile(TraceFilePath(), "earlier\r\n");
    const DebuggerOutput debugger;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    LDebugWriteLine("ordinary", false);
    LDebugWriteLine("error", true);
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2);

    const std::string debugged = DebuggerOutput::Take();
    EXPECT_EQ(ReadWholeFile(TraceFilePath()), "earlier\r\n" + debugged);
    const std::vector<TraceLine> parsed = ParseTrace(debugged);
    ASSERT_EQ(parsed.size(), 2u);
    const std::string thread = std::to_string(10000 + GetCurrentThreadId() % 10000).substr(1);
    EXPECT_EQ(debugged, parsed[0].stamp + "  " + thread + "  ordinary\r\n" + parsed[1].stamp + "**" + thread +
                            "**error\r\n");
}

TEST_F(TraceFile, ALineThatCannotBeWrittenIsCountedAndReachesTheDebugger)
{
    const TraceCapture trace;
    const DebuggerOutput debugger;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    {
        const LWriteFileRef held(LDebugGetFilePath(), 0);
        const DWORD before = GetTickCount();
        LDebugTrace("lost");
        // Six waits, from 24 ms to 768 ms.
        const DWORD waited = GetTickCount() - before;
        EXPECT_GE(waited, 1512u - 16);
        EXPECT_LT(waited, 3000u);
    }
    LDebugTrace("next");
    EXPECT_EQ(trace.Texts(), Lines{"next"});
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2);
    EXPECT_EQ(Texts(ParseTrace(DebuggerOutput::Take())), (Lines{"lost", "next"}));
}

TEST_F(TraceFile, AThreadThatDiesInItsLineHoldsUpTheOthersOnce)
{
    const auto trace = []
    {
        const Stopwatch stopwatch;
        LDebugTrace("x");
        return stopwatch.Milliseconds();
    };
    alignas(LTraceTurn) static unsigned char memory[sizeof(LTraceTurn)];
    std::thread([] { new (memory) LTraceTurn; }).join(); // never given back
    const long long first = trace();
    EXPECT_GE(first, AtLeast(250)) << "it is let finish";
    EXPECT_LT(first, 1500);
    const auto soon = [&trace]
    {
        for (int i = 0; i < 5; ++i) // the machine may be busy
        {
            if (trace() < AtLeast(250))
            {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(soon());
    const LTraceTurn own; // a line below a line of the same thread
    EXPECT_TRUE(soon());
}

class RotationTest : public ::testing::Test
{
  protected:
    RotationTest() { Clear(); }
    ~RotationTest() override { Clear(); }

    // Generation 0 is the current file. Each is written as its own number.
    static std::string Path(int generation)
    {
        return TraceFilePath("my.trace" + (generation == 0 ? "" : "." + std::to_string(generation)));
    }
    static void Write(int first, int last)
    {
        for (int i = first; i <= last; ++i)
        {
            WriteWholeFile(Path(i), std::to_string(i));
        }
    }
    // What each generation from 0 to 10 holds after a rotation: the number it was written as, "-" for no
    // file.
    static std::string Rotated()
    {
        const DWORD before = GetTickCount();
        LDebugRotateFiles(Wide(Path(0)).c_str());
        EXPECT_LT(GetTickCount() - before, 1000u) << "each step is tried once";
        std::string result;
        for (int i = 0; i <= 10; ++i)
        {
            const std::string content = ReadWholeFile(Path(i));
            result += content.empty() ? "-" : content;
        }
        return result;
    }

  private:
    static void Clear()
    {
        RemoveTraceFiles("my.trace");
        DeleteFileW(Wide(Path(10)).c_str());
    }
};

TEST_F(RotationTest, MovesEveryGenerationOnAndKeepsNine)
{
    LDebugTrace("CheckPaths");
    EXPECT_GT(LDebugGetTraceLineNumber(), 0u);
    EXPECT_EQ(Rotated(), "-----------");
    EXPECT_EQ(LDebugGetTraceLineNumber(), 0u);
    LDebugTrace("CheckPaths");
    LDebugRotateFiles(TEXT(""));
    EXPECT_EQ(LDebugGetTraceLineNumber(), 0u);
    Write(0, 9);
    EXPECT_EQ(Rotated(), "-012345678-");
    EXPECT_EQ(Rotated(), "--01234567-");
    Write(0, 0);
    EXPECT_EQ(Rotated(), "-0-0123456-");
}

TEST_F(RotationTest, AHeldFileStaysAndIsNotReplaced)
{
    for (const auto& [held, rotated] : {std::pair{3, "-123-45678-"}, {9, "-123456789-"}, {0, "0-12345678-"}})
    {
        Write(0, 9);
        const LWriteFileRef file(Wide(Path(held)).c_str(), 0);
        EXPECT_EQ(Rotated(), rotated) << held;
    }
}

#ifndef _WIN32 // the native layer's clock and thread identifiers can be set
using TraceClock = ForeignLinesTest;

// Of the lines "x".
Lines Stamps(const std::vector<TraceLine>& lines)
{
    Lines stamps;
    for (const TraceLine& line : lines)
    {
        if (line.text == "x")
        {
            stamps.push_back(line.stamp);
        }
    }
    return stamps;
}

TEST_F(TraceClock, MillisecondsOfTheDayAndTheThreadModulo10000)
{
    const TraceCapture trace;
    sndxposix::SetCurrentThreadId(~0u);
    for (const std::uint32_t ticks : {0u, 59'999u, 3'599'999u, 3'600'000u, 86'399'999u, 86'400'000u, ~0u})
    {
        sndxposix::SetTickCount(ticks);
        LDebugTrace("x");
    }
    EXPECT_EQ(Stamps(trace.Lines()), (Lines{"00:00:00.000", "00:00:59.999", "00:59:59.999", "01:00:00.000",
                                            "23:59:59.999", "00:00:00.000", "17:02:47.295"}));
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

TEST_F(TraceClock, RunsFromLocalTimeAtTheStartAndWrapsAtMidnight)
{
    // The tick count itself wraps, too; and at less than a day the base lies before zero.
    for (const char* ticks : {"100000000", "5000", "4294960000"})
    {
        RemoveTraceFiles();
        ASSERT_EQ(ChildProcess("Midnight", {ticks}).Wait(), 0);
        const Lines stamps = Stamps(ParseTrace(ReadWholeFile(TraceFilePath())));
        // Real time may have reached the next second between the setting and the start.
        EXPECT_TRUE(stamps == (Lines{"23:59:50.000", "23:59:58.999", "00:00:00.000", "00:00:00.000"}) ||
                    stamps == (Lines{"23:59:51.000", "23:59:59.999", "00:00:01.000", "00:00:01.000"}))
            << ticks << testing::PrintToString(stamps);
    }
}
#endif
} // namespace
