// What docs/waits.md says of the calls that can block: a call that does not return holds the thread that made
// it, for as long as its cause lasts, and nobody else but through the locks that its row names.

#include <atomic>
#include <functional>
#include <iostream>
#include <map>
#include <memory>

#ifdef _WIN32
#include <aclapi.h>
#else
#include "sndxposix.h"
#endif

#include "tests/dll/moduleimports.h"
#include "tests/dll/modulehost.h"
#include "tests/support/leakchecker.h"
#include "tests/support/traceoracle.h"

using namespace sndxtest;

namespace
{
constexpr DWORD patience = 20000; // milliseconds, for what must come
constexpr DWORD moment = 60;      // after which something is taken for held up

// One call of the module that does not return until the test lets it.
class Stop
{
  public:
    // The next call of the function, by whichever thread; with a text, the next one behind a line with it.
    static void Arm(const std::string& function, const std::string& behind = {})
    {
        open_ = false;
        thread_ = 0;
        function_ = function;
        behind_ = behind;
        armed_ = lineCame_ = behind.empty();
    }
    static DWORD Thread() { return thread_; } // 0: nobody has come yet
    static void Open() { open_ = true; }

    static void Pass(const char* function)
    {
        if (armed_ && function_ == function && armed_.exchange(false))
        {
            thread_ = GetCurrentThreadId();
            Within(2 * patience, [] { return open_.load(); }); // never for ever
        }
    }
    static void PassLine(const char* line)
    {
        Pass("OutputDebugStringA");
        OutputDebugStringA(line);
        if (!lineCame_ && std::strstr(line, behind_.c_str()) != nullptr && !lineCame_.exchange(true))
        {
            armed_ = true;
        }
    }

  private:
    inline static std::string function_, behind_;
    inline static std::atomic<bool> armed_{false}, lineCame_{true}, open_{true};
    inline static std::atomic<DWORD> thread_{0};
};

// Stand-ins for imports: they pass the stop and call the function itself.
template <int number, class Result, class... Arguments>
struct Stopping
{
    inline static Result(WINAPI* function)(Arguments...);
    inline static const char* name;
    static Result WINAPI Call(Arguments... arguments)
    {
        Stop::Pass(name);
        return function(arguments...);
    }
};

using StandIn = ModuleImports::StandIns::value_type;

template <int number, class Result, class... Arguments>
StandIn MakeStopping(const char* name, Result(WINAPI* function)(Arguments...))
{
    using Call = Stopping<number, Result, Arguments...>;
    Call::function = function;
    Call::name = name;
    return {name, reinterpret_cast<void*>(&Call::Call)};
}
#define STOPPING(function) MakeStopping<__COUNTER__>(#function, &function)
const StandIn debugOutput = {"OutputDebugStringA", reinterpret_cast<void*>(&Stop::PassLine)};

// A write that nobody takes is given up soon.
DWORD lastTimeOut = 0;

DWORD WINAPI WaitABit(HANDLE object, DWORD milliseconds)
{
    lastTimeOut = milliseconds;
    return WaitForSingleObject(object, milliseconds == 5000 ? 300 : milliseconds);
}

const StandIn noteTimeOut = {"WaitForSingleObject", reinterpret_cast<void*>(&WaitABit)};

// An instance of the pipe becomes free, and another client is faster, ten times in a row.
std::atomic<int> lostRaces{0};

BOOL WINAPI WaitForNothing(LPCWSTR name, DWORD milliseconds)
{
    return ++lostRaces <= 10 || WaitNamedPipeW(name, milliseconds);
}

constexpr DWORD slowLook = 300; // milliseconds

BOOL WINAPI LookSlowly(LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID information)
{
    Sleep(slowLook);
    return GetFileAttributesExW(path, level, information);
}

// A selection whose source takes its time to render it.
class SlowSource final : public sndxtools::DropData
{
  public:
    SlowSource() : DropData({Wide("C:\\Elsewhere\\x")}) {}
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) override
    {
        Stop::Pass("GetData");
        return DropData::GetData(format, medium);
    }
};

// Does something on a thread of its own, which is there already: while a library is loaded no thread begins.
class Actor
{
  public:
    explicit Actor(std::function<void()> action)
        : thread_(
              [this, action = std::move(action)]
              {
                  id_ = GetCurrentThreadId();
                  while (!begin_)
                  {
                      Sleep(1);
                  }
                  action();
                  done_ = true;
              })
    {
        EXPECT_TRUE(Within(patience, [this] { return id_ != 0; })) << "a thread does not begin";
    }
    ~Actor() { Begin(); }
    Actor(const Actor&) = delete;
    Actor& operator=(const Actor&) = delete;

    void Begin() { begin_ = true; }
    bool IsDone() const { return done_; }
    bool Ends() const
    {
        return Within(patience, [this] { return IsDone(); });
    }
    DWORD Thread() const { return id_; }

  private:
    std::atomic<DWORD> id_{0};
    std::atomic<bool> begin_{false}, done_{false};
    std::jthread thread_;
};

void AskForOwnName() // which needs the loader's lock
{
    WCHAR path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
}

// What others do meanwhile, and whether they are expected to be held up.
using Others = std::vector<std::pair<std::function<void()>, bool>>;

// `waits` says whether the action, on the thread with that identifier, has come to its wait; `end` ends the
// cause.
void ExpectWait(std::function<void()> action, const Others& others, const std::function<bool(DWORD)>& waits,
                const std::function<void()>& end)
{
    Actor actor(std::move(action));
    std::vector<std::unique_ptr<Actor>> meanwhile;
    for (const auto& other : others)
    {
        meanwhile.push_back(std::make_unique<Actor>(other.first));
    }
    actor.Begin();
    EXPECT_TRUE(Within(patience, [&] { return waits(actor.Thread()); })) << "the call is not made";
    for (std::size_t i = 0; i < others.size(); ++i)
    {
        meanwhile[i]->Begin();
        EXPECT_TRUE(others[i].second || meanwhile[i]->Ends()) << "held up: number " << i;
    }
    Sleep(moment);
    EXPECT_FALSE(actor.IsDone()) << "does not wait";
    for (std::size_t i = 0; i < others.size(); ++i)
    {
        EXPECT_EQ(meanwhile[i]->IsDone(), !others[i].second) << "number " << i;
    }
    end();
    EXPECT_TRUE(actor.Ends()) << "goes on waiting";
    for (const auto& other : meanwhile)
    {
        EXPECT_TRUE(other->Ends()) << "remains held up";
    }
}

void ExpectStop(std::function<void()> action, const Others& others)
{
    const auto waits = [](DWORD thread)
    {
        const DWORD held = Stop::Thread();
        EXPECT_TRUE(held == 0 || held == thread) << "another thread waits";
        return held != 0;
    };
    ExpectWait(std::move(action), others, waits, &Stop::Open);
}

class ModuleWaits : public ModuleTest
{
  protected:
    ModuleWaits()
    {
        AddItemsAsAccount();
        SetUserString("Settings", "InstallerPath", MainProgramPath());
    }
    void ExpectLoadWaits(const std::function<void()>& end)
    {
        RemoveTraceFiles();
        const std::string path = TraceFilePath(); // asks for the program's name
        const ModuleImports imports(ModuleFileName(), {noteTimeOut});
        std::unique_ptr<Module> module;
        ExpectWait(
            [&] { module = std::make_unique<Module>(); }, {{&AskForOwnName, true}},
            [&](DWORD)
            { return Contains(WholeTrace(path), "LIPCSharedMemoryBuffer::_Create " + Utf8(blockName)); },
            end);
        EXPECT_EQ(module->Overlay()->IsMemberOf(Wide(file_).c_str(), 0), S_OK);
        EXPECT_GT(lastTimeOut, INFINITE / 2) << "gives up some day";
    }
    const std::string file_ = Items().File("a.txt");
    const std::string outside_ = "C:\\Elsewhere\\x";
};
} // namespace

TEST_F(ModuleWaits, ACallThatDoesNotReturnHoldsALoadOrAnUnloadAndTheLoaderWithIt)
{
    leakCheckerIsOff = true; // an object is forgotten
    const StandIn loads[] = {STOPPING(RegOpenKeyExW),
                             STOPPING(RegQueryValueExW),
                             STOPPING(malloc),
                             STOPPING(SHGetFolderPathW),
                             STOPPING(GetModuleFileNameW),
                             STOPPING(MoveFileW),
                             STOPPING(DeleteFileW),
                             STOPPING(CreateFileW),
                             STOPPING(GetFileType),
                             STOPPING(SetFilePointerEx),
                             STOPPING(WriteFile),
                             STOPPING(CloseHandle),
                             debugOutput,
                             STOPPING(GetSystemMetrics),
                             STOPPING(HeapLock),
                             STOPPING(HeapAlloc),
                             STOPPING(RegEnumKeyW)};
    for (const StandIn& call : loads)
    {
        SCOPED_TRACE(call.first);
        const ModuleImports imports(ModuleFileName(), {call});
        std::unique_ptr<Module> module;
        Stop::Arm(call.first);
        ExpectStop([&] { module = std::make_unique<Module>(); }, {{&AskForOwnName, true}});
        EXPECT_EQ(module->Overlay()->IsMemberOf(Wide(file_).c_str(), 0), S_OK);
    }
    for (const StandIn& call : {STOPPING(free), STOPPING(ReadFile)})
    {
        SCOPED_TRACE(call.first);
        const ModuleImports imports(ModuleFileName(), {call});
        Module module;
        void* forgotten = nullptr;
        module.Factory(overlayClass)->QueryInterface(IID_IUnknown, &forgotten);
        Stop::Arm(call.first);
        ExpectStop([&] { module.Free(); }, {{&AskForOwnName, true}});
    }
}

TEST_F(ModuleWaits, ACallThatDoesNotReturnHoldsWhoMadeItAndThoseWhoNeedItsLock)
{
    // Who is held up: "a" who asks about another item, "m" who makes an object.
    const std::string nobody, asking = "a", making = "m";
    const struct
    {
        const char* action;
        StandIn call;
        const char* behind; // a line
        std::string heldUp;
    } cases[] = {
        {"ask", STOPPING(GetFileAttributesW), "", nobody},
        {"menu", STOPPING(GetFileAttributesW), "", nobody},
        {"icon", STOPPING(GetModuleFileNameW), "", nobody},
        {"select", {"GetData", nullptr}, "", nobody},
        {"select", STOPPING(ReleaseStgMedium), "", nobody},
        {"command", STOPPING(RegOpenKeyExW), "InvokeCommand", nobody},
        {"command", STOPPING(FormatMessageW), "", nobody},
        {"command", STOPPING(LocalFree), "", nobody},
        {"command", STOPPING(CreateProcessW), "", nobody},
        {"command", STOPPING(WaitForInputIdle), "", nobody},
        {"request", STOPPING(FlushFileBuffers), "", nobody},
        {"request", STOPPING(GetOverlappedResult), "", nobody},
        {"ask", debugOutput, "  CheckPaths", asking},
        {"ask", debugOutput, "  Folder: ", nobody},
        {"ask", STOPPING(CreateFileW), "  CheckPaths", asking},
        {"ask", STOPPING(CreateFileW), "  Folder: ", nobody},
        {"make", STOPPING(malloc), "", making},
        {"make", STOPPING(free), "", making},
        {"make", debugOutput, "ObjectCreate", nobody},
        // The settings are read anew, an account is made.
        {"ask", STOPPING(RegOpenKeyExW), "  LoadPaths", asking},
        {"ask", STOPPING(RegQueryValueExW), "got one", asking},
        {"ask", STOPPING(RegEnumKeyW), "  LoadPaths", asking},
        {"ask", STOPPING(malloc), "got one", asking + making},
    };
    ModuleImports::StandIns standIns = {debugOutput,
                                        noteTimeOut,
                                        {"WaitNamedPipeW", reinterpret_cast<void*>(&WaitForNothing)},
                                        STOPPING(WriteFile)};
    for (const auto& row : cases)
    {
        standIns.insert(standIns.end(), row.call.second == nullptr ? 0 : 1, row.call);
    }
    const ModuleImports imports(ModuleFileName(), standIns);
    const Module module;
    const auto overlay = module.Overlay();
    const auto other = module.Overlay();
    const HMENU menu = CreatePopupMenu();
    const auto invoke = [&](HRESULT expected)
    { EXPECT_EQ(MenuHandler(module, {file_}).Invoke(0), expected); };
    std::map<std::string, std::function<void()>> actions = {
        {"make", [&] { module.Overlay(); }},
        {"menu", [&] { EXPECT_EQ(MenuHandler(module, {file_}).Query(menu), 3); }},
    };
    actions["command"] = [&]
    {
        SetStartOptions("--exit-at-once");
        invoke(E_FAIL);
    };
    actions["ask"] = [&]
    {
        Sleep(20); // the stamp is the time of the change
        module.StateChanged();
        EXPECT_EQ(overlay->IsMemberOf(Wide(file_).c_str(), 0), S_OK);
    };
    actions["icon"] = [&]
    {
        WCHAR icon[MAX_PATH];
        int index = -1;
        DWORD flags = 0;
        EXPECT_EQ(overlay->GetOverlayInfo(icon, MAX_PATH, &index, &flags), S_OK);
    };
    actions["select"] = [&]
    {
        const auto source = ComRef<IDataObject>::Adopt(new SlowSource);
        const auto init = module.Create<IShellExtInit>(menuClass, IID_IShellExtInit);
        EXPECT_EQ(init->Initialize(nullptr, source.Get(), nullptr), S_OK);
    };
    actions["request"] = [&]
    {
        SetStartOptions("");
        // Takes the header and not the payload, until that is given up.
        const ChildProcess server = Serve({"--buffer", "64", "--read-after", "1000", "--requests", "1"});
        invoke(S_OK);
    };
    for (const auto& [action, call, behind, heldUp] : cases)
    {
        SCOPED_TRACE(std::string(action) + " " + call.first + behind);
        Stop::Arm(call.first, behind);
        ExpectStop(actions.at(action),
                   {{[&] { EXPECT_EQ(other->IsMemberOf(Wide(outside_).c_str(), 0), S_FALSE); },
                     heldUp.find(asking) != heldUp.npos},
                    {actions.at("make"), heldUp.find(making) != heldUp.npos}});
    }
    DestroyMenu(menu);

    // With the trace file open, the lines of others wait for their time-out and no longer.
    Stop::Arm("WriteFile", "  Folder: ");
    const auto writeLine = [&]
    {
        const Stopwatch line;
        module.StateChanged();
        EXPECT_GE(line.Milliseconds(), AtLeast(1512));
        EXPECT_LT(line.Milliseconds(), 6000); // with seven times a quarter of a second for giving way
    };
    ExpectStop(actions.at("ask"), {{writeLine, false}});

    // Each single wait for a busy pipe is bounded, their number is not.
    SetStartOptions("");
    const ChildProcess server = Serve({"--busy", "--default-timeout", "100"});
    SetStartOptions("--exit-at-once");
    invoke(E_FAIL);
    EXPECT_EQ(lostRaces, 12) << "each won by somebody else, and one that timed out in each of two opens";
}

// Holds the guard of the shared block until it is told to release it.
SNDX_CHILD(HoldTheGuard)
{
    const HANDLE guard = CreateMutexW(nullptr, TRUE, guardName);
    Announce("held");
    WaitFor("release");
    return ReleaseMutex(guard) ? 0 : 1;
}

TEST_F(ModuleWaits, AGuardOwnedByAnotherProcessHoldsTheLoadUntilItIsReleasedOrItsOwnerEnds)
{
    for (const bool killed : {false, true})
    {
        SCOPED_TRACE(killed);
        ClearPoints();
        ChildProcess owner("HoldTheGuard", {});
        ASSERT_TRUE(WaitFor("held"));
        ExpectLoadWaits([&] { killed ? owner.Kill() : Announce("release"); });
    }
}

TEST_F(ModuleWaits, ARefusedGuardHoldsTheLoadUntilItCanBeHad)
{
#ifdef _WIN32
    ACL nobody;
    InitializeAcl(&nobody, sizeof nobody, ACL_REVISION);
    SECURITY_DESCRIPTOR descriptor;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, &nobody, FALSE);
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, FALSE};
    const HANDLE guard = CreateMutexW(&attributes, FALSE, guardName);
    ExpectLoadWaits([&] { CloseHandle(guard); });
#else
    for (unsigned i = 0; i < 400; ++i) // twenty seconds of tries
    {
        sndxposix::FailCall("CreateMutexW", ERROR_ACCESS_DENIED, i);
    }
    ExpectLoadWaits(&sndxposix::ResetFailures);
#endif
}

// Ends with the module loaded while somebody else holds the trace file, and its file system takes its time.
// Its last act is to write the time to a file.
SNDX_CHILD(EndWithoutTheTraceFile)
{
    leakCheckerIsOff = true; // nothing is given back at the end of a process
    new ModuleImports(ModuleFileName(), {{"GetFileAttributesExW", reinterpret_cast<void*>(&LookSlowly)}});
    new Module;
    Announce("loaded");
    WaitFor("held");
    WriteWholeFile(arguments.at(0), std::to_string(GetTickCount()));
    ExitProcess(0);
}

TEST_F(ModuleWaits, AHeldTraceFileHoldsTheEndOfAProcessForAQuarterOfASecond)
{
    ExpectCutOffTraces();
    ClearPoints();
    ChildProcess child("EndWithoutTheTraceFile", {Items() / "end"});
    ASSERT_TRUE(WaitFor("loaded"));
    const HANDLE held = OpenFile(TraceFilePath(), GENERIC_READ, FILE_SHARE_READ);
    Announce("held");
    EXPECT_EQ(child.Wait(), 0);
    const DWORD took = GetTickCount() - static_cast<DWORD>(std::stoul(ReadWholeFile(Items() / "end")));
    CloseHandle(held);
    std::cout << "the end took " << took << " ms\n";
    // Three lines: 126, 63 and 31 ms asleep. Only Windows ends threads with the file open, and has one looked
    // for.
    EXPECT_GE(took, AtLeast(220 + (UnderWine() ? slowLook : 0)));
    EXPECT_LT(took, 1500u);
    EXPECT_FALSE(Contains(WholeTrace(), ClosingLines()[1]));
}

#ifdef _WIN32 // the layer keeps the text and knows no viewers
TEST_F(ModuleWaits, AStuckDebugViewerHoldsEveryLineOfEveryProgram)
{
    const Module module;
    const auto overlay = module.Overlay();
    const HANDLE ready = CreateEventW(nullptr, FALSE, FALSE, TEXT("DBWIN_BUFFER_READY"));
    const HANDLE data = CreateEventW(nullptr, FALSE, FALSE, TEXT("DBWIN_DATA_READY"));
    const HANDLE buffer =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, TEXT("DBWIN_BUFFER"));
    std::atomic<bool> ends{false};
    std::jthread viewer(
        [&]
        {
            while (!ends)
            {
                if (WaitForSingleObject(data, 50) == WAIT_OBJECT_0) // a line has come
                {
                    SetEvent(ready);
                }
            }
        });
    const TraceCapture trace;
    ExpectWait([&] { EXPECT_EQ(overlay->IsMemberOf(Wide(file_).c_str(), 0), S_OK); },
               {{[&] { module.Overlay(); }, true},
                {[] { EXPECT_EQ(ChildProcess("EndWithTheModuleLoaded", {"return"}).Wait(), 3); }, true}},
               [&](DWORD) { return !trace.Texts().empty(); }, [&] { SetEvent(ready); });
    ends = true;
    viewer.join();
    for (const HANDLE object : {ready, data, buffer})
    {
        CloseHandle(object);
    }
}
#endif
