// The trace file: its place, its lines, its older generations, its start and its end. The last two happen
// once in a process, so they are tried in child processes, which share this one's trace file.

#include <ctime>
#include <map>
#include <string>
#include <thread>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/tracefile.h"
#include "tests/gen/debug/debuggeroutput.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/child.h"
#include "tests/support/reports.h"
#include "win32/file.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;

TEST(TraceFile, LinesAreStampedAppendedAndPassedToTheDebugger)
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

TEST(TraceFile, ALineThatCannotBeWrittenIsCountedAndReachesTheDebugger)
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
    EXPECT_THAT(trace.Texts(), ElementsAre("next"));
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2);
    EXPECT_THAT(Texts(ParseTrace(DebuggerOutput::Take())), ElementsAre("lost", "next"));
}

constexpr int lineCount = 60;

void WriteLines(const std::string& writer)
{
    for (int i = 0; i < lineCount; ++i)
    {
        LDebugTrace((writer + std::to_string(i)).c_str());
    }
}

SNDX_CHILD(WriteLines)
{
    Announce("started");
    WriteLines("C");
    return 0;
}

TEST(TraceFile, LinesOfThreadsAndProcessesDoNotMix)
{
    LDebugGetFilePath(); // lines that come while it is computed are not written
    ClearPoints();
    const TraceCapture trace;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    ChildProcess child("WriteLines", {});
    ASSERT_TRUE(WaitFor("started"));
    std::thread second(WriteLines, "B");
    WriteLines("A");
    second.join();
    ASSERT_EQ(child.Wait(), 0);
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2 * lineCount);
    std::map<char, int> written;
    std::map<char, std::string> columns;
    for (const TraceLine& line : trace.Lines())
    {
        const char writer = line.text[0];
        if (writer >= 'A' && writer <= 'C') // not the child's last line
        {
            EXPECT_EQ(line.text, writer + std::to_string(written[writer]++)) << "in its writer's order";
            columns[writer] = line.thread;
        }
    }
    EXPECT_EQ(written, (std::map<char, int>{{'A', lineCount}, {'B', lineCount}, {'C', lineCount}}));
    EXPECT_NE(columns['A'], columns['B']);
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
    LDebugTrace("counted");
    EXPECT_GT(LDebugGetTraceLineNumber(), 0u);
    EXPECT_EQ(Rotated(), "-----------");
    EXPECT_EQ(LDebugGetTraceLineNumber(), 0u);
    LDebugTrace("counted");
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

constexpr char rule[] = "--------------------------------------------------------------------";

SNDX_CHILD(TraceLife)
{
    const DebuggerOutput debugger;
    auto* lifetime = new LDebugTraceLifetime;
    LDebugTrace("running");
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    delete lifetime;
    const bool endTraced = DebuggerOutput::Take().find(rule) != std::string::npos;
    LDebugWriteLineW(TEXT("after"), true);
    LDebugAssertFailed("after", "x", "y", 1);
    return endTraced && DebuggerOutput::Take().empty() && LDebugGetTraceLineNumber() == lines + 3 ? 0 : 1;
}

TEST(TraceLife, StartsWithTheHeaderInAFreshFileAndEndsForGood)
{
    RemoveTraceFiles();
    LDebugTrace("mine");
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    const std::time_t before = std::time(nullptr);
    ASSERT_EQ(ChildProcess("TraceLife", {}).Wait(), 0);
    const std::time_t after = std::time(nullptr);

    const std::vector<TraceLine> parsed = ParseTrace(ReadWholeFile(TraceFilePath()));
    const Lines texts = Texts(parsed);
    ASSERT_GT(texts.size(), 10u);
    EXPECT_EQ(texts.front(), "DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535");
    EXPECT_THAT(
        Lines(texts.end() - 4, texts.end()),
        ElementsAre("running", " --- No Memory Leak Detected ---", "Execution terminated gracefully.", rule));
    EXPECT_TRUE(texts[texts.size() - 5].starts_with("Run Heap Size = ")) << "the header ends right before";
    // The clock shows local time, to the second.
    Lines times;
    for (std::time_t time = before; time <= after; ++time)
    {
        char text[9];
        std::strftime(text, sizeof(text), "%H:%M:%S", std::localtime(&time));
        times.push_back(text);
    }
    EXPECT_THAT(times, ::testing::Contains(parsed.front().stamp.substr(0, 8)));

    // The file that was there is the newest generation now; this process writes on in the new file.
    const std::string older = TraceFilePath().substr(0, TraceFilePath().size() - 4) + ".1.txt";
    EXPECT_THAT(Texts(ParseTrace(ReadWholeFile(older))), ElementsAre("mine"));
    EXPECT_THAT(Traced([] { LDebugTrace("more"); }), ElementsAre("more"));
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 1) << "the count is no longer that of the file";
}

SNDX_CHILD(NoPath)
{
    const DebuggerOutput debugger;
    FailAllocation(0);
    LDebugTrace("unwritten");
    const bool first = Texts(ParseTrace(DebuggerOutput::Take())) == Lines{"unwritten"};
    const bool empty = LDebugGetFilePath()[0] == 0 && LDebugGetTraceLineNumber() == 1;
    delete new LDebugTraceLifetime;
    const Lines life = Texts(ParseTrace(DebuggerOutput::Take()));
    return first && empty && life.size() > 10 && life.back() == rule ? 0 : 1;
}

TEST(TraceLife, WithoutMemoryForThePathOnlyTheDebuggerIsTold)
{
    EXPECT_EQ(Traced([] { EXPECT_EQ(ChildProcess("NoPath", {}).Wait(), 0); }), Lines());
}
} // namespace
