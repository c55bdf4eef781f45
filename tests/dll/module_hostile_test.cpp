// A machine that means ill: names that others have taken, things in place of the trace file and its folder,
// settings of any make. The module loads, answers and unloads all the same, every call in time.

#include <functional>
#include <iostream>

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#endif

#include "tests/dll/modulehost.h"
#include "tests/support/debuggeroutput.h"
#include "tests/support/registrykey.h"

using namespace sndxtest;

namespace
{
constexpr DWORD soon = 2000; // milliseconds, for any call; they take some ten

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
    void ExpectAnswer(const Module& module, const std::string& path, HRESULT answer)
    {
        InTime("question", [&] { EXPECT_EQ(module.Overlay()->IsMemberOf(Wide(path).c_str(), 0), answer); });
    }
    // A whole life with right answers; something may happen while the module is loaded.
    Life Live(const std::function<void()>& meanwhile = [] {})
    {
        const DebuggerOutput output;
        std::unique_ptr<Module> module;
        InTime("load", [&] { module = std::make_unique<Module>(); });
        meanwhile();
        ExpectAnswer(*module, file_, S_OK);
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
