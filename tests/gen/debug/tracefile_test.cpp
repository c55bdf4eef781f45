// The trace file: its place, its lines, its older generations, its start and its end. The last two happen
// once in a process, so they are tried in child processes, which share this one's trace file.

#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/tracefile.h"
#include "tests/gen/debug/clock.h"
#include "tests/gen/debug/debuggeroutput.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/child.h"
#include "tests/support/reports.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Holds a file as a writer that lets others read only.
class HeldFile
{
  public:
    explicit HeldFile(const std::string& path)
        : file_(CreateFileW(Wide(path).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr))
    {
        EXPECT_NE(file_, INVALID_HANDLE_VALUE) << path;
    }
    ~HeldFile() { CloseHandle(file_); }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

  private:
    HANDLE file_;
};

TEST(TraceFile, LinesAreStampedAppendedAndPassedToTheDebugger)
{
    const WCHAR* path = LDebugGetFilePath();
    EXPECT_EQ(Utf8(path), TraceFilePath());
    EXPECT_EQ(LDebugGetFilePath(), path) << "computed once";
    WriteWholeFile(TraceFilePath(), "earlier\r\n");
    const DebuggerOutput debugger;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    const DWORD before = GetTickCount();
    LDebugWriteLine("ordinary", false);
    LDebugWriteLine("error", true);
    const DWORD after = GetTickCount();
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2);

    const std::string debugged = DebuggerOutput::Take();
    EXPECT_EQ(ReadWholeFile(TraceFilePath()), "earlier\r\n" + debugged);
    const std::vector<TraceLine> parsed = ParseTrace(debugged);
    ASSERT_EQ(parsed.size(), 2u);
    const std::string thread = std::to_string(10000 + GetCurrentThreadId() % 10000).substr(1);
    EXPECT_EQ(debugged, parsed[0].stamp + "  " + thread + "  ordinary\r\n" + parsed[1].stamp + "**" + thread +
                            "**error\r\n");
    // Before the start of the trace the clock counts from the system's start.
    EXPECT_LE(TimeBetween(before % millisecondsOfDay, TimeOfStamp(parsed[0].stamp)), after - before);
}

TEST(TraceFile, ALineThatCannotBeWrittenIsCountedAndReachesTheDebugger)
{
    const TraceCapture trace;
    const DebuggerOutput debugger;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    {
        const HeldFile held(TraceFilePath());
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

// Writes lines "name 0", "name 1" …
void WriteLines(const std::string& name, int count)
{
    for (int i = 0; i < count; ++i)
    {
        LDebugTrace((name + " " + std::to_string(i)).c_str());
    }
}

SNDX_CHILD(WriteLines)
{
    Announce("started");
    WriteLines(arguments.at(0), std::stoi(arguments.at(1)));
    return 0;
}

TEST(TraceFile, LinesOfThreadsAndProcessesDoNotMix)
{
    constexpr int count = 60;
    LDebugGetFilePath(); // lines that come while it is computed are not written
    ClearPoints();
    const TraceCapture trace;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    ChildProcess child("WriteLines", {"child", std::to_string(count)});
    ASSERT_TRUE(WaitFor("started"));
    std::thread second(WriteLines, "second", count);
    WriteLines("first", count);
    second.join();
    ASSERT_EQ(child.Wait(), 0);
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2 * count);
    std::map<std::string, Lines> written;
    std::map<std::string, std::string> columns;
    for (const TraceLine& line : trace.Lines())
    {
        const std::string writer = line.text.substr(0, line.text.find(' '));
        written[writer].push_back(line.text);
        columns[writer] = line.thread;
    }
    EXPECT_NE(columns["first"], columns["second"]);
    for (const std::string name : {"child", "first", "second"})
    {
        Lines expected;
        for (int i = 0; i < count; ++i)
        {
            expected.push_back(name + " " + std::to_string(i));
        }
        EXPECT_EQ(written[name], expected) << "in its writer's order";
    }
}

class RotationTest : public ::testing::Test
{
  protected:
    RotationTest()
    {
        WCHAR temporary[LSTR];
        GetTempPathW(LSTR, temporary);
        folder_ = Utf8(temporary) + "sndxrotation";
        CreateDirectoryW(Wide(folder_).c_str(), nullptr);
        Clear();
    }
    ~RotationTest() override
    {
        Clear();
        EXPECT_TRUE(RemoveDirectoryW(Wide(folder_).c_str())) << "a file too many, or a name of its own";
    }

    // Generation 0 is the current file. Each is written as its own number.
    std::string Path(int generation) const
    {
        return folder_ + "\\my.trace" + (generation == 0 ? "" : "." + std::to_string(generation)) + ".txt";
    }
    void Write(int first, int last) const
    {
        for (int i = first; i <= last; ++i)
        {
            WriteWholeFile(Path(i), std::to_string(i));
        }
    }
    // What each generation from 0 to 10 holds after a rotation: the number it was written as, "-" for no
    // file.
    std::string Rotated() const
    {
        const DWORD before = GetTickCount();
        LDebugRotateFiles(Wide(Path(0)).c_str());
        EXPECT_LT(GetTickCount() - before, 1000u) << "each step is tried once";
        std::string result;
        for (int i = 0; i <= 10; ++i)
        {
            const bool exists = GetFileAttributesW(Wide(Path(i)).c_str()) != INVALID_FILE_ATTRIBUTES;
            result += exists ? ReadWholeFile(Path(i)) : "-";
        }
        return result;
    }

  private:
    void Clear() const
    {
        for (int i = 0; i <= 10; ++i)
        {
            DeleteFileW(Wide(Path(i)).c_str());
        }
    }
    std::string folder_;
};

TEST_F(RotationTest, MovesEveryGenerationOnAndKeepsNine)
{
    LDebugTrace("counted");
    EXPECT_GT(LDebugGetTraceLineNumber(), 0u);
    EXPECT_EQ(Rotated(), "-----------");
    EXPECT_EQ(LDebugGetTraceLineNumber(), 0u);
    LDebugTrace("counted");
    EXPECT_EQ(LDebugGetTraceLineNumber(), 1u);
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
        const HeldFile file(Path(held));
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
    LDebugTraceErrorF("after %d", 1);
    LDebugAssertFailed("after", "x", "y", 1);
    return endTraced && DebuggerOutput::Take().empty() && LDebugGetTraceLineNumber() == lines + 3 ? 0 : 1;
}

std::uint32_t LocalTimeOfDay()
{
    const std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    return static_cast<std::uint32_t>((local->tm_hour * 60 + local->tm_min) * 60 + local->tm_sec) * 1000;
}

TEST(TraceLife, StartsWithTheHeaderInAFreshFileAndEndsForGood)
{
    RemoveTraceFiles();
    LDebugTrace("mine");
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    const std::uint32_t before = LocalTimeOfDay();
    ASSERT_EQ(ChildProcess("TraceLife", {}).Wait(), 0);
    const std::uint32_t after = LocalTimeOfDay();

    const std::vector<TraceLine> parsed = ParseTrace(ReadWholeFile(TraceFilePath()));
    const Lines texts = Texts(parsed);
    ASSERT_GT(texts.size(), 10u);
    EXPECT_EQ(texts.front(), "DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535");
    EXPECT_THAT(
        Lines(texts.end() - 4, texts.end()),
        ElementsAre("running", " --- No Memory Leak Detected ---", "Execution terminated gracefully.", rule));
    EXPECT_TRUE(texts[texts.size() - 5].starts_with("Run Heap Size = ")) << "the header ends right before";
    // The clock shows local time, to the second.
    EXPECT_LE(TimeBetween(before, TimeOfStamp(parsed.front().stamp)), TimeBetween(before, after) + 1000);

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
    LDebugTrace("unwritten");
    const bool first = Texts(ParseTrace(DebuggerOutput::Take())) == Lines{"unwritten", "unwritten"};
    const bool empty = LDebugGetFilePath()[0] == 0 && LDebugGetTraceLineNumber() == 2;
    {
        const LDebugTraceLifetime lifetime;
    }
    const Lines life = Texts(ParseTrace(DebuggerOutput::Take()));
    return first && empty && life.size() > 10 && life.back() == rule ? 0 : 1;
}

TEST(TraceLife, WithoutMemoryForThePathOnlyTheDebuggerIsTold)
{
    EXPECT_THAT(Traced([] { EXPECT_EQ(ChildProcess("NoPath", {}).Wait(), 0); }), IsEmpty());
}
} // namespace
