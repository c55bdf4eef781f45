// Memory of the real module: that a whole job works and leaves nothing behind in each memory mode, also when
// any one request for memory fails, and what the leak report says when a host forgets an object.

#include <map>
#include <regex>

#include "tests/dll/mainjob.h"
#include "tests/dll/moduleheap.h"
#include "tests/support/debuggeroutput.h"
#include "tests/support/leakreport.h"

using namespace sndxtest;

namespace
{
// Requests of the module for memory fail, or none.
class MemoryJob : public MainJob
{
    bool HasGoneWrong() const override { return ModuleHeap::HasFailed(); }
};

constexpr std::size_t many = 300;

class ModuleMemory : public MemoryJob, public testing::WithParamInterface<int>
{
};

// Memory mode, selected paths; a part of parts that share the requests among them.
class ModuleFailure
    : public MemoryJob,
      public testing::WithParamInterface<std::tuple<int, std::size_t, std::size_t, std::size_t>>
{
};

// The first request under Windows is not the product's: the table of what the runtime calls at the end.
constexpr char startOfTheRuntime[] = "calloc of 256 bytes";
#ifdef _WIN32
constexpr std::size_t firstOfTheProduct = 2;
#else
constexpr std::size_t firstOfTheProduct = 1;
#endif

// What the trace says of the failed request, in whose step: each line must be true. Of an object only its own
// block is missed by its creator, not the block that notes it.
Lines ReportsOf(const std::string& failed, const std::string& step, bool isOfTheMenu, bool isOfTheObject)
{
    if (failed == startOfTheRuntime)
    {
        return {};
    }
    if (failed.starts_with("HeapAlloc"))
    {
        return {
            "**LSecurityAttributesAllAccess::LSecurityAttributesAllAccess HeapAlloc failed with error ..."};
    }
    const std::string taker = failed.starts_with("_aligned_malloc") ? "_aligned_malloc" : "malloc";
    Lines lines = {"LMemAllocation::Record " + taker + " returned nullptr"};
    if (step == Step("Initialize", E_OUTOFMEMORY))
    {
        const bool isArray = failed == "malloc of " + std::to_string(2048 * 8 + 60) + " bytes";
        lines.push_back("**LStringListTemplate<wchar_t>::Add Unable to " +
                        std::string(isArray ? "resize the list" : "create new string") + " - new failed");
    }
    if (isOfTheObject)
    {
        const bool isFactory = step.starts_with("DllGetClassObject");
        const std::string name = isFactory ? isOfTheMenu ? "LSendoraContextMenuClassFactory" : "LClassFactory"
                                 : isOfTheMenu ? "LSendoraContextMenu"
                                               : "LShellExt";
        lines.push_back("**LComObject<class " + name +
                        ">::LComObject ASSERTION FAILED pNewImplementation != NULL:...");
    }
    return lines;
}
} // namespace

TEST_P(ModuleMemory, WholeJobLeavesNothingBehind)
{
    const int mode = GetParam();
    SetMemoryMode(mode);
    const auto paths = Select(many);
    SetStartOptions("--requests 3 --duration 60000");
    const ModuleHeap heap(ModuleFileName());
    Module module;
    const std::size_t guarded = ModuleHeap::Live("_aligned_malloc"); // the trace's path, the accounts
    EXPECT_EQ(Run(module, paths), allSteps);
    module.Free();
    // Three times 300 paths: three messages with a header, a count and an option word.
    constexpr std::size_t sent = 3 * (3 * (16 + 4 + 520) + many * 520);
    EXPECT_EQ(Received(sent).size(), sent);

    Lines lines = WholeTrace();
    EXPECT_GT(lines.size(), many);
    EXPECT_EQ(LastLines(lines), ClosingLines());
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("**"); });
    EXPECT_EQ(lines, Lines()) << "error lines";
    EXPECT_EQ(guarded > 0, mode > 1);
    if (mode == 5)
    {
        // Every record and page stays; a chunk has ten pages. They cannot even be given back.
        EXPECT_GT(ModuleHeap::Live("malloc"), many);
        EXPECT_GT(ModuleHeap::Live("_aligned_malloc"), many / 10);
        return;
    }
    EXPECT_EQ(ModuleHeap::Live(), ModuleHeap::Live("calloc")) << "only the table of blocks stays";
    ModuleHeap::ReleaseLive();
}

INSTANTIATE_TEST_SUITE_P(Modes, ModuleMemory, testing::Values(0, 1, 2, 3, 5));

// One request for memory fails: the first, then the second, and so on until the job runs through. Whichever
// it is, the calls answer, nothing is lost and nothing is released twice.
TEST_P(ModuleFailure, OfAnyRequestForMemoryIsAnsweredAndLosesNothing)
{
    const auto [mode, selected, part, parts] = GetParam();
    SetMemoryMode(mode);
    const auto paths = Select(selected);
    const ChildProcess server = Serve({"--duration", "60000"});
    bool ranThrough = false;
    int madeAllTheSame = 0;
    for (std::size_t failing = 1 + part; !ranThrough; failing += parts)
    {
        const DebuggerOutput output; // the trace file may be what there is no memory for
        const ModuleHeap heap(ModuleFileName(), failing);
        Module module;
        const bool failedAtLoad = ModuleHeap::HasFailed();
        const Lines& steps = Run(module, paths);
        module.Free();
        ranThrough = !ModuleHeap::HasFailed();
        const std::string affected = ranThrough ? "" : steps.at(Undisturbed());
        const bool made = !failedAtLoad && affected == Step("CreateInstance", S_OK);
        madeAllTheSame += made ? 1 : 0;
        if (ranThrough || made)
        {
            EXPECT_EQ(steps, allSteps);
        }
        else // an account may be missing
        {
            EXPECT_TRUE(failedAtLoad || affected.ends_with(Step("", E_OUTOFMEMORY)) ||
                        affected == Step("QueryContextMenu", static_cast<HRESULT>(0x80000000u)) ||
                        affected == Step("IsMemberOf", S_OK) || affected == Step("IsMemberOf", S_FALSE));
        }
        if (Undisturbed() + afterTheChange.size() < steps.size()) // what went wrong before is forgotten
        {
            EXPECT_EQ(LastLines(steps, afterTheChange.size()), afterTheChange);
        }
        EXPECT_EQ(steps.back(), lastStep);
        Lines lines = Texts(ParseTrace(output.Take()));
        EXPECT_GT(lines.size(), 10u);
        EXPECT_EQ(LastLines(lines), ClosingLines());
        std::erase_if(lines, [](const std::string& line)
                      { return !line.starts_with("**") && !line.starts_with("LMemAllocation"); });
        const bool isOfTheMenu =
            Undisturbed() >= overlaySteps.size() && Undisturbed() + afterTheChange.size() < steps.size();
        const bool isNote = ModuleHeap::Failed() == "malloc of 604 bytes"; // in the plain modes
        const bool isOfTheObject = (affected == Step("DllGetClassObject", E_OUTOFMEMORY) ||
                                    affected == Step("CreateInstance", E_OUTOFMEMORY)) &&
                                   (mode == 0 ? !isNote : lines.size() > 1);
        EXPECT_TRUE(AreLines(
            lines,
            ranThrough ? Lines() : ReportsOf(ModuleHeap::Failed(), affected, isOfTheMenu, isOfTheObject)));
        if (mode != 5)
        {
            EXPECT_EQ(ModuleHeap::Live(), ModuleHeap::Live("calloc")) << "only the table of blocks stays";
            ModuleHeap::ReleaseLive();
        }
        ASSERT_FALSE(HasFailure()) << "request " << failing << ", " << ModuleHeap::Failed() << ", in "
                                   << affected << "\n"
                                   << testing::PrintToString(steps);
    }
    EXPECT_GT(ModuleHeap::Requests(), selected);
    // Only the first array of a list of strings may be missing: the list tries again when a string comes. In
    // mode 5 it takes two requests.
    EXPECT_LE(madeAllTheSame, mode == 5 ? 2 : 1);
}

INSTANTIATE_TEST_SUITE_P(Sweeps, ModuleFailure,
                         testing::Values(std::tuple(0, many, 0, 4), std::tuple(0, many, 1, 4),
                                         std::tuple(0, many, 2, 4), std::tuple(0, many, 3, 4),
                                         std::tuple(2, 3, 0, 1), std::tuple(3, 3, 0, 1),
                                         std::tuple(5, 3, 0, 1)));

TEST_F(MemoryJob, OneThreadAtATimeIsInsideTheAllocationOperators)
{
    // Without memory for its path there is no trace file, which would keep the threads apart.
    const ModuleHeap heap(ModuleFileName(), firstOfTheProduct);
    {
        const Module module;
        std::vector<std::jthread> threads(4);
        for (std::jthread& thread : threads)
        {
            thread = std::jthread(
                [&module]
                {
                    for (int i = 0; i < 100; ++i)
                    {
                        MenuHandler(module, {"C:\\a", "C:\\b"});
                    }
                });
        }
    }
    EXPECT_TRUE(ModuleHeap::HasFailed());
    EXPECT_EQ(WholeTrace(), Lines());
    EXPECT_EQ(ModuleHeap::MostInside(), 1u);
    ModuleHeap::ReleaseLive();
}

TEST_F(MemoryJob, ForgottenMenuObjectIsListedWithAllItsBlocks)
{
    static IUnknown* forgotten = nullptr; // reachable for leak checkers when the module is gone
    const auto paths = Select(many);
    const ModuleHeap heap(ModuleFileName());
    Module module;
    {
        MenuHandler handler(module, paths);
        handler.Menu()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&forgotten));
    }
    module.StateChanged();
    module.Free();

    // Each block with the trace line behind its allocation, found by the line's own text.
    const std::string content = ReadWholeFile(TraceFilePath());
    const auto stamped = StampedLines(content);
    std::map<std::string, std::size_t> lineOf;
    for (std::size_t i = 0; i < stamped.size(); ++i)
    {
        lineOf[stamped[i].substr(std::min<std::size_t>(20, stamped[i].size()))] = i;
    }
    std::size_t total = 0;
    Lines expected;
    const auto expectBlock =
        [&](std::size_t size, const std::string& function, const std::string& place, std::size_t at)
    {
        total += size;
        expected.push_back("** " + std::to_string(size) + " Bytes allocated by " + function + " in gen/" +
                           place + ") after trace line " + std::to_string(at) + " [" + stamped.at(at) + "]");
    };
    const std::size_t made = lineOf.at(ObjectLine(forgotten));
    // Two interfaces, the count, the list of strings; then the object's entry in the registry.
    expectBlock(8 + 8 + 8 + 24, "LComClassFactory<class LSendoraContextMenu>::CreateInstance",
                "com.h (line 804", made);
    expectBlock(544, "LComDiagnostic::ObjectCreate", "com.cpp (line 20", made + 1);
    const std::string add = "LStringListTemplate<wchar_t>::Add";
    for (const std::string& path : paths)
    {
        const std::size_t taken = lineOf.at("LSendoraContextMenu::Initialize " + path) + 1;
        expectBlock(2 * (Wide(path).size() + 1), add, "stringtools.cpp (line #", taken);
        if (&path == &paths[255]) // too many for the first array
        {
            expectBlock(2048 * 8, add, "stringtools.cpp (line #", taken);
        }
    }

    Lines report = Texts(ParseTrace(content));
    report.erase(report.begin(), std::find(report.begin(), report.end(), LeakStart(total)));
    ASSERT_EQ(report.size(), 1 + expected.size() + 3) << "blocks of " << total << " bytes";
    EXPECT_EQ(LastLines(report), (Lines{leakEnd, ClosingLines()[1], ClosingLines()[2]}));
    Lines listed(report.begin() + 1, report.end() - 3);
    EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end(),
                               [](const std::string& a, const std::string& b)
                               { return std::stoul(a.substr(3)) > std::stoul(b.substr(3)); }));
    for (std::string& line : listed)
    {
        line = std::regex_replace(line, std::regex("(stringtools.cpp \\(line )[0-9]+"), "$1#");
    }
    std::sort(listed.begin(), listed.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listed, expected);
    ModuleHeap::ReleaseLive();
    forgotten = nullptr;
}
