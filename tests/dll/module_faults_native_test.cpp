// Calls of the system that fail: each that the module makes in its main job, one at a time, and several at
// random. What comes of each stands in failingcalls.txt.

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <regex>

#include "tests/dll/failingcalls.h"
#include "tests/dll/mainjob.h"
#include "tests/support/debuggeroutput.h"
#include "tests/support/traceoracle.h"
#include "tests/support/watchdog.h"

using namespace sndxtest;

extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*)());

namespace
{
// Of many calls that one row speaks of so many are tried: sanitizers slow the job down.
#if defined(__SANITIZE_THREAD__)
constexpr std::size_t oneOf = 20;
#elif defined(__SANITIZE_ADDRESS__)
constexpr std::size_t oneOf = 4;
#else
constexpr std::size_t oneOf = 1;
#endif

// Without what no two runs have in common.
Lines Normalised(Lines lines)
{
    static const std::regex varying("this=[0-9]+|(Run Heap Size = )[1-9].*|(Execution Date/Time: )[^]*");
    for (std::string& line : lines)
    {
        line = std::regex_replace(line, varying, "$1$2#");
        line.erase(line.find_last_not_of("\r\n") + 1); // of the system's texts
    }
    return lines;
}

// Those of the first that the second lacks.
Lines Without(const Lines& first, Lines second)
{
    Lines rest;
    for (const std::string& line : first)
    {
        const auto found = std::find(second.begin(), second.end(), line);
        if (found == second.end())
        {
            rest.push_back(line);
        }
        else
        {
            second.erase(found);
        }
    }
    return rest;
}

// What of the table's answers or lines a text is; the end when it is none of them.
Lines::const_iterator FindPromise(const Lines& promises, const std::string& text)
{
    return std::find_if(promises.begin(), promises.end(),
                        [&](std::string wanted)
                        {
                            wanted.erase(0, wanted.find_first_not_of("?~"));
                            const bool isBeginning = wanted.ends_with("...");
                            return isBeginning ? text.starts_with(wanted.substr(0, wanted.size() - 3))
                                               : text == wanted;
                        });
}

struct Outcome
{
    Lines steps;
    Lines lines;  // to the debugger
    Lines output; // the same with stamps
    Lines file;   // those of them that the file has
    std::size_t kept;
};

// A story is the main job under certain conditions; it lets those calls fail that others do not.
struct Story
{
    const char* name;
    int memoryMode;
    bool hasMainProgram; // which is started, and takes the requests

    bool Fails(const MadeCall& call, const std::vector<SourcePlace>& chain) const
    {
        const bool isOfTheRequest =
            std::any_of(chain.begin(), chain.end(),
                        [](const SourcePlace& place) { return place.function.starts_with("SendRequest"); });
        return memoryMode == 0 ? isOfTheRequest == hasMainProgram : call.call == "VirtualProtect";
    }
    friend std::ostream& operator<<(std::ostream& out, const Story& story) { return out << story.name; }
};

class ModuleFaults : public MainJob
{
  protected:
    ModuleFaults()
    {
        SetMachineString("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ReleaseId", "1809");
        SetMachineString("hardware\\description\\system\\CentralProcessor\\0", "ProcessorNameString", "P");
        SetStartOptions("--requests 4 --instances 3 --duration 60000 --buffer 1000");
        // For a trace file without a folder.
        std::filesystem::current_path(Items().Local(""));
        StackOfModule(""); // loads what it needs
        const auto tell = [] { std::cerr << "in the run with" << g_choice.what << std::endl; };
        if (__sanitizer_set_death_callback != nullptr)
        {
            __sanitizer_set_death_callback(tell);
            return;
        }
        for (const int number : {SIGSEGV, SIGBUS, SIGTRAP, SIGABRT})
        {
            std::signal(number,
                        [](int caught)
                        {
                            std::cerr << "in the run with" << g_choice.what << std::endl;
                            std::signal(caught, SIG_DFL);
                            std::raise(caught);
                        });
        }
    }

    using Calls = std::vector<std::pair<MadeCall, std::vector<SourcePlace>>>;

    // The calls that the story lets fail, from where they are made outwards.
    Calls Begin(const Story& story)
    {
        SetMemoryMode(story.memoryMode);
        leakCheckerIsOff = story.memoryMode > 1; // a page that stays inaccessible
        UseMainProgram(story.hasMainProgram);
        std::vector<MadeCall> made;
        RunJob({.noted = &made});
        const Places places = FindPlaces(SNDX_MODULE_PATH, AddressesOf(made));
        Calls calls;
        for (const MadeCall& call : made)
        {
            const std::vector<SourcePlace> chain = ChainOf(call, places);
            if (story.Fails(call, chain))
            {
                calls.emplace_back(call, chain);
            }
        }
        return calls;
    }

    void UseMainProgram(bool used)
    {
        SetSharedString("Settings", "InstallerPath", used ? MainProgramPath() : "");
        SetUserString("Settings", "InstallerPath", used ? MainProgramPath() : "");
    }

    Outcome RunJob(Choice choice)
    {
        RemoveTraceFiles();
        std::filesystem::remove(Items().Local("ready"));
        watchdog_.Restart();
        Outcome outcome;
        const DebuggerOutput output;
        g_choice = std::move(choice);
        const std::size_t before = sndxposix::LiveObjects();
        sndxposix::ChooseFailures(&Choose);
        {
            BeginStep("load");
            Module module;
            outcome.steps = Run(module, paths_);
            BeginStep("unload");
        }
        sndxposix::ChooseFailures(nullptr);
        outcome.kept = sndxposix::LiveObjects() - before;
        const std::string text = DebuggerOutput::Take();
        outcome.lines = Normalised(Texts(ParseTrace(text)));
        outcome.output = WholeLines(text);
        outcome.file = WholeLines(ReadWholeFile(TraceFilePath()));
        DismissMainProgram();
        return outcome;
    }

  private:
    bool HasGoneWrong() const override { return false; }

    static Lines WholeLines(const std::string& trace)
    {
        Lines lines;
        for (const TraceLine& line : ParseTrace(trace))
        {
            lines.push_back(line.stamp + line.text);
        }
        return lines;
    }

    // One that waits for requests that were not sent, or has not come to its pipe yet.
    void DismissMainProgram() const
    {
        if (Contains(g_choice.failed, "WaitForInputIdle"))
        {
            EXPECT_TRUE(Within(20000, [this] { return Exists("ready"); }))
                << "the main program does not come";
        }
        const auto isGone = []
        {
            const HANDLE pipe = OpenFile("\\\\.\\pipe\\SendoraService", GENERIC_READ | GENERIC_WRITE, 0);
            const DWORD error = GetLastError();
            return pipe == INVALID_HANDLE_VALUE ? error == ERROR_FILE_NOT_FOUND : CloseHandle(pipe) == FALSE;
        };
        EXPECT_TRUE(Within(20000, isGone)) << "the main program stays";
    }

    const std::vector<std::string> paths_ = Select(3);
    Watchdog watchdog_{30000,
                       [this] { return std::string(CurrentStep()) + " in the run with" + g_choice.what; }};
};

// What a row of the table says, and what of it was seen.
class Expected
{
  public:
    explicit Expected(FailingCall row) : row_(std::move(row)) {}
    const FailingCall& Row() const { return row_; }

    void Check(const Outcome& usual, const Outcome& outcome)
    {
        ++runs_;
        See(row_.answers, Without(outcome.steps, usual.steps));
        const std::set<std::string> lines = See(row_.lines, Without(outcome.lines, usual.lines));
        for (const std::string& wanted : row_.lines)
        {
            EXPECT_TRUE(wanted[0] == '?' || wanted[0] == '~' || lines.count(wanted) != 0) << "not " << wanted;
        }
        const std::size_t lost = outcome.output.size() - outcome.file.size();
        EXPECT_EQ(row_.lost == "all" && outcome.file.empty() ? "all" : std::to_string(lost), row_.lost);
    }
    // When every call has failed.
    void CheckThatAllWasSeen() const
    {
        for (const std::string& promise : row_.answers + row_.lines)
        {
            EXPECT_TRUE(runs_ == 0 || promise[0] == '~' || seen_.count(promise) != 0)
                << row_.text << ": never " << promise;
        }
    }
    std::size_t Runs() const { return runs_; }

  private:
    // The promises that the texts are.
    std::set<std::string> See(const Lines& promises, const Lines& texts)
    {
        std::set<std::string> kept;
        for (const std::string& text : texts)
        {
            const auto promise = FindPromise(promises, text);
            EXPECT_NE(promise, promises.end()) << text;
            kept.insert(promise == promises.end() ? text : *promise);
        }
        seen_.insert(kept.begin(), kept.end());
        return kept;
    }

    FailingCall row_;
    std::size_t runs_ = 0;
    std::set<std::string> seen_;
};

// What holds whatever has failed.
void CheckTheEnd(const Outcome& outcome)
{
    EXPECT_EQ(outcome.kept, 0u) << "is not given back";
    EXPECT_EQ(LastLines(outcome.lines), ClosingLines());
    EXPECT_EQ(Without(outcome.file, outcome.output), Lines()) << "not whole in the trace file";
}

std::vector<Expected> ReadTable()
{
    std::vector<Expected> table;
    for (FailingCall& row : ReadFailingCalls(SNDX_FAILING_CALLS))
    {
        table.emplace_back(std::move(row));
    }
    return table;
}

// The rows for a call, which differ in their errors. The compiler may have lost the place of a call that it
// moved; then the only row of that call counts.
std::vector<Expected*> RowsFor(std::vector<Expected>& table, const std::string& call,
                               const std::vector<SourcePlace>& chain)
{
    std::vector<Expected*> fitting;
    std::vector<Expected*> ofTheCall;
    for (Expected& each : table)
    {
        if (each.Row().Fits(call, chain) && (fitting.empty() || fitting.front()->Row().by == each.Row().by))
        {
            fitting.push_back(&each);
        }
        if (each.Row().call == call && !each.Row().errors.empty())
        {
            ofTheCall.push_back(&each);
        }
    }
    return fitting.empty() && ofTheCall.size() == 1 ? ofTheCall : fitting;
}

class ModuleFaultStory : public ModuleFaults, public testing::WithParamInterface<Story>
{
  protected:
    ModuleFaultStory() { ExpectCutOffTraces(); } // the failed call may be that of the last line
};
constexpr Story stories[] = {
    {"Requests", 0, true}, {"Rest", 0, false}, {"PagesBehind", 2, false}, {"PagesBefore", 3, false}};
} // namespace

TEST_P(ModuleFaultStory, EachCallFailsOnceAtEveryPlace)
{
    std::vector<Expected> table = ReadTable();
    std::size_t runs = 0;
    std::size_t skipped = 0;
    const Stopwatch stopwatch;
    const Calls calls = Begin(GetParam());
    const Outcome usual = RunJob({});
    for (const auto& [call, chain] : calls)
    {
        const std::vector<Expected*> rows = RowsFor(table, call.call, chain);
        EXPECT_FALSE(rows.empty()) << "no row for" << Shown(call.call, chain);
        for (Expected* const row : rows)
        {
            for (const std::uint32_t error : row->Row().errors)
            {
                if (row->Runs() >= 2 && ++skipped % oneOf != 0)
                {
                    continue;
                }
                const Outcome outcome =
                    RunJob({.failing = &call, .error = error, .what = Shown(call.call, chain)});
                EXPECT_EQ(g_choice.failed.size(), 1u) << "the call is not made any more";
                row->Check(usual, outcome);
                CheckTheEnd(outcome);
                ++runs;
                ASSERT_FALSE(HasFailure())
                    << row->Row().text << "\nin the run with" << Shown(call.call, chain);
            }
        }
    }
    for (const Expected& row : table)
    {
        oneOf > 1 ? void() : row.CheckThatAllWasSeen();
    }
    std::cout << runs << " runs in " << stopwatch.Milliseconds() << " ms\n";
}

INSTANTIATE_TEST_SUITE_P(Stories, ModuleFaultStory, testing::ValuesIn(stories),
                         [](const auto& story) { return story.param.name; });

TEST_F(ModuleFaults, EveryRowIsReached)
{
    std::vector<Expected> table = ReadTable();
    std::set<const Expected*> reached;
    for (const Story& story : stories)
    {
        for (const auto& [call, chain] : Begin(story))
        {
            for (const Expected* const row : RowsFor(table, call.call, chain))
            {
                reached.insert(row);
            }
        }
    }
    for (const Expected& row : table)
    {
        EXPECT_TRUE(row.Row().errors.empty() || reached.count(&row) != 0) << row.Row().text;
    }
}

// SNDX_SEED repeats the runs of a seed.
TEST_P(ModuleFaultStory, SeveralCallsFail)
{
    const char* const asked = std::getenv("SNDX_SEED");
    const std::uint64_t seed = asked == nullptr ? std::random_device()() : std::stoull(asked);
    std::cout << "seed " << seed << "\n";
    std::mt19937_64 random(seed);
    Begin(GetParam());
    const Outcome usual = RunJob({});
    // Answers and error lines that the table knows may come, and no others.
    Lines answers = usual.steps;
    Lines lines;
    std::map<std::string, std::vector<std::uint32_t>> errors;
    for (const FailingCall& row : ReadFailingCalls(SNDX_FAILING_CALLS))
    {
        answers = answers + row.answers;
        lines = lines + row.lines;
        // A text that cannot be converted or formatted counts as too long: more and more of it would be cut.
        if (!row.errors.empty() && !row.places.front().file.starts_with("gen/"))
        {
            errors[row.call].insert(errors[row.call].end(), row.errors.begin(), row.errors.end());
        }
    }
    for (std::size_t run = 0; run < 50 / std::min(oneOf, std::size_t{4}); ++run)
    {
        const Outcome outcome = RunJob({.random = &random, .errors = errors});
        CheckTheEnd(outcome);
        for (const std::string& answer : outcome.steps)
        {
            EXPECT_NE(FindPromise(answers, answer), answers.end()) << answer;
        }
        for (const std::string& line : outcome.lines)
        {
            EXPECT_TRUE(!line.starts_with("**") || FindPromise(lines, line) != lines.end()) << line;
        }
        ASSERT_FALSE(HasFailure()) << "seed " << seed << ", run " << run << " with" << g_choice.what;
    }
}
