// The trace file: its place, its lines, its older generations, its start and its end. The start and the end
// of a trace happen once in a process, so they are tried in child processes, which share this one's trace
// file.

#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/tracefile.h"
#include "tests/gen/debug/clock.h"
#include "tests/gen/debug/debuggeroutput.h"
#include "tests/gen/reports.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

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

// --- Lines -------------------------------------------------------------------------------------------------

TEST(TraceFile, LiesInTheApplicationDataFolderUnderTheProgramsName)
{
    const WCHAR* path = LDebugGetFilePath();
    EXPECT_EQ(Utf8(path), TraceFilePath());
    EXPECT_EQ(LDebugGetFilePath(), path) << "computed once";
}

TEST(TraceFile, LinesAreStampedAppendedAndPassedToTheDebugger)
{
    WriteWholeFile(TraceFilePath(), "earlier\r\n");
    const DebuggerOutput debugger;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    const DWORD before = GetTickCount();
    LDebugWriteLine("ordinary", false);
    LDebugWriteLine("error", true);
    const DWORD after = GetTickCount();
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2);

    std::string content = ReadWholeFile(TraceFilePath());
    ASSERT_TRUE(content.starts_with("earlier\r\n"));
    content.erase(0, 9);
    EXPECT_EQ(DebuggerOutput::Take(), content);
    const std::vector<TraceLine> parsed = ParseTrace(content);
    ASSERT_EQ(parsed.size(), 2u);
    std::string thread = std::to_string(GetCurrentThreadId() % 10000);
    thread.insert(0, 4 - thread.size(), '0');
    EXPECT_EQ(content, parsed[0].stamp + "  " + thread + "  ordinary\r\n" + parsed[1].stamp + "**" + thread +
                           "**error\r\n");
    // Before the start of the trace the clock counts from the system's start.
    EXPECT_LE(TimeBetween(before % millisecondsOfDay, TimeOfStamp(parsed[0].stamp)), after - before);
}

TEST(TraceFile, ALineWaitsForAnotherWriter)
{
    const TraceCapture trace;
    auto held = std::make_unique<HeldFile>(TraceFilePath());
    std::thread release(
        [&held]
        {
            Sleep(100);
            held.reset();
        });
    LDebugTrace("patient");
    release.join();
    EXPECT_THAT(trace.Texts(), ElementsAre("patient"));
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
    const Lines debugged = Texts(ParseTrace(DebuggerOutput::Take()));
    EXPECT_THAT(debugged, ElementsAre("lost", "next"));
}

// Writes lines "name 0", "name 1" …
void WriteLines(const std::string& name, int count)
{
    for (int i = 0; i < count; ++i)
    {
        LDebugTrace((name + " " + std::to_string(i)).c_str());
    }
}

// Every line of the named writers is there, whole and in its writer's order.
void ExpectLinesOf(const Lines& texts, const std::vector<std::string>& names, int count)
{
    for (const std::string& name : names)
    {
        int next = 0;
        for (const std::string& text : texts)
        {
            if (text.starts_with(name + " "))
            {
                EXPECT_EQ(text, name + " " + std::to_string(next));
                ++next;
            }
        }
        EXPECT_EQ(next, count) << name;
    }
}

TEST(TraceFile, LinesOfTwoThreadsDoNotMix)
{
    constexpr int count = 60;
    LDebugGetFilePath(); // lines that come while it is computed are not written
    const TraceCapture trace;
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    std::thread first(WriteLines, "first", count);
    std::thread second(WriteLines, "second", count);
    first.join();
    second.join();
    ExpectLinesOf(trace.Texts(), {"first", "second"}, count);
    EXPECT_EQ(LDebugGetTraceLineNumber(), lines + 2 * count);
    std::string columns[2];
    for (const TraceLine& line : trace.Lines())
    {
        columns[line.text.starts_with("second")] = line.thread;
    }
    EXPECT_NE(columns[0], columns[1]);
}

SNDX_CHILD(WriteLines)
{
    Announce("started");
    WriteLines(arguments.at(0), std::stoi(arguments.at(1)));
    return 0;
}

TEST(TraceFile, LinesOfTwoProcessesDoNotMix)
{
    constexpr int count = 60;
    ClearPoints();
    const TraceCapture trace;
    ChildProcess child("WriteLines", {"child", std::to_string(count)});
    ASSERT_TRUE(WaitFor("started"));
    WriteLines("parent", count);
    ASSERT_EQ(child.Wait(), 0);
    ExpectLinesOf(trace.Texts(), {"child", "parent"}, count);
}

TEST(TraceFile, TheProgramsNameLosesItsExtensionOnly)
{
#ifdef _WIN32
    WCHAR own[1024];
    GetModuleFileNameW(nullptr, own, 1024);
    const std::filesystem::path program = Utf8(own);
#else
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
#endif
    for (const auto& [name, title] : std::vector<std::pair<std::string, std::string>>{
             {"sndx.two.exe", "sndx.two"}, {".sndxhidden", ".sndxhidden"}})
    {
        RemoveTraceFiles(title);
        const std::filesystem::path copy = program.parent_path() / name;
        std::filesystem::remove(copy);
        std::filesystem::copy_file(program, copy);
        EXPECT_EQ(ChildProcess::Program(copy.string(), {"--child", "WriteLines", "x", "1"}).Wait(), 0);
        const Lines texts = Texts(ParseTrace(ReadWholeFile(TraceFilePath(title))));
        EXPECT_THAT(texts, ::testing::Contains("x 0")) << title;
        std::filesystem::remove(copy);
        RemoveTraceFiles(title);
    }
}

// --- Older generations -------------------------------------------------------------------------------------

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

    // Generation 0 is the current file.
    std::string Path(int generation) const
    {
        return folder_ + "\\my.trace" + (generation == 0 ? "" : "." + std::to_string(generation)) + ".txt";
    }
    void Write(int generation) { WriteWholeFile(Path(generation), std::to_string(generation)); }
    void Rotate() { LDebugRotateFiles(Wide(Path(0)).c_str()); }

    // What each generation from 0 to 10 holds: the number it was written as, "-" for no file.
    std::string Generations() const
    {
        std::string result;
        for (int i = 0; i <= 10; ++i)
        {
            const bool exists = GetFileAttributesW(Wide(Path(i)).c_str()) != INVALID_FILE_ATTRIBUTES;
            result += exists ? ReadWholeFile(Path(i)) : "-";
        }
        return result;
    }

  private:
    void Clear()
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
    for (int i = 0; i <= 9; ++i)
    {
        Write(i);
    }
    Rotate();
    EXPECT_EQ(Generations(), "-012345678-");
    Rotate();
    EXPECT_EQ(Generations(), "--01234567-");
    Write(0);
    Rotate();
    EXPECT_EQ(Generations(), "-0-0123456-");
}

TEST_F(RotationTest, NothingToRotateLeavesNothing)
{
    LDebugTrace("counted");
    EXPECT_GT(LDebugGetTraceLineNumber(), 0u);
    Rotate();
    EXPECT_EQ(Generations(), "-----------");
    EXPECT_EQ(LDebugGetTraceLineNumber(), 0u);
    LDebugTrace("counted");
    EXPECT_EQ(LDebugGetTraceLineNumber(), 1u);
    LDebugRotateFiles(TEXT(""));
    EXPECT_EQ(LDebugGetTraceLineNumber(), 0u);
}

TEST_F(RotationTest, AHeldFileStaysAndIsNotReplaced)
{
    const auto rotateHolding = [this](int held)
    {
        for (int i = 0; i <= 9; ++i)
        {
            Write(i);
        }
        const HeldFile file(Path(held));
        const DWORD before = GetTickCount();
        Rotate();
        EXPECT_LT(GetTickCount() - before, 1000u) << "each step is tried once";
        return Generations();
    };
    EXPECT_EQ(rotateHolding(3), "-123-45678-");
    EXPECT_EQ(rotateHolding(9), "-123456789-");
    EXPECT_EQ(rotateHolding(0), "0-12345678-");
}

// --- Start and end -----------------------------------------------------------------------------------------

constexpr char rule[] = "--------------------------------------------------------------------";

SNDX_CHILD(TraceLife)
{
    const DebuggerOutput debugger;
    auto* lifetime = new LDebugTraceLifetime;
    LDebugTrace("running");
    const std::uint32_t lines = LDebugGetTraceLineNumber();
    delete lifetime;
    const bool endTraced = DebuggerOutput::Take().find(rule) != std::string::npos;
    const std::uint32_t ended = LDebugGetTraceLineNumber();
    LDebugWriteLine("after", false);
    LDebugWriteLineW(TEXT("after"), true);
    LDebugTraceErrorF("after %d", 1);
    LDebugTraceValue("after", 1, false);
    LDebugAssertFailed("after", "x", "y", 1);
    const bool quiet = DebuggerOutput::Take().empty() && LDebugGetTraceLineNumber() == ended;
    return endTraced && quiet && ended == lines + 3 ? 0 : 1;
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
    const TraceCapture trace;
    LDebugTrace("more");
    EXPECT_THAT(trace.Texts(), ElementsAre("more"));
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
    const TraceCapture trace;
    EXPECT_EQ(ChildProcess("NoPath", {}).Wait(), 0);
    EXPECT_THAT(trace.Texts(), IsEmpty());
}
} // namespace
