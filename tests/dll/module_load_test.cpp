// The module's life as a host process sees it: what a load and an unload write, what they leave behind, and
// what several hosts do to one trace file.

#include <set>

#include "tests/dll/modulehost.h"

using namespace sndxtest;
using testing::Contains;
using testing::IsEmpty;

namespace
{
using ModuleLoad = ModuleTest;

// What a load writes, without most of the header.
Lines LoadTrace()
{
    Lines lines = WithoutSettings(WholeTrace());
    const auto end =
        std::find_if(lines.begin(), lines.end(),
                     [](const std::string& line) { return line.starts_with("Run Heap Size = "); });
    EXPECT_GT(end - lines.begin(), 12);
    lines.erase(lines.begin() + 1, end);
    return lines;
}

Lines LoadedWith(const Lines& folders)
{
    return Join({{"DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535", "Run Heap Size = ...",
                  "LIPCSharedMemory<T>::LIPCSharedMemory SharedMemoryForsndxdll",
                  "LIPCSharedMemoryBuffer::_Create SharedMemoryForsndxdll",
                  "LSystemLockMutex::~LSystemLockMutex", "DLL_PROCESS_ATTACH"},
                 LoadLines(folders)});
}
} // namespace

TEST_F(ModuleLoad, WritesTheHeaderAndTheWayOfEveryAccountIntoTheTable)
{
    AddAccount("A", Items().Path(), "1700000000");
    AddAccount("B", "");
    AddAccount("C", "C:\\Elsewhere\\");
    Module module;
    const Lines loaded = LoadedWith({Items().Path(), "", "C:\\Elsewhere\\"});
    EXPECT_THAT(LoadTrace(), AreLines(loaded));
    module.Free();
    EXPECT_THAT(LoadTrace(), AreLines(Join({loaded, ClosingLines()})));
}

TEST_F(ModuleLoad, SecondLifeBeginsAnewAndKeepsTheOldTrace)
{
    AddItemsAsAccount();
    Module module;
    module.Overlay().Reset();
    module.Free();
    const std::string firstTrace = ReadWholeFile(TraceFilePath());

    RemoveAllSettings();
    module.Load();
    EXPECT_EQ(ReadWholeFile(OlderTraceFilePath()), firstTrace);
    EXPECT_THAT(LoadTrace(), AreLines(Join({LoadedWith({}), {"RegOpenKeyEx failed:..."}})));
    EXPECT_EQ(module.CanUnloadNow(), S_OK);
    EXPECT_EQ(module.Overlay()->IsMemberOf(Wide(Items().File("a")).c_str(), 0), S_FALSE);
}

TEST_F(ModuleLoad, OtherNotificationsAreAnsweredWithTrueAndNothingElse)
{
    AddItemsAsAccount();
    const std::string file = Items().File("a.txt");
    const Module module;
    const auto overlay = module.Overlay();
    const auto dllMain = module.Export<BOOL WINAPI(HINSTANCE, DWORD, void*)>("DllMain");
    const TraceCapture trace;
    int reserved = 0;
    for (const DWORD reason : {DWORD{DLL_PROCESS_DETACH}, DWORD{DLL_THREAD_ATTACH}, DWORD{DLL_THREAD_DETACH}})
    {
        EXPECT_EQ(dllMain(module.Handle(), reason, nullptr), TRUE);
        EXPECT_EQ(dllMain(module.Handle(), reason, &reserved), TRUE);
    }
    EXPECT_THAT(trace.Texts(), IsEmpty());
    EXPECT_EQ(overlay->IsMemberOf(Wide(file).c_str(), 0), S_OK); // the table is as it was
}

// Loads the module and ends, one way or another, without freeing it.
SNDX_CHILD(EndWithTheModuleLoaded)
{
    if (LoadLibraryW(Wide(ModulePath()).c_str()) == nullptr)
    {
        return 2;
    }
    if (arguments.at(0) == "exit")
    {
        ExitProcess(3);
    }
    if (arguments.at(0) == "killed")
    {
        Announce("loaded");
        Sleep(60000);
    }
    return 3;
}

TEST_F(ModuleLoad, ProcessThatEndsWithTheModuleLoadedEndsItsTrace)
{
    const std::string last = "LSharedSettings32Record::IsValid "; // of the load
    for (const char* how : {"return", "exit"})
    {
        EXPECT_EQ(ChildProcess("EndWithTheModuleLoaded", {how}).Wait(), 3);
        EXPECT_EQ(LastLines(WholeTrace(), 4), Join({{last}, ClosingLines()})) << how;
    }
    ChildProcess child("EndWithTheModuleLoaded", {"killed"});
    ASSERT_TRUE(WaitFor("loaded"));
    child.Kill();
    EXPECT_EQ(LastLines(WholeTrace(), 1), Lines{last});
}

namespace
{
constexpr int asked = 150;

std::string AskedPath(const std::string& host, int number)
{
    return "C:\\Shared account\\" + host + "\\" + std::to_string(number);
}
} // namespace

SNDX_CHILD(AskWhileAnotherHostDoes)
{
    const std::string& host = arguments.at(0);
    const Module module;
    const auto overlay = module.Overlay();
    Announce(host + " ready");
    if (!WaitFor("go"))
    {
        return 2;
    }
    for (int i = 0; i < asked; ++i)
    {
        overlay->IsMemberOf(Wide(AskedPath(host, i)).c_str(), 0);
        // As a host that does something else too: a line that finds the file always taken is given up.
        Sleep(2);
    }
    Announce(host + " done");
    // Both have to be alive until the last line is counted: an unload is not what is looked at.
    return WaitFor("counted") ? 0 : 2;
}

TEST_F(ModuleLoad, TwoHostsOfOneNameLoseAndTearNoLine)
{
    ClearPoints();
    AddAccount("A", "C:\\Shared account");
    ChildProcess first("AskWhileAnotherHostDoes", {"first"});
    ASSERT_TRUE(WaitFor("first ready"));
    const std::string firstStart = ReadWholeFile(TraceFilePath());
    ChildProcess second("AskWhileAnotherHostDoes", {"second"});
    ASSERT_TRUE(WaitFor("second ready"));
    EXPECT_EQ(ReadWholeFile(OlderTraceFilePath()), firstStart); // rotated away by the second one's start
    const TraceCapture trace;
    Announce("go");
    ASSERT_TRUE(WaitFor("first done", 60000));
    ASSERT_TRUE(WaitFor("second done", 60000));
    const Lines lines = trace.Texts(); // whole lines only
    Announce("counted");
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);

    std::multiset<std::string> expected;
    for (const char* host : {"first", "second"})
    {
        for (int i = 0; i < asked; ++i)
        {
            expected.insert({"CheckPaths", "FileBelongsToFolder: " + AskedPath(host, i),
                             "Folder: C:\\Shared account",
                             "LShellExt::IsMemberOf returned: 1"}); // the attributes cannot be read
        }
    }
    EXPECT_EQ(std::multiset<std::string>(lines.begin(), lines.end()), expected);
}
