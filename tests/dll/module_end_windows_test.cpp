// The end of a process whose threads are busy in the module: the system ends them wherever they are, in the
// middle of a line or inside a lock. Only Windows ends threads like that; the native layer has nothing to
// show for it.

#include <cstdlib>
#include <thread>

#include "tests/dll/modulehost.h"
#include "tests/support/leakreport.h"

using namespace sndxtest;

namespace
{
// Ends while eight threads ask the overlay, the given number of milliseconds after the first question; with a
// menu object of so many paths that is never released. Its last act is to write the time to a file.
SNDX_CHILD(EndUnderBusyThreads)
{
    static const Module module;
    const std::size_t selected = std::stoul(arguments.at(1));
    if (selected > 0)
    {
        std::vector<std::string> paths;
        for (std::size_t i = 0; i < selected; ++i)
        {
            paths.push_back("C:\\Elsewhere\\" + std::to_string(i) + ".txt");
        }
        new MenuHandler(module, paths);
    }
    static const auto overlay = module.Overlay();
    for (int i = 0; i < 8; ++i)
    {
        std::thread(
            [i]
            {
                const std::string path = "C:\\Elsewhere\\" + std::string(1, static_cast<char>('a' + i));
                for (;;)
                {
                    overlay->IsMemberOf(Wide(path).c_str(), 0);
                }
            })
            .detach();
    }
    Sleep(static_cast<DWORD>(std::stoul(arguments.at(0))));
    WriteWholeFile(arguments.at(2), std::to_string(GetTickCount()));
    ExitProcess(0);
}

class ModuleEnd : public ModuleTest, public testing::WithParamInterface<std::size_t>
{
};
} // namespace

// SNDX_EXITS asks for more of them.
TEST_P(ModuleEnd, UnderBusyThreadsComesSoonAndWithTheEndOfTheTrace)
{
    const std::size_t selected = GetParam();
    const char* const asked = std::getenv("SNDX_EXITS");
    const int exits = asked == nullptr ? 8 : std::atoi(asked);
    AddAccount("A", "C:\\Sync");
    constexpr DWORD longest = 1500; // milliseconds: one second of the module's, and what a busy machine takes
    int lost = 0;                   // ends of traces
    for (int i = 0; i < exits; ++i)
    {
        const int ms = 20 + i * 7 % 60;
        ChildProcess child("EndUnderBusyThreads",
                           {std::to_string(ms), std::to_string(selected), Items() / "end"});
        ASSERT_EQ(child.Wait(), 0) << "exit " << i;
        EXPECT_LT(GetTickCount() - std::stoul(ReadWholeFile(Items() / "end")), longest) << "exit " << i;
        const Lines lines = WholeTrace();
        const Lines end = LastLines(lines, 2);
        const bool whole =
            end == Lines{ClosingLines()[1], ClosingLines()[2]} &&
            (selected == 0 || std::count_if(lines.begin(), lines.end(),
                                            [](const std::string& line) {
                                                return line.find(" Bytes allocated by ") != line.npos;
                                            }) >= static_cast<std::ptrdiff_t>(selected));
        lost += whole ? 0 : 1;
    }
    EXPECT_LE(lost * 100, exits) << "of " << exits;
}

INSTANTIATE_TEST_SUITE_P(SelectedPaths, ModuleEnd, testing::Values(std::size_t{0}, std::size_t{300}));
