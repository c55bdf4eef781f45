// Memory of the real module: that a whole job works and leaves nothing behind in each memory mode, also when
// any one request for memory fails, and what the leak report says when a host forgets an object.

#include <map>
#include <regex>

#include "tests/dll/moduleheap.h"
#include "tests/dll/modulehost.h"
#include "tests/support/debuggeroutput.h"
#include "tests/support/leakchecker.h"
#include "tests/support/leakreport.h"

using namespace sndxtest;

namespace
{
// A step of the main job and its result.
std::string Step(const std::string& name, HRESULT result)
{
    return name + " " + sndxtools::Hex(static_cast<unsigned long>(result), 8);
}

// The steps of a job in which nothing fails: its end, which begins anew after a change, and the whole.
const Lines overlaySteps = {Step("DllGetClassObject", S_OK), Step("CreateInstance", S_OK),
                            Step("GetPriority", S_OK), Step("GetOverlayInfo", S_OK),
                            Step("IsMemberOf", S_OK)};
const std::string lastStep = Step("DllCanUnloadNow", S_OK);
const Lines afterTheChange = overlaySteps + Lines{lastStep};
const Lines allSteps =
    overlaySteps +
    Lines{Step("DllGetClassObject", S_OK), Step("CreateInstance", S_OK), Step("Initialize", S_OK),
          Step("QueryContextMenu", 3), Step("GetCommandString", S_OK)} +
    Lines(3, Step("InvokeCommand", S_OK)) + afterTheChange;

// All that a host does with the module between load and unload, one step after the other, whatever a step
// answers. The module finds one account whose folder holds the first file of the selection.
class MainJob : public ModuleTest
{
  protected:
    MainJob()
    {
        AddItemsAsAccount();
        SetUserString("Settings", "InstallerPath", MainProgramPath());
    }

    static void SetMemoryMode(int mode)
    {
        SetUserString("Debug", "Memory Mode", std::to_string(mode));
        leakCheckerIsOff = mode == 5;
    }
    // Files with names of many lengths; the first one exists.
    std::vector<std::string> Select(std::size_t count) const
    {
        std::vector<std::string> paths = {Items().File("0.txt")};
        while (paths.size() < count)
        {
            const std::size_t i = paths.size();
            paths.push_back(Items() / (std::to_string(i) + std::string(i % 97, 'n') + ".txt"));
        }
        return paths;
    }
    const Lines& Run(const Module& module, const std::vector<std::string>& paths)
    {
        steps_.clear();
        undisturbed_ = 0;
        AskOverlay(module, paths.front());
        UseMenu(module, paths);
        module.StateChanged();
        AskOverlay(module, paths.front()); // with the settings loaded anew
        Do("DllCanUnloadNow", module.CanUnloadNow());
        return steps_;
    }
    // Steps of the last run that had all memory.
    std::size_t Undisturbed() const { return undisturbed_; }

  private:
    void Do(const char* name, HRESULT result)
    {
        steps_.push_back(Step(name, result));
        undisturbed_ += ModuleHeap::HasFailed() ? 0 : 1;
    }
    // Empty when the module cannot make one.
    template <class T>
    ComRef<T> Create(const Module& module, REFCLSID classId, REFIID interfaceId)
    {
        ComRef<IClassFactory> factory;
        ComRef<T> object;
        const HRESULT found = module.GetClassObject(classId, IID_IClassFactory, factory.Receive());
        EXPECT_EQ(factory.Get() != nullptr, found == S_OK);
        Do("DllGetClassObject", found);
        if (factory)
        {
            const HRESULT created = factory->CreateInstance(nullptr, interfaceId, object.Receive());
            EXPECT_EQ(object.Get() != nullptr, created == S_OK);
            Do("CreateInstance", created);
        }
        return object;
    }
    void AskOverlay(const Module& module, const std::string& path)
    {
        const auto overlay =
            Create<IShellIconOverlayIdentifier>(module, overlayClass, IID_IShellIconOverlayIdentifier);
        if (overlay)
        {
            int number = -1;
            DWORD flags = 0;
            WCHAR icon[MAX_PATH];
            Do("GetPriority", overlay->GetPriority(&number));
            Do("GetOverlayInfo", overlay->GetOverlayInfo(icon, MAX_PATH, &number, &flags));
            Do("IsMemberOf", overlay->IsMemberOf(Wide(path).c_str(), 0));
        }
    }
    void UseMenu(const Module& module, const std::vector<std::string>& paths)
    {
        auto init = Create<IShellExtInit>(module, menuClass, IID_IShellExtInit);
        if (!init)
        {
            return;
        }
        // A host that goes on after a failed Initialize must find a handler that works as far as it can.
        MenuHandler handler(std::move(init));
        Do("Initialize", handler.Select(paths, {.withOwner = true}));
        EXPECT_EQ(LiveDropMediums(), 0);
        const HMENU shown = CreatePopupMenu();
        Do("QueryContextMenu", handler.Query(shown));
        DestroyMenu(shown);
        WCHAR help[100];
        Do("GetCommandString",
           handler.Menu()->GetCommandString(0, GCS_HELPTEXTW, nullptr, reinterpret_cast<LPSTR>(help), 100));
        for (UINT_PTR verb = 0; verb < 3; ++verb)
        {
            Do("InvokeCommand", handler.Invoke(verb));
        }
    }

    Lines steps_;
    std::size_t undisturbed_ = 0;
};

constexpr std::size_t many = 300;

class ModuleMemory : public MainJob, public testing::WithParamInterface<int>
{
};

// Memory mode, selected paths; a part of parts that share the requests among them.
class ModuleFailure
    : public MainJob,
      public testing::WithParamInterface<std::tuple<int, std::size_t, std::size_t, std::size_t>>
{
};
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
        const Lines lines = Texts(ParseTrace(output.Take()));
        EXPECT_GT(lines.size(), 10u);
        EXPECT_EQ(LastLines(lines), ClosingLines());
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

TEST_F(MainJob, ForgottenMenuObjectIsListedWithAllItsBlocks)
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
