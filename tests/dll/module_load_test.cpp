// The module's life as a host process sees it: what a load and an unload write, what they leave behind, and
// what several hosts do to one trace file.

#include <set>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
using ModuleLoad = ModuleTest;

// What a load writes, without most of the header and what the settings report of their own.
Lines LoadTrace()
{
    Lines lines = WholeTrace();
    const auto isEnd = [](const std::string& line) { return line.starts_with("Run Heap Size = "); };
    lines.erase(lines.begin() + 1, std::find_if(lines.begin(), lines.end(), isEnd));
    std::erase_if(lines,
                  [](const std::string& line)
                  {
                      return line.starts_with("LSharedSettings32Record::") ||
                             line.starts_with("LSettings32ListIteratorTemplate<");
                  });
    return lines;
}

Lines LoadedWith(const Lines& accounts)
{
    return Join(
        {{"DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535", "Run Heap Size = ...",
          "LIPCSharedMemory<T>::LIPCSharedMemory SharedMemoryForsndxdll",
          "LIPCSharedMemoryBuffer::_Create SharedMemoryForsndxdll", "LSystemLockMutex::~LSystemLockMutex",
          "DLL_PROCESS_ATTACH", "LoadPaths", "LoadPaths 64bit build, using 32bit registry"},
         accounts});
}
} // namespace

TEST_F(ModuleLoad, WritesTheHeaderAndTheWayOfEveryAccountIntoTheTable)
{
    AddAccount("A", Items().Path(), "1700000000");
    AddAccount("B", "");
    AddAccount("C", "C:\\Elsewhere\\");
    Module module;
    const Lines loaded = LoadedWith({"LoadPaths got one", "LoadPaths Add: pNew->szFolderPath",
                                     "LoadPaths got one", // B has no folder
                                     "LoadPaths got one", "LoadPaths Add: pNew->szFolderPath"});
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
    const std::string path = TraceFilePath();
    EXPECT_EQ(ReadWholeFile(path.substr(0, path.size() - 4) + ".1.txt"), firstTrace);
    EXPECT_THAT(LoadTrace(), AreLines(LoadedWith({"RegOpenKeyEx failed:..."})));
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
    for (const DWORD reason : {DWORD{DLL_PROCESS_DETACH}, DWORD{DLL_THREAD_ATTACH}, DWORD{DLL_THREAD_DETACH}})
    {
        EXPECT_EQ(dllMain(module.Handle(), reason, nullptr), TRUE);
    }
    EXPECT_EQ(trace.Texts(), Lines());
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
    return 3;
}

TEST_F(ModuleLoad, ProcessThatEndsWithTheModuleLoadedEndsItsTrace)
{
    for (const char* how : {"return", "exit"})
    {
        EXPECT_EQ(ChildProcess("EndWithTheModuleLoaded", {how}).Wait(), 3);
        EXPECT_EQ(LastLines(WholeTrace()), ClosingLines()) << how;
    }
}

static const std::string shared = "C:\\Shared account";
static constexpr int asked = 150;

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
        overlay->IsMemberOf(Wide(shared + "\\" + host + std::to_string(i)).c_str(), 0);
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
    AddAccount("A", shared);
    ChildProcess first("AskWhileAnotherHostDoes", {"first"});
    ASSERT_TRUE(WaitFor("first ready"));
    ChildProcess second("AskWhileAnotherHostDoes", {"second"});
    ASSERT_TRUE(WaitFor("second ready"));
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
            expected.insert({"CheckPaths", "FileBelongsToFolder: " + shared + "\\" + host + std::to_string(i),
                             "Folder: " + shared,
                             "LShellExt::IsMemberOf returned: 1"}); // the attributes cannot be read
        }
    }
    EXPECT_EQ(std::multiset<std::string>(lines.begin(), lines.end()), expected);
}
