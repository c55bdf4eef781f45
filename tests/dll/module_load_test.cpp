// The module's life as a host process sees it: what a load and an unload write, and what they leave behind.

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
using ModuleLoad = ModuleTest;

std::string Screen(int width, int height)
{
    return std::to_string(GetSystemMetrics(width)) + " x " + std::to_string(GetSystemMetrics(height));
}

Lines HeaderLines()
{
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof memory;
    GlobalMemoryStatusEx(&memory);
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    GetVersionExW(&version);
    const Lines lines = {"DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535",
                         "Build Date/Time: ...", "Execution Date/Time: ...", "Target Processor: X64",
                         "Command line: " + Utf8(GetCommandLineW())};
    const std::string windows = "Windows Version: " + std::to_string(version.dwMajorVersion) + "." +
                                std::to_string(version.dwMinorVersion) + "...";
    const std::string noWine =
        "LDLLLoadFunctionNoError Cannot find the library function: wine_get_unix_file_name";
    return lines +
           (UnderWine() ? Lines{windows, "Running under Wine version: ..."} : Lines{noWine, windows}) +
           Lines{"Processor Details: ...",
                 "System memory: " + std::to_string(memory.ullTotalPhys),
                 "Virtual Screen resolution: " + Screen(SM_CXVIRTUALSCREEN, SM_CYVIRTUALSCREEN),
                 "Primary Screen resolution: " + Screen(SM_CXSCREEN, SM_CYSCREEN),
                 "NOTE: This file should never be created on release version software.",
                 "      If it appears please contact Taleno Software Support.",
                 ruler,
                 "Run Heap Size = ..."};
}

const Lines attachLines = {"LIPCSharedMemory<T>::LIPCSharedMemory SharedMemoryForsndxdll",
                           "LIPCSharedMemoryBuffer::_Create SharedMemoryForsndxdll",
                           "LSystemLockMutex::~LSystemLockMutex", "DLL_PROCESS_ATTACH"};

// The lines of a load of the account table, for accounts in the registry's order; folders may be empty.
Lines LoadLines(const Lines& folders, bool accountsExist = true)
{
    const std::string record = "LSharedSettings32Record::";
    Lines lines = {"LoadPaths",
                   "LoadPaths 64bit build, using 32bit registry",
                   record + "LSharedSettings32Record ",
                   record + "LSharedSettings32Record Software\\Taleno Software\\Sendora\\Accounts",
                   record + "LSharedSettings32Record ",
                   record + "LSharedSettings32Record ",
                   "LSettings32ListIteratorTemplate<class LSharedSettings32Record>::InitCommon "};
    lines = lines + Lines(accountsExist ? 0 : 1, "RegOpenKeyEx failed:...") + // the system's words
            Lines(folders.empty() ? 0 : 1, record + "OpenSubRecord ");
    const Lines added = {record + "GetInt ", record + "GetString ", "LoadPaths Add: pNew->szFolderPath"};
    for (std::size_t i = 0; i < folders.size(); ++i)
    {
        lines = lines + Lines{record + "IsValid ", "LoadPaths got one", record + "GetString "} +
                (folders[i].empty() ? Lines() : added) +
                Lines(i + 1 < folders.size() ? 1 : 0, record + "OpenSubRecord ");
    }
    return lines + Lines{record + "IsValid "};
}
} // namespace

TEST_F(ModuleLoad, WritesTheHeaderAndTheWayOfEveryAccountIntoTheTable)
{
    AddAccount("A", Items().Path(), "1700000000");
    AddAccount("B", "");
    AddAccount("C", "C:\\Elsewhere\\");
    Module module;
    const Lines loaded = HeaderLines() + attachLines + LoadLines({Items().Path(), "", "C:\\Elsewhere\\"});
    EXPECT_TRUE(AreLines(WholeTrace(), loaded));
    module.Free();
    EXPECT_TRUE(AreLines(WholeTrace(), loaded + ClosingLines()));
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
    EXPECT_TRUE(AreLines(WholeTrace(), HeaderLines() + attachLines + LoadLines({}, false)));
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
