// Tracked memory of the real module: that a whole job works and leaves nothing behind in each memory mode,
// and what the leak report says when a host forgets an object.

#include <map>
#include <regex>

#include "tests/dll/mainjob.h"
#include "tests/dll/moduleheap.h"
#include "tests/support/leakreport.h"

using namespace sndxtest;

namespace
{
constexpr std::size_t selected = 300;

class ModuleMemory : public MainJobTest, public testing::WithParamInterface<int>
{
  protected:
    ModuleMemory() { SetMemoryMode(GetParam()); }
};

using MainJobLeaks = MainJobTest;
} // namespace

TEST_P(ModuleMemory, WholeJobLeavesNothingBehind)
{
    const auto paths = Select(selected);
    SetStartOptions("--requests 3 --duration 60000");
    const ModuleHeap heap(ModuleFileName());
    Module module;
    const std::size_t guarded = ModuleHeap::Live("_aligned_malloc"); // the trace's path, the accounts
    const MainJob job(module, paths);
    module.Free();
    EXPECT_EQ(job.Steps(), MainJob::Expected());
    // Three times 300 paths: three messages with a header, a count and an option word.
    constexpr std::size_t sent = 3 * (3 * (16 + 4 + 520) + selected * 520);
    EXPECT_EQ(Received(sent).size(), sent);

    Lines lines = WholeTrace();
    EXPECT_GT(lines.size(), selected);
    EXPECT_EQ(LastLines(lines), ClosingLines());
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("**"); });
    EXPECT_EQ(lines, Lines()) << "error lines";
    const bool pages = GetParam() > 1;
    EXPECT_EQ(guarded > 0, pages);
    if (GetParam() == 5)
    {
        // Every record and page stays; a chunk has ten pages. They cannot even be given back.
        EXPECT_GT(ModuleHeap::Live("malloc"), selected);
        EXPECT_GT(ModuleHeap::Live("_aligned_malloc"), selected / 10);
    }
    else
    {
        EXPECT_EQ(ModuleHeap::Live(), ModuleHeap::Live("calloc")) << "only the table of blocks stays";
        ModuleHeap::ReleaseLive();
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, ModuleMemory, testing::Values(0, 1, 2, 3, 5));

TEST_F(MainJobLeaks, ForgottenMenuObjectIsListedWithAllItsBlocks)
{
    static IUnknown* forgotten = nullptr; // reachable for leak checkers when the module is gone
    const auto paths = Select(selected);
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
        line =
            std::regex_replace(line, std::regex("stringtools.cpp \\(line [0-9]+"), "stringtools.cpp (line #");
    }
    std::sort(listed.begin(), listed.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listed, expected);
    ModuleHeap::ReleaseLive();
    forgotten = nullptr;
}
