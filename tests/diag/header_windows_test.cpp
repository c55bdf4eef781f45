// What the header says of Wines that lack some of its functions: this program's import of GetProcAddress is
// replaced, which works on PE programs only.

#include <string>
#include <utility>

#include <gmock/gmock.h>

#include "diag/environment.h"
#include "tests/support/tracefile.h"

// The program's own slot for the import.
extern "C" FARPROC(WINAPI* __imp_GetProcAddress)(HMODULE, LPCSTR);

namespace
{
FARPROC(WINAPI* g_original)(HMODULE, LPCSTR) = nullptr;
std::string g_missing;

const char* Version()
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
    const auto replace = [](auto* p) { return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(p)); };
    return function == g_missing                                               ? nullptr
           : function == "wine_get_version" || function == "wine_get_build_id" ? replace(&Version)
           : function == "wine_get_host_version"                               ? replace(&NoHostVersion)
                                                                               : g_original(module, name);
}

TEST(HeaderWindows, WinesThatLackFunctions)
{
    const sndxtest::TraceCapture trace;
    DWORD protection = 0;
    VirtualProtect(&__imp_GetProcAddress, sizeof(void*), PAGE_READWRITE, &protection);
    g_original = std::exchange(__imp_GetProcAddress, &Replacement);
    for (const char* missing : {"wine_get_version", "wine_get_host_version", "none", "wine_get_build_id"})
    {
        g_missing = missing;
        LDebugTraceWineVersion();
    }
    __imp_GetProcAddress = g_original;
    EXPECT_THAT(trace.Texts(), testing::ElementsAre("Running under wine", "Running under wine version: 8.7",
                                                    "Running under Wine version: 8.7, build: 8.7",
                                                    "Running under Wine version: 8.7, build: unknown"));
}
} // namespace
