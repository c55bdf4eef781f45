// The module's life as a host process sees it: what a load and an unload write, what they leave behind, and
// what several hosts do to one trace file.

#include <fstream>
#include <set>

#include "tests/dll/modulehost.h"

using namespace sndxtest;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace
{
bool UnderWine()
{
    return GetProcAddress(GetModuleHandleW(TEXT("kernel32.dll")), "wine_get_unix_file_name") != nullptr;
}

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
    Lines lines = {"DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535", "Build Date/Time: ...",
                   "Execution Date/Time: ...", "Target Processor: X64",
                   "Command line: " + Utf8(GetCommandLineW())};
    if (!UnderWine())
    {
        lines.push_back("LDLLLoadFunctionNoError Cannot find the library function: wine_get_unix_file_name");
    }
    lines.push_back("Windows Version: " + std::to_string(version.dwMajorVersion) + "." +
                    std::to_string(version.dwMinorVersion) + "...");
    if (UnderWine())
    {
        lines.push_back("Running under Wine version: ...");
    }
    lines.insert(lines.end(),
                 {"Processor Details: ...", "System memory: " + std::to_string(memory.ullTotalPhys),
                  "Virtual Screen resolution: " + Screen(SM_CXVIRTUALSCREEN, SM_CYVIRTUALSCREEN),
                  "Primary Screen resolution: " + Screen(SM_CXSCREEN, SM_CYSCREEN),
                  "NOTE: This file should never be created on release version software.",
                  "      If it appears please contact Taleno Software Support.", std::string(68, '-'),
                  "Run Heap Size = ..."});
    return lines;
}

const Lines attachLines = {"LIPCSharedMemory<T>::LIPCSharedMemory SharedMemoryForsndxdll",
                           "LIPCSharedMemoryBuffer::_Create SharedMemoryForsndxdll",
                           "LSystemLockMutex::~LSystemLockMutex", "DLL_PROCESS_ATTACH"};

using ModuleLoad = ModuleTest;
} // namespace

TEST_F(ModuleLoad, WritesTheHeaderAndTheWayOfEveryAccountIntoTheTable)
{
    AddAccount("A", Items().Path(), "1700000000");
    AddAccount("B", "");
    AddAccount("C", "C:\\Elsewhere\\");
    Module module;
    const Lines loaded =
        Join({HeaderLines(), attachLines, LoadLines({Items().Path(), "", "C:\\Elsewhere\\"})});
    EXPECT_THAT(WholeTrace(), AreLines(loaded));

    module.Free();
    EXPECT_THAT(WholeTrace(), AreLines(Join({loaded, ClosingLines()})));
}

TEST_F(ModuleLoad, WithoutSettingsTheTableStaysEmpty)
{
    const Module module;
    EXPECT_THAT(WholeTrace(), AreLines(Join({HeaderLines(), attachLines, LoadLines({}, false)})));
    const TraceCapture trace;
    EXPECT_EQ(module.Overlay()->IsMemberOf(Wide(Items().File("a")).c_str(), 0), S_FALSE);
    EXPECT_THAT(trace.Texts(), Contains("LShellExt::IsMemberOf returned false because !bFound"));
}

TEST_F(ModuleLoad, AnAccountsKeyWithoutAccountsIsNoFailure)
{
    SetSharedString("Accounts", "Unrelated", "value");
    const Module module;
    EXPECT_THAT(WholeTrace(), AreLines(Join({HeaderLines(), attachLines, LoadLines({})})));
}

TEST_F(ModuleLoad, ExportsItsFourEntryPointsOnly)
{
    const Module module;
    for (const char* name : {"DllMain", "DllGetClassObject", "DllCanUnloadNow", "StateChanged"})
    {
        EXPECT_NE(GetProcAddress(module.Handle(), name), nullptr) << name;
    }
    for (const char* name : {"_Z9LoadPathsv", "g_hInstance", "g_nFactoryObjects", "g_uLoadedState"})
    {
        EXPECT_EQ(GetProcAddress(module.Handle(), name), nullptr) << name;
    }
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

TEST_F(ModuleLoad, ReloadBeginsAnewAndKeepsTheOldTrace)
{
    AddItemsAsAccount();
    Module module;
    const HMODULE first = module.Handle();
    module.Overlay().Reset();
    module.Free();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(GetModuleHandleW(Wide(ModulePath().substr(ModulePath().rfind('\\') + 1)).c_str()), nullptr);
    const std::string firstTrace = ReadWholeFile(TraceFilePath());

    RemoveAllSettings();
    module.Load();
    EXPECT_EQ(ReadWholeFile(Generation(1)), firstTrace);
    EXPECT_THAT(WholeTrace(), AreLines(Join({HeaderLines(), attachLines, LoadLines({}, false)})));
    EXPECT_EQ(module.CanUnloadNow(), S_OK);
    EXPECT_EQ(module.Overlay()->IsMemberOf(Wide(Items().File("a")).c_str(), 0), S_FALSE);
}

TEST_F(ModuleLoad, UnloadLeavesNothingMapped)
{
    const std::string copy = Items().Path() + "\\copy.module";
    ASSERT_TRUE(CopyFileW(Wide(ModulePath()).c_str(), Wide(copy).c_str(), TRUE));
    const HMODULE module = LoadLibraryW(Wide(copy).c_str());
    ASSERT_NE(module, nullptr) << GetLastError();
#ifdef _WIN32
    EXPECT_FALSE(DeleteFileW(Wide(copy).c_str()));
    FreeLibrary(module);
    EXPECT_TRUE(DeleteFileW(Wide(copy).c_str())) << GetLastError(); // refused while anything is mapped
#else
    const auto mapped = []
    {
        std::ifstream maps("/proc/self/maps");
        const std::string text{std::istreambuf_iterator<char>(maps), {}};
        return text.find("copy.module") != text.npos;
    };
    EXPECT_TRUE(mapped());
    FreeLibrary(module);
    EXPECT_FALSE(mapped());
#endif
}

namespace
{
// Kept reachable for leak checkers when the module that made it is gone.
void* g_forgotten = nullptr;
} // namespace

TEST_F(ModuleLoad, UnreleasedObjectIsInTheLeakReportAndNothingFollowsTheEnd)
{
    Module module;
    void* factory = nullptr;
    ASSERT_EQ(module.GetClassObject(overlayClass, IID_IUnknown, &factory), S_OK); // and forgotten
    g_forgotten = factory;
    const std::string address = std::to_string(reinterpret_cast<std::intptr_t>(factory));
    TraceCapture trace;
    module.StateChanged(); // the line behind the allocation of the registry's item
    const std::size_t before = WholeTrace().size();
    module.Free();

    const std::vector<TraceLine> all = ParseTrace(ReadWholeFile(TraceFilePath()));
    const Lines lines = trace.Texts();
    ASSERT_THAT(lines, SizeIs(7));
    // The item holds its link, the object's address and 260 characters.
    EXPECT_THAT(lines[1], AllOf(StartsWith("** --- Leak Segments Start (Total "),
                                EndsWith(" Bytes) --------------------------")));
    EXPECT_THAT(lines[2],
                AllOf(StartsWith("** 544 Bytes allocated by LComDiagnostic::ObjectCreate in gen/com"),
                      HasSubstr(" (line 20) after trace line " + std::to_string(before - 1) + " ["),
                      EndsWith("  StateChanged]")));
    EXPECT_THAT(lines[3], AllOf(StartsWith("** "),
                                HasSubstr(" Bytes allocated by DllGetClassObject in dll/sndxdll.cpp"),
                                HasSubstr(" after trace line " + std::to_string(before - 2) + " ["),
                                EndsWith("  LComDiagnostic::ObjectCreate this=" + address + "]")));
    EXPECT_EQ(lines[4],
              "** --- Leak Segments End ----------------------------------------------------\n Info: Use "
              "LDebugHeapIgnoreLeak for singleton allocated memory to prevent them being reported as leaks.");
    EXPECT_EQ(lines[5], ClosingLines()[1]);
    EXPECT_EQ(lines[6], ClosingLines()[2]); // the registry's own report comes later and is dropped
}

// Loads the module and ends, one way or another, without freeing it.
SNDX_CHILD(EndWithTheModuleLoaded)
{
    if (LoadLibraryW(Wide(ModulePath()).c_str()) == nullptr)
    {
        return 2;
    }
    if (arguments.at(1) == "exit")
    {
        ExitProcess(3);
    }
    if (arguments.at(1) == "killed")
    {
        Announce("loaded");
        Sleep(60000);
    }
    return 3;
}

TEST_F(ModuleLoad, ProcessThatEndsWithTheModuleLoadedEndsItsTrace)
{
    for (const char* how : {"return", "exit"})
    {
        EXPECT_EQ(ChildProcess("EndWithTheModuleLoaded", {"", how}).Wait(), 3);
        const Lines lines = WholeTrace();
        ASSERT_GT(lines.size(), 3u) << how;
        EXPECT_THAT(Lines(lines.end() - 4, lines.end()),
                    AreLines(Join({{"LSharedSettings32Record::IsValid "}, ClosingLines()})))
            << how;
    }
}

TEST_F(ModuleLoad, KilledProcessLeavesItsTraceUpToTheLastLine)
{
    ChildProcess child("EndWithTheModuleLoaded", {"", "killed"});
    ASSERT_TRUE(WaitFor("loaded"));
    child.Kill();
    EXPECT_EQ(WholeTrace().back(), "LSharedSettings32Record::IsValid ");
}

TEST_F(ModuleLoad, TenTraceFilesAreKept)
{
    constexpr int runs = 12;
    for (int run = 1; run <= runs; ++run)
    {
        ASSERT_EQ(ChildProcess("EndWithTheModuleLoaded", {"run " + std::to_string(run), "return"}).Wait(), 3);
    }
    const auto runOf = [](const std::string& path)
    {
        const Lines lines = WholeTrace(path);
        const std::size_t at = lines.size() > 4 ? lines[4].find("\"run ") : std::string::npos;
        return at == std::string::npos ? 0 : std::atoi(lines[4].c_str() + at + 5);
    };
    EXPECT_EQ(runOf(TraceFilePath()), runs);
    for (int i = 1; i <= 9; ++i)
    {
        EXPECT_EQ(runOf(Generation(i)), runs - i);
    }
    EXPECT_EQ(ReadWholeFile(Generation(10)), "");
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
        Sleep(
            2); // as a host that does something else too: a line that finds the file always taken is given up
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
    EXPECT_EQ(ReadWholeFile(Generation(1)), firstStart); // rotated away by the second one's start
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
            expected.insert("CheckPaths");
            expected.insert("FileBelongsToFolder: " + AskedPath(host, i));
            expected.insert("Folder: C:\\Shared account");
            expected.insert("LShellExt::IsMemberOf returned: 1"); // the attributes cannot be read
        }
    }
    EXPECT_EQ(std::multiset<std::string>(lines.begin(), lines.end()), expected);
}
