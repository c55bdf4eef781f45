// Tracked memory of the real module: what it takes from the runtime in each memory mode, that a whole job
// leaves nothing behind, and what the leak report says when a host forgets an object.

#include <algorithm>
#include <set>

#include "tests/dll/mainjob.h"
#include "tests/dll/moduleheap.h"
#include "tests/support/leakchecker.h"
#include "tests/support/leakreport.h"

using namespace sndxtest;
using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

namespace
{
constexpr std::size_t selected = 300;

class ModuleMemory : public MainJobTest, public testing::WithParamInterface<int>
{
  protected:
    ModuleMemory()
    {
        SetUserString("Debug", "Memory Mode", std::to_string(GetParam()));
        leakCheckerIsOff = GetParam() == 5;
    }

    // What a block of that size is asked of the runtime as.
    static std::vector<HeapRequest> RequestsOf(std::size_t size)
    {
        constexpr std::size_t page = 4096;
        switch (GetParam())
        {
        case 2:
            return {{"_aligned_malloc", ((size + 60) / page + 2) * page, page}};
        case 3:
            return {{"_aligned_malloc", ((size + 68) / page + 2) * page, page}};
        case 5:
            return size + 4 <= page
                       ? std::vector<HeapRequest>{{"malloc", 56}}
                       : std::vector<HeapRequest>{{"malloc", 56}, {"_aligned_malloc", page + size + 4, page}};
        default:
            return {{"malloc", size + 60}};
        }
    }
};

using MainJobLeaks = MainJobTest;
} // namespace

TEST_P(ModuleMemory, WholeJobLeavesNothingBehind)
{
    const auto paths = Select(selected);
    SetStartOptions("--requests 3 --duration 60000");
    const ModuleHeap heap(ModuleFileName());
    Module module;
    std::vector<JobStep> steps;
    MainJob::Run(module, paths, [&](const JobStep& step) { steps.push_back(step); });
    EXPECT_EQ(steps, MainJob::Expected());
    module.Free();

    const Lines lines = Texts(ParseTrace(ReadWholeFile(TraceFilePath())));
    ASSERT_GT(lines.size(), selected);
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()), ClosingLines());
    EXPECT_THAT(lines, testing::Not(Contains(StartsWith("**"))));
    // The trace's path, a small block, one of several pages, the buffer of a request.
    for (const std::size_t size :
         {std::size_t{520}, std::size_t{544}, std::size_t{16384}, std::size_t{66564}})
    {
        for (const HeapRequest& request : RequestsOf(size))
        {
            EXPECT_THAT(ModuleHeap::Requests(), Contains(request)) << size;
        }
    }
    std::size_t chunks = 0;
    for (const HeapRequest& block : ModuleHeap::Live())
    {
        // The table of live blocks stays, and in mode 5 every record and page.
        const bool table = block.function == "calloc" || block.function == "realloc";
        EXPECT_TRUE(table || GetParam() == 5) << block;
        chunks += block == HeapRequest{"_aligned_malloc", 11 * 4096, 4096} ? 1u : 0u;
    }
    EXPECT_EQ(chunks > 30, GetParam() == 5); // ten pages each for more than 300 blocks
    if (GetParam() != 5)
    {
        ModuleHeap::ReleaseLive(); // released pages of mode 5 cannot even be given back
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, ModuleMemory, testing::Values(0, 1, 2, 3, 5));

namespace
{
// Kept reachable for leak checkers when the module that made it is gone.
IUnknown* g_forgotten = nullptr;

// One line of a leak report, taken apart.
struct Listed
{
    explicit Listed(const std::string& line)
    {
        char where[200] = {};
        int end = 0;
        const int fields =
            std::sscanf(line.c_str(), "** %zu Bytes allocated by %199[^(] (line %d) after trace line %zu [%n",
                        &size, where, &sourceLine, &traceLine, &end);
        EXPECT_EQ(fields, 4) << line;
        place = where;
        text = line.substr(static_cast<std::size_t>(end), line.size() - static_cast<std::size_t>(end) - 1);
    }
    std::size_t size = 0;
    std::string place; // "function in file "
    int sourceLine = 0;
    std::size_t traceLine = 0;
    std::string text;
};
} // namespace

TEST_F(MainJobLeaks, ForgottenMenuObjectIsListedWithAllItsBlocks)
{
    const auto paths = Select(selected);
    const ModuleHeap heap(ModuleFileName());
    Module module;
    auto object = module.Create<IShellExtInit>(menuClass, IID_IShellExtInit);
    ASSERT_EQ(object->Initialize(nullptr, MakeDropDataObject(paths).get(), nullptr), S_OK);
    // A reference that is never given back.
    ASSERT_EQ(object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&g_forgotten)), S_OK);
    object.Reset();
    module.StateChanged();
    module.Free();

    const std::string content = ReadWholeFile(TraceFilePath());
    const auto stamped = StampedLines(content);
    const Lines lines = Texts(ParseTrace(content));
    const auto start =
        std::find_if(lines.begin(), lines.end(),
                     [](const std::string& line) { return line.starts_with("** --- Leak Segments Start"); });
    const auto end = std::find(start, lines.end(), leakEnd);
    ASSERT_NE(end, lines.end());
    EXPECT_THAT(Lines(end + 1, lines.end()), testing::ElementsAre(ClosingLines()[1], ClosingLines()[2]));

    // Strings are listed by the line in front of them, which names their path.
    std::vector<Listed> listed;
    for (auto line = start + 1; line != end; ++line)
    {
        listed.emplace_back(*line);
        const Listed& leak = listed.back();
        EXPECT_EQ(leak.text, stamped.at(leak.traceLine)) << *line;
        EXPECT_TRUE(listed.size() == 1 || leak.size <= listed[listed.size() - 2].size) << *line;
    }
    ASSERT_THAT(listed, SizeIs(selected + 3)); // strings, their array, the object, its entry in the registry
    std::size_t total = 0;
    std::set<std::string> found;
    for (const Listed& leak : listed)
    {
        total += leak.size;
        const std::string before = leak.traceLine == 0 ? "" : stamped.at(leak.traceLine - 1).substr(20);
        if (leak.place == "LStringListTemplate<wchar_t>::Add in gen/stringtools.cpp " &&
            leak.size != 2048 * 8)
        {
            const std::string path = before.substr(before.find(' ') + 1);
            EXPECT_EQ(before.substr(0, before.find(' ')), "LSendoraContextMenu::Initialize");
            EXPECT_EQ(leak.size, 2 * (Wide(path).size() + 1));
            EXPECT_TRUE(found.insert(path).second) << path;
        }
        else if (leak.size == 2048 * 8)
        {
            // Grown for the 256th string, at the same line.
            EXPECT_EQ(leak.place, "LStringListTemplate<wchar_t>::Add in gen/stringtools.cpp ");
            EXPECT_THAT(before, EndsWith(paths[255]));
            EXPECT_THAT(leak.text, EndsWith(paths[256]));
        }
        else if (leak.size == 544)
        {
            EXPECT_EQ(leak.place, "LComDiagnostic::ObjectCreate in gen/com.cpp ");
            EXPECT_EQ(leak.sourceLine, 20);
            EXPECT_THAT(before, EndsWith(ObjectLine(g_forgotten)));
        }
        else
        {
            // Two interfaces, the count, the list of strings.
            EXPECT_EQ(leak.size, 2 * 8 + 8 + 24u);
            EXPECT_EQ(leak.place,
                      "LComClassFactory<class LSendoraContextMenu>::CreateInstance in gen/com.h ");
            EXPECT_EQ(leak.sourceLine, 804);
            EXPECT_THAT(leak.text, EndsWith(ObjectLine(g_forgotten)));
        }
    }
    EXPECT_EQ(found, std::set<std::string>(paths.begin(), paths.end()));
    EXPECT_EQ(*start, LeakStart(total));
    EXPECT_THAT(*(end - 1), HasSubstr(" Bytes allocated by "));
    ModuleHeap::ReleaseLive();
    g_forgotten = nullptr;
}
