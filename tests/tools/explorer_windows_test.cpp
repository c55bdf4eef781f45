// What tools/explorer does when something is amiss.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/settings.h"
#include "tests/support/text.h"
#include "tools/explorer/explorer.h"
#include "tools/explorer/watchdog.h"

using sndxtools::Arguments;
using testing::IsSubstring;

namespace
{
struct Shown
{
    int exitCode;
    std::string out, err;
};

Shown RunExplorer(const Arguments& arguments)
{
    std::ostringstream out;
    std::ostringstream err;
    const int exitCode = sndxtools::RunExplorer(arguments, out, err);
    return {exitCode, out.str(), err.str()};
}

// A folder with a file and a folder in it.
struct Explorer : testing::Test
{
    Explorer()
    {
        std::filesystem::create_directories(folder + "\\Ordner");
        std::ofstream(folder + "\\Datei.txt").put('.');
    }
    ~Explorer() override { std::filesystem::remove_all(folder); }
    const std::string folder = (std::filesystem::temp_directory_path() / "explorer-test").string();
};

// A handler that is registered but whose class is not, while this lives.
struct DeadHandler
{
    explicit DeadHandler(const char* key) : path(key)
    {
        sndxtest::SetMachineString(path, "", "{5E1F0D3A-0000-4000-8000-000000000001}");
    }
    ~DeadHandler() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, sndxtest::Wide(path).c_str()); }
    const std::string path;
};
} // namespace

TEST_F(Explorer, TellsWhatIsWrong)
{
    const struct
    {
        int exitCode;
        Arguments arguments;
        const char* complaint;
    } cases[] = {
        {2, {}, "FOLDER is required"},
        {2, {folder, "D:\\"}, "not expected: D:\\"},
        {2, {folder, "--view", "huge"}, "--view: huge not in {large,small}"},
        {2, {folder, "--place", "1,2,3"}, "--place: 4 required X,Y,WIDTH,HEIGHT"},
        {2, {folder, "--hover", "1"}, "--hover requires --select"},
        {1, {folder + "x", "--report"}, "there is no folder"},
        {1, {folder + "\\Datei.txt", "--report"}, "there is no folder"},
        {1, {folder, "--report", "--select", "Datei"}, "no item \"Datei\""},
        {1, {folder, "--select", "Datei.txt", "--hover", "Hoch"}, "no menu entry \"Hoch\""},
        {1, {folder, "--select", "Datei.txt", "--choose", "Eigenschaften"}, "cannot be chosen"},
    };
    for (const auto& [exitCode, arguments, complaint] : cases)
    {
        const Shown answer = RunExplorer(arguments);
        EXPECT_EQ(answer.exitCode, exitCode) << complaint;
        EXPECT_PRED_FORMAT2(IsSubstring, complaint, answer.err);
    }
    EXPECT_PRED_FORMAT2(IsSubstring, "--screenshot FILE.bmp", RunExplorer({"--help"}).out);
}

TEST_F(Explorer, ShowsPlainIconsAndItsOwnMenuWhenNothingUsefulIsRegistered)
{
    const Shown none = RunExplorer({folder, "--report", "--select", "datei.TXT", "--hover", "1"});
    EXPECT_EQ(none.exitCode, 0) << none.err;
    EXPECT_PRED_FORMAT2(IsSubstring,
                        "overlay handlers: 0, none is registered\n"
                        "items: 2\n"
                        "  Ordner: folder, no overlay\n"
                        "  Datei.txt: file, no overlay, selected\n"
                        "menu handlers of *: 0, none is registered\n"
                        "open menu:\n"
                        "  1. Öffnen [1], highlighted\n"
                        "  2. Eigenschaften [2], disabled\n"
                        "status: \"Öffnet das Element\"\n",
                        none.out);

    const DeadHandler overlay("Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\"
                              "ShellIconOverlayIdentifiers\\Dead");
    const DeadHandler menu("Software\\Classes\\Directory\\shellex\\ContextMenuHandlers\\Dead");
    const Shown dead = RunExplorer({folder, "--report", "--select", "Ordner", "--menu", "--view", "small"});
    EXPECT_EQ(dead.exitCode, 0) << dead.err;
    const std::string handler = "\"Dead\" {5E1F0D3A-0000-4000-8000-000000000001}: ";
    EXPECT_PRED_FORMAT2(IsSubstring, handler + "not used, CoCreateInstance answered", dead.out);
    EXPECT_PRED_FORMAT2(IsSubstring, handler + "adds nothing, CoCreateInstance answered", dead.out);
    EXPECT_PRED_FORMAT2(IsSubstring, "  2. Eigenschaften [2], disabled\nstatus: \"2 Elemente\"\n", dead.out);
}

SNDX_CHILD(HangingWindow)
{
    const sndxtools::Watchdog watchdog(100, 3);
    Sleep(20000);
    return 0;
}

TEST_F(Explorer, WatchdogEndsAProcessThatHangs)
{
    EXPECT_EQ(sndxtest::ChildProcess("HangingWindow", {}).Wait(10000), 3);
}
