// What the header says of Wines that lack some of its functions, and of a Windows: this program's import of
// GetProcAddress is replaced, which works on PE programs only.

#include <set>
#include <string>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/environment.h"
#include "gen/debug/header.h"
#include "tests/support/child.h"
#include "tests/support/tracefile.h"

// The program's own slot for the import.
extern "C" FARPROC(WINAPI* __imp_GetProcAddress)(HMODULE, LPCSTR);

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;

std::set<std::string> g_missing;
FARPROC(WINAPI* g_original)(HMODULE, LPCSTR) = nullptr;

const char* WINAPI Version()
{
    return "8.7";
}

void NoHostVersion(const char** system, const char** release)
{
    *system = "";
    *release = "6.1";
}

FARPROC WINAPI Replacement(HMODULE module, LPCSTR name)
{
    const std::string function = reinterpret_cast<ULONG_PTR>(name) < 0x10000 ? "" : name;
    if (g_missing.contains(function))
    {
        return nullptr;
    }
    const auto replace = [](auto* p) { return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(p)); };
    if (function == "wine_get_version" || function == "wine_get_build_id")
    {
        return replace(&Version);
    }
    return function == "wine_get_host_version" ? replace(&NoHostVersion) : g_original(module, name);
}

class WithoutFunctions
{
  public:
    explicit WithoutFunctions(const std::set<std::string>& missing)
    {
        g_missing = missing;
        g_original = __imp_GetProcAddress;
        Store(&Replacement);
    }
    ~WithoutFunctions() { Store(g_original); }

  private:
    static void Store(FARPROC(WINAPI* function)(HMODULE, LPCSTR))
    {
        DWORD protection = 0;
        VirtualProtect(&__imp_GetProcAddress, sizeof(void*), PAGE_READWRITE, &protection);
        __imp_GetProcAddress = function;
        VirtualProtect(&__imp_GetProcAddress, sizeof(void*), protection, &protection);
    }
};

TEST(HeaderWindows, WinesThatLackFunctions)
{
    const TraceCapture trace;
    for (const std::set<std::string>& missing :
         {std::set<std::string>{"wine_get_version"}, {"wine_get_host_version"}, {}, {"wine_get_build_id"}})
    {
        const WithoutFunctions replaced(missing);
        LDebugTraceWineVersion();
    }
    EXPECT_THAT(trace.Texts(), ElementsAre("Running under wine", "Running under wine version: 8.7",
                                           "Running under Wine version: 8.7, build: 8.7",
                                           "Running under Wine version: 8.7, build: unknown"));
}

// The probe for Wine is decided once in a process.
SNDX_CHILD(OnWindows)
{
    const WithoutFunctions replaced({"wine_get_unix_file_name"});
    LDebugWriteHeader();
    return LIsRunningUnderWine() || !LIsWindowsVersionOrGreater(6, 0) || LIsWindowsVersionOrGreater(99, 0)
               ? 1
               : 0;
}

TEST(HeaderWindows, AWindowsHasNoWineLinesAndAReportOfTheProbe)
{
    const TraceCapture trace;
    EXPECT_EQ(ChildProcess("OnWindows", {}).Wait(), 0);
    const std::vector<std::string> texts = trace.Texts();
    ASSERT_GT(texts.size(), 8u);
    EXPECT_EQ(texts[5], "LDLLLoadFunctionNoError Cannot find the library function: wine_get_unix_file_name");
    EXPECT_THAT(texts[6], ::testing::StartsWith("Windows Version: "));
    EXPECT_THAT(texts[7], ::testing::StartsWith("Processor Details: "));
}
} // namespace
