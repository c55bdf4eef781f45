// What loading and unloading costs a host that does it again and again. Windows only: the POSIX layer keeps
// its own books, and what went to the debugger, on the same heap.

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
using ModuleReload = ModuleTest;
} // namespace

TEST_F(ModuleReload, LoadingAgainAndAgainCostsTheHostNothing)
{
    AddItemsAsAccount();
    constexpr int loads = 8;
    for (int i = 0; i < loads; ++i)
    {
        const HMODULE module = LoadLibraryW(Wide(ModulePath()).c_str());
        ASSERT_NE(module, nullptr);
        FreeLibrary(module);
    }
    // Every load notes the size of the runtime's heap; what the first ones set up for good is left out.
    const auto heapSize = [](int generation)
    {
        const Lines lines = WholeTrace(Generation(generation));
        const auto found =
            std::find_if(lines.begin(), lines.end(),
                         [](const std::string& line) { return line.starts_with("Run Heap Size = "); });
        return found == lines.end() ? "no such line" : *found;
    };
    for (int generation = 1; generation < loads / 2; ++generation)
    {
        EXPECT_EQ(heapSize(generation), heapSize(loads / 2));
    }
}
