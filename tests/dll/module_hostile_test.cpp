// A machine that means ill: names that others have taken, things in place of the trace file and its folder,
// settings of any make. The module loads, answers and unloads all the same, every call in time.

#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#endif

#include "tests/dll/modulehost.h"
#include "tests/support/debuggeroutput.h"
#include "tests/support/registrykey.h"
#include "tests/support/traceoracle.h"

using namespace sndxtest;

namespace
{
constexpr DWORD soon = 5000; // milliseconds, for any call, on a machine that is busy with other things

// What a life of the module has shown.
struct Life
{
    std::string output; // what reached the debugger: every line
    bool seesChanges;   // whether accounts are read anew after an announcement
};

class ModuleHostile : public ModuleTest
{
  protected:
    ModuleHostile() { AddItemsAsAccount(); }
    ~ModuleHostile() override
    {
        std::cout << "longest: load " << longest_["load"] << " ms, question " << longest_["question"]
                  << " ms, menu " << longest_["menu"] << " ms, command " << longest_["command"]
                  << " ms, unload " << longest_["unload"] << " ms\n";
    }

    void InTime(const std::string& what, const std::function<void()>& call, DWORD most = soon)
    {
        const Stopwatch stopwatch;
        call();
        const auto took = stopwatch.Milliseconds();
        EXPECT_LT(took, most) << what;
        longest_[what] = std::max(longest_[what], took);
    }
    void ExpectAnswer(const Module& module, const std::string& path, HRESULT answer, DWORD most = soon)
    {
        InTime(
            "question",
            [&] { EXPECT_EQ(module.Overlay()->IsMemberOf(Wide(path).c_str(), 0), answer) << path; }, most);
    }
    // A whole life with right answers, also about another item inside an account; something may happen while
    // the module is loaded.
    Life Live(
        const std::function<void()>& meanwhile = [] {}, const std::string& inside = {})
    {
        const DebuggerOutput output;
        std::unique_ptr<Module> module;
        InTime("load", [&] { module = std::make_unique<Module>(); });
        meanwhile();
        ExpectAnswer(*module, file_, S_OK);
        ExpectAnswer(*module, inside.empty() ? file_ : inside, S_OK);
        ExpectAnswer(*module, "C:\\Elsewhere\\x", S_FALSE);
        const HMENU menu = CreatePopupMenu();
        InTime("menu", [&] { EXPECT_EQ(MenuHandler(*module, {file_}).Query(menu), 3); });
        DestroyMenu(menu);
        InTime("command", [&] { EXPECT_EQ(MenuHandler(*module, {file_}).Invoke(0), E_FAIL); });
        const std::string added = "C:\\Late" + std::to_string(++lives_);
        AddAccount("Late", added);
        Sleep(20); // the stamp is the time of the change
        module->StateChanged();
        const bool seesChanges = module->Overlay()->IsMemberOf(Wide(added + "\\x").c_str(), 0) == S_OK;
        EXPECT_EQ(module->CanUnloadNow(), S_OK);
        InTime("unload", [&] { module->Free(); });
        const std::string text = DebuggerOutput::Take();
        EXPECT_EQ(LastLines(Texts(ParseTrace(text))), ClosingLines());
        return {text, seesChanges};
    }
    static Lines ErrorLines(const Life& life)
    {
        Lines lines = Texts(ParseTrace(life.output));
        std::erase_if(lines, [](const std::string& line) { return !line.starts_with("**"); });
        return lines;
    }

    const std::string file_ = Items().File("a.txt");

  private:
    int lives_ = 0;
    std::map<std::string, long long> longest_;
};

// With the application-data folder in the hands of the build machine's own programs: links and devices are
// none of a Windows program's business.
class ModuleHostileFiles : public ModuleHostile
{
  protected:
    ModuleHostileFiles()
    {
        const std::string folder = TraceFilePath().substr(0, TraceFilePath().rfind('\\'));
        const std::string parent = folder.substr(0, folder.rfind('\\'));
        marker_ = parent + "\\done";
        before_ = "set -e; cd '" + OfBuildMachine(parent) + "'; f='" + folder.substr(parent.size() + 1) +
                  "'; t=$f/tracedll_Sendora" + title_ + "; ";
    }
    ~ModuleHostileFiles() override
    {
        EXPECT_TRUE(Shell("rm -rf $t*; test ! -e kept || { rm -rf $f; mv kept $f; }"));
    }

    // Whether the commands succeed. $f is the folder, $t the trace file without ".txt".
    bool Shell(const std::string& commands) const
    {
        // Wine starts programs of the build machine, but gives no handles of them: so neither waits nor
        // closes.
        WideString line = Wide("\"Z:/bin/sh\" \"-c\" \"" + before_ + commands + "; touch done\"");
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION unused = {};
        EXPECT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                   &startup, &unused));
        return Within(5000, [this] { return DeleteFileW(Wide(marker_).c_str()) != FALSE; });
    }
    // Of a life: whether all lines, or all from some moment on, are in the file.
    static bool IsIn(const std::string& path, const Life& life)
    {
        const std::string content = ReadWholeFile(path);
        return !content.empty() && life.output.ends_with(content);
    }
    std::string FileName() const { return "tracedll_Sendora" + title_ + ".txt"; }

  private:
    static std::string OfBuildMachine(const std::string& path)
    {
#ifdef _WIN32
        const auto name = reinterpret_cast<char* (*)(const WCHAR*)>(reinterpret_cast<void*>(
            GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
        return name(Wide(path).c_str()); // a few bytes of the process's heap
#else
        std::string local = std::getenv("SENDORA_ROOT") + ("/drive_c" + path.substr(2));
        std::replace(local.begin(), local.end(), '\\', '/');
        return local;
#endif
    }
    const std::string title_ = "module_tests";
    std::string marker_, before_;
};

HANDLE TakeBlock(DWORD kind, DWORD size, HANDLE file = INVALID_HANDLE_VALUE)
{
    return CreateFileMappingW(file, nullptr, kind, 0, size, blockName);
}
} // namespace

TEST_F(ModuleHostile, NamesThatOthersHaveTaken)
{
    const std::string noBlock = "LIPCSharedMemoryBuffer::_Create CreateFileMapping failed returned error: ";
    struct
    {
        const char* what;
        std::function<HANDLE()> take;
        bool seesChanges;
        std::string line; // that it brings
    } const cases[] = {
        {"a block of one byte", [] { return TakeBlock(PAGE_READWRITE, 1); }, true, ""},
        {"a mutex in place of the block", [] { return CreateMutexW(nullptr, TRUE, blockName); }, false,
         noBlock + SystemText(ERROR_INVALID_HANDLE)},
        {"a block in place of the guard",
         [] { return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4, guardName); },
         true, "**LSystemLockMutex::Lock CreateMutex FAILED"},
        {"a pipe that only sends",
         []
         {
             return CreateNamedPipeW(TEXT("\\\\.\\pipe\\SendoraService"), PIPE_ACCESS_OUTBOUND,
                                     PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 64, 64, 0, nullptr);
         },
         true, "LNamedPipe::_Open CreateFile FAILED:" + SystemText(ERROR_ACCESS_DENIED)},
#ifdef _WIN32
        {"a block without memory", [] { return TakeBlock(PAGE_READWRITE | SEC_RESERVE, 4); }, false, ""},
        {"a block that is a program",
         []
         {
             const HANDLE file =
                 OpenFile(ModulePath(), GENERIC_READ | GENERIC_EXECUTE, FILE_SHARE_READ | FILE_SHARE_DELETE);
             const HANDLE block = TakeBlock(PAGE_READONLY | SEC_IMAGE, 0, file);
             CloseHandle(file);
             return block;
         },
         false, ""},
#endif
    };
    for (const auto& [what, take, seesChanges, line] : cases)
    {
        SCOPED_TRACE(what);
        const HANDLE taken = take();
        EXPECT_TRUE(taken != nullptr && taken != INVALID_HANDLE_VALUE) << GetLastError();
        const Life life = Live();
        EXPECT_EQ(life.seesChanges, seesChanges);
        EXPECT_EQ(ErrorLines(life), line.starts_with("**") ? Lines{line} : Lines{});
        EXPECT_TRUE(line.empty() || Contains(Texts(ParseTrace(life.output)), line));
        CloseHandle(taken);
    }
}

TEST_F(ModuleHostileFiles, WhateverStandsInPlaceOfTheTraceFile)
{
    // Natively, as on Windows, the rotation moves links out of the way whatever they lead to.
#ifdef _WIN32
    constexpr bool moved = false;
#else
    constexpr bool moved = true;
#endif
    struct
    {
        const char* make;
        bool atLoad;    // lines arrive when it stood there before the load
        bool meanwhile; // lines arrive when it is put there while the module is loaded
        const char* kind;
    } const cases[] = {
        {"mkdir $t.txt", true, false, "-d"},
        {"mkdir $t.txt $t.1.txt $t.2.txt $t.3.txt $t.4.txt $t.5.txt $t.6.txt $t.7.txt $t.8.txt $t.9.txt",
         false, false, "-d"},
        {"touch real; ln -s ../real $t.txt", true, true, "-f"},
        {"ln -s nowhere $t.txt", true, true, "-f"},
        {"ln -s loop $t.txt; ln -s loop $f/loop", moved, false, "-h"},
        {"ln -s /dev/null $t.txt", moved, false, "-c"},
        {"ln -s /dev/full $t.txt", moved, false, "-c"},
        {"ln -s /dev/zero $t.txt", moved, false, "-c"},
        {"ln -s /dev/ptmx $t.txt", moved, false, "-c"},
        // Full, and nobody reads.
        {"mkfifo $t.txt; (exec 3<>$t.txt; head -c 65536 /dev/zero >&3; sleep 4) >/dev/null 2>&1 & sleep 0.1",
         moved, false, "-p"},
    };
    for (const auto& [make, atLoad, meanwhile, kind] : cases)
    {
        for (const bool loaded : {false, true})
        {
            SCOPED_TRACE(std::string(make) + (loaded ? " while loaded" : ""));
            const auto put = [&, command = "rm -rf $t* $f/loop; " + std::string(make)]
            { EXPECT_TRUE(Shell(command)); };
            if (!loaded)
            {
                put();
            }
            const Life life = loaded ? Live(put) : Live();
            EXPECT_TRUE(life.seesChanges);
            EXPECT_EQ(ErrorLines(life), Lines());
            const bool arrives = loaded ? meanwhile : atLoad;
            EXPECT_TRUE(Shell(std::string("test ") + (arrives ? "-f" : kind) + " $t.txt"));
            EXPECT_TRUE(!arrives || IsIn(TraceFilePath(), life));
        }
    }
}

TEST_F(ModuleHostileFiles, AnApplicationDataFolderThatIsReadOnlyOrMissing)
{
    const auto current = std::filesystem::current_path();
    std::filesystem::current_path(Items().Local(""));
    for (const char* target : {"/sys/kernel", "nowhere"})
    {
        SCOPED_TRACE(target);
        EXPECT_TRUE(Shell("mv $f kept; ln -s " + std::string(target) + " $f"));
        const Life life = Live();
        EXPECT_TRUE(life.seesChanges);
        EXPECT_EQ(ErrorLines(life), Lines());
        // Where the shell names no folder, the lines go to the current one.
        WCHAR folder[MAX_PATH];
        const bool named = SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, 0, folder) == S_OK;
        EXPECT_EQ(IsIn(Items() / FileName(), life), !named);
        EXPECT_TRUE(Shell("rm $f; mv kept $f"));
    }
    std::filesystem::current_path(current);
}

TEST_F(ModuleHostile, SettingsOfAnyMake)
{
    const Bytes endless(20000, 'x');
    const std::string longest = "C:\\" + std::string(254, 'f'); // with an item 259 characters
    const std::string longName(255, 'n');                       // of an account; the path of its key is cut
    AddAccount(longName, "C:\\Never");
    AddAccount("Longest", longest);
    AddAccount("Longer", longest + "fff"); // of 260
    const std::pair<DWORD, Bytes> values[] = {
        {REG_SZ, endless},
        {REG_BINARY, endless},
        {REG_SZ, {}},
        {REG_SZ, {'C'}},
        {REG_DWORD, {'D', 0, ':', 0}},
        {REG_SZ, {'D', 0, ':'}},
        {REG_MULTI_SZ, {0, 0, 0, 0}},
        {11, Bytes(8, 0xFF)},
        {77, Bytes(519, 'y')},
    };
    for (const auto& [type, bytes] : values)
    {
        const std::string section = "Accounts\\" + std::to_string(type) + " " + std::to_string(bytes.size());
        SetSharedBytes(section, "LocalFolder", type, bytes);
        SetSharedBytes(section, "LastUpdate", type, bytes);
    }
    SetSharedBytes("Settings", "InstallerPath", REG_SZ, endless);
    SetUserBytes("Settings", "InstallerPath", 11, endless);
    SetUserBytes("Debug", "Memory Mode", REG_BINARY, endless);
    const std::string cut =
        (std::string(sndxtools::contract::productKey) + "\\Accounts\\" + longName).substr(0, 259);
    const Life life = Live([] {}, longest + "\\x");
    EXPECT_TRUE(life.seesChanges);
    // At the load and behind the change.
    EXPECT_EQ(ErrorLines(life), Overflow("lw", cut) + Overflow("lw", cut));
}

// Every account costs seven lines at a load and two at a question, below the folder lock. SNDX_ACCOUNTS asks
// for another number of them.
TEST_F(ModuleHostile, SettingsOfManyAccounts)
{
    const char* const asked = std::getenv("SNDX_ACCOUNTS");
    const int count = asked == nullptr ? 500 : std::atoi(asked);
#ifdef _WIN32
    for (int i = 0; i < count; ++i)
    {
        AddAccount("Many" + std::to_string(i), "C:\\Many" + std::to_string(i));
    }
#else
    // In one piece: the layer writes its registry anew with every value.
    std::ofstream file(std::getenv("SENDORA_ROOT") + std::string("/registry.reg"), std::ios::app);
    for (int i = 0; i < count; ++i)
    {
        file << "\n[HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Taleno Software\\Sendora\\Accounts\\Many" << i
             << "]\n\"LocalFolder\"=\"C:\\\\Many" << i << "\"\n";
    }
    file.close();
#endif
    const DWORD most = soon + 10 * static_cast<DWORD>(count); // milliseconds
    std::unique_ptr<Module> module;
    InTime(
        "load", [&] { module = std::make_unique<Module>(); }, most);
    ExpectAnswer(*module, "C:\\Many0\\x", S_OK, most);
    ExpectAnswer(*module, "C:\\Many" + std::to_string(count - 1) + "\\x", S_OK, most);
    ExpectAnswer(*module, "C:\\Elsewhere\\x", S_FALSE, most);
    InTime("unload", [&] { module->Free(); });
    EXPECT_EQ(LastLines(WholeTrace()), ClosingLines());
}

#ifndef _WIN32 // limits of the build machine's own
// Lives on a disk that is full when the trace has so many bytes, and tells how it went.
SNDX_CHILD(LiveOnAFullDisk)
{
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {8192, 8192};
    setrlimit(RLIMIT_FSIZE, &limit);
    Module module;
    const auto overlay = module.Overlay();
    for (int i = 0; i < 100; ++i)
    {
        if (overlay->IsMemberOf(Wide(arguments.at(0)).c_str(), 0) != S_OK ||
            overlay->IsMemberOf(TEXT("C:\\Elsewhere\\x"), 0) != S_FALSE)
        {
            return 2;
        }
    }
    return module.CanUnloadNow() == S_FALSE ? 0 : 3;
}

TEST_F(ModuleHostile, AFullDisk)
{
    ExpectForeignLines(); // the last one that fits is cut
    ExpectCutOffTraces();
    InTime("command", [&] { EXPECT_EQ(ChildProcess("LiveOnAFullDisk", {file_}).Wait(), 0); });
    EXPECT_EQ(ReadWholeFile(TraceFilePath()).size(), 8192u);
}
#endif
