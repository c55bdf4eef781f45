// The lines of the diagnostic header that no two systems share, and the probes behind them. The header as a
// whole is tested with the module's load.

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <map>
#include <regex>
#include <utility>

#include "diag/environment.h"
#include "diag/header.h"
#include "gen/debug.h"
#include "tests/support/reports.h"
#include "tests/support/settings.h"
#include "tests/support/timing.h"
#include "win32/library.h"
#include "win32/settings.h"

#ifdef _WIN32
// The program's own slot for the import.
extern "C" FARPROC(WINAPI* __imp_GetProcAddress)(HMODULE, LPCSTR);
#else
#include "sndxposix.h"
#endif

namespace
{
using namespace sndxtest;

// What follows the prefix in the first of the lines that begins so.
std::string After(const std::string& prefix, const Lines& lines = Traced(&LDebugWriteHeader))
{
    const auto found = std::find_if(lines.begin(), lines.end(),
                                    [&](const std::string& line) { return line.starts_with(prefix); });
    return found == lines.end() ? "(no such line)" : found->substr(prefix.size());
}

std::string MachineString(const WCHAR* path, const WCHAR* name)
{
    WCHAR text[LSTR];
    RegGetString(HKEY_LOCAL_MACHINE, path, name, TEXT(""), text);
    return Utf8(text);
}

// What a function of Wine's answers.
template <class TResult, class... TArguments>
TResult AskWine(const char* name, TArguments... arguments)
{
    const FARPROC function = GetProcAddress(GetModuleHandleW(TEXT("ntdll.dll")), name);
    return LFunctionCast<TResult(__cdecl*)(TArguments...)>(function)(arguments...);
}

TEST(Header, TellsWhereItWasWritten)
{
    EXPECT_EQ(LIsRunningUnderWine(), UnderWine()); // decided before, so that the probe leaves no line
    SYSTEM_INFO system = {};
    GetNativeSystemInfo(&system);
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExW(&version);
    const std::time_t before = std::time(nullptr);
    const Lines header = Traced(&LDebugWriteHeader);
    const std::time_t after = std::time(nullptr);

    const std::regex built("[A-Z][a-z]{2} [ 1-3][0-9] 20[0-9]{2} [0-9:]{8}");
    EXPECT_TRUE(std::regex_match(After("Build Date/Time: ", header), built));
    const std::string executed = After("Execution Date/Time: ", header);
    EXPECT_TRUE(executed == std::asctime(std::localtime(&before)) ||
                executed == std::asctime(std::localtime(&after)))
        << executed;
    // Wine has a release, too, but is not asked for it.
    const std::string release =
        MachineString(TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"), TEXT("ReleaseId"));
    EXPECT_EQ(After("Windows Version: ", header),
              std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) +
                  (UnderWine() ? "" : " (" + release + ")") + " " + Utf8(version.szCSDVersion) + " 64-bit");
    if (UnderWine())
    {
        const char* wine = nullptr;
        const char* host = nullptr;
        AskWine<void>("wine_get_host_version", &wine, &host);
        EXPECT_EQ(After("Running under Wine version: ", header),
                  AskWine<const char*>("wine_get_version") + std::string(", build: ") +
                      AskWine<const char*>("wine_get_build_id") + ", Host version: " + wine + " - " + host);
    }
    EXPECT_EQ(After("Processor Details: ", header),
              MachineString(TEXT("Hardware\\Description\\System\\CentralProcessor\\0"),
                            TEXT("ProcessorNameString")) +
                  " (" + std::to_string(system.dwNumberOfProcessors) + " CPUs)");
    EXPECT_GT(std::stoull(After("Run Heap Size = ", header)), 0u);
}

TEST(Probes, VersionsAndTheHeapAreToldAsTheyAre)
{
    EXPECT_TRUE(LIsWindowsVersionOrGreater(5, 1));
    EXPECT_EQ(LIsWindowsVersionOrGreater(6, 0), !UnderWine());
    EXPECT_FALSE(LIsWindowsVersionOrGreater(99, 0));
    constexpr std::size_t size = 3'000'000;
    const std::uint64_t before = LGetRuntimeHeapSize();
    void* volatile block = std::malloc(size);
    const std::uint64_t with = LGetRuntimeHeapSize();
    std::free(block);
    EXPECT_GE(with - before, size);
    EXPECT_LT(with - before, size + 65536);
    EXPECT_EQ(LGetRuntimeHeapSize(), before);
}

TEST(Probes, AMissingLibraryIsReported)
{
    const TraceCapture trace;
    const LLibrary library("sndxmissing.dll");
    EXPECT_EQ(library.GetFunction("GetTickCount"), nullptr); // without a library nothing is missing in it
    EXPECT_EQ(trace.Texts(), Lines{"LDLLLoad Cannot load the dll: sndxmissing.dll"});
}

// Functions of Wine's for a scope: this program's import of GetProcAddress is replaced, natively the layer is
// told.
const char* Version()
{
    return "8.7";
}

const char* NoText()
{
    return nullptr;
}

const char* g_host[2];

void HostVersion(const char** system, const char** release)
{
    *system = g_host[0];
    *release = g_host[1];
}

std::map<std::string, void*> g_functions;

#ifdef _WIN32
FARPROC(WINAPI* g_original)(HMODULE, LPCSTR) = nullptr;

FARPROC WINAPI Replacement(HMODULE module, LPCSTR name)
{
    const bool byName = reinterpret_cast<ULONG_PTR>(name) >= 0x10000;
    return byName && g_functions.count(name) != 0 ? reinterpret_cast<FARPROC>(g_functions[name])
                                                  : g_original(module, name);
}
#endif

Lines WineLine(void* version, void* build, void* host)
{
    g_functions = {
        {"wine_get_version", version}, {"wine_get_build_id", build}, {"wine_get_host_version", host}};
#ifdef _WIN32
    DWORD protection = 0;
    VirtualProtect(&__imp_GetProcAddress, sizeof(void*), PAGE_READWRITE, &protection);
    g_original = std::exchange(__imp_GetProcAddress, &Replacement);
    const Lines lines = Traced(&LDebugTraceWineVersion);
    __imp_GetProcAddress = g_original;
    return lines;
#else
    const auto provide = [](bool there)
    {
        for (const auto& [name, function] : g_functions)
        {
            sndxposix::ProvideFunction(name.c_str(), there ? function : nullptr);
        }
    };
    provide(true);
    const Lines lines = Traced(&LDebugTraceWineVersion);
    provide(false);
    return lines;
#endif
}

TEST(Header, EveryWineIsNamedAsFarAsItTells)
{
    const auto address = [](auto* function) { return reinterpret_cast<void*>(function); };
    void* const version = address(&Version);
    void* const none = address(&NoText);
    void* const host = address(&HostVersion);
    EXPECT_EQ(WineLine(nullptr, version, host), Lines{"Running under wine"});
    EXPECT_EQ(WineLine(version, version, nullptr), Lines{"Running under wine version: 8.7"});
    for (const auto& [system, release] : {std::pair<const char*, const char*>{nullptr, nullptr},
                                          {"", "6.1"},
                                          {nullptr, "6.1"},
                                          {"Linux", ""},
                                          {"Linux", nullptr}})
    {
        g_host[0] = system;
        g_host[1] = release;
        EXPECT_EQ(WineLine(version, version, host), Lines{"Running under Wine version: 8.7, build: 8.7"});
    }
    EXPECT_EQ(WineLine(version, nullptr, host), Lines{"Running under Wine version: 8.7, build: unknown"});
    g_host[1] = "6";
    EXPECT_EQ(WineLine(none, none, host),
              Lines{"Running under Wine version: , build: unknown, Host version: Linux - 6"});
}

#ifdef _WIN32
// The heap of the host is locked for the figure.
TEST(Probes, TheHeapFigureOfALargeHostIsALowerBoundSoonHad)
{
    std::vector<void*> blocks(4'000'000);
    std::generate(blocks.begin(), blocks.end(), [] { return std::malloc(48); });
    for (std::size_t i = 0; i < blocks.size(); i += 2)
    {
        std::free(blocks[i]); // none beside another, so that the heap keeps two million pieces
    }
    const Stopwatch stopwatch;
    const std::uint64_t figure = LGetRuntimeHeapSize();
    EXPECT_LT(stopwatch.Milliseconds(), 200) << "20, and what a busy machine takes";
    EXPECT_GT(figure, 0u);
    EXPECT_LT(figure, 65536u * 4096u) << "the walk is bounded";
}
#else // the native registry is the process's own, and its calls can fail
TEST(Header, TheReleaseNumberOfWindows10)
{
    const TraceCapture trace;
    for (const auto& [text, shown] : {std::pair{"1809", "10.0 (1809)  64-bit"},
                                      {"1", "10.0 (1)  64-bit"},
                                      {"none", "10.0  64-bit"},
                                      {"-5", "10.0  64-bit"}})
    {
        SetMachineString("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ReleaseId", text);
        EXPECT_EQ(After("Windows Version: "), shown);
    }
    constexpr char failed[] = "LGetWindowsReleaseNumber RegGetString() failed";
    EXPECT_FALSE(Contains(trace.Texts(), failed));
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Microsoft\\Windows NT"));
    EXPECT_EQ(After("Windows Version: "), "10.0  64-bit");
    EXPECT_TRUE(Contains(trace.Texts(), failed));
}

TEST(Header, FailedProbesLeaveAFullHeader)
{
    const std::string name = "L\u00F6w" + std::string(253, 'p');
    SetMachineString("hardware\\description\\system\\CentralProcessor\\0", "ProcessorNameString", name);
    EXPECT_EQ(After("Processor Details: ").substr(0, 259), name + " (");
    EXPECT_EQ(After("Processor Details: ").size(), 260u) << "cut to the usual buffer";
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, TEXT("hardware"));
    EXPECT_EQ(After("Processor Details: ").substr(0, 2), " (");
    // Asked for Wine's version all the same, when there is no Wine.
    EXPECT_EQ(Traced(&LDebugTraceWineVersion), Lines{"Running under wine"});
    sndxposix::FailCall("GetModuleHandleW", ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(Traced(&LDebugTraceWineVersion), Lines());
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
}
#endif
} // namespace
