// What the header says of Wines that lack some of its functions: this program's import of GetProcAddress is
// replaced, which works on PE programs only. And the cost of its heap figure, which the native layer gives as
// one sum.

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

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

// How long the heap of the host is locked, in milliseconds.
long long HeapFigureMs(std::uint64_t& figure)
{
    const auto start = std::chrono::steady_clock::now();
    figure = LGetRuntimeHeapSize();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

TEST(HeaderWindows, TheHeapFigureOfALargeHostIsALowerBoundSoonHad)
{
    constexpr long long longest = 200; // milliseconds: 20 and what a busy machine takes
    constexpr std::size_t size = 48;
    const auto allocate = [](std::vector<void*>& blocks, std::size_t count)
    {
        while (blocks.size() < count)
        {
            blocks.push_back(std::malloc(size));
        }
    };
    std::vector<void*> blocks;
    blocks.reserve(4'000'000);
    std::uint64_t figure = 0;
    allocate(blocks, 100'000);
    const long long live = HeapFigureMs(figure);
    EXPECT_LT(live, longest);
    EXPECT_GT(figure, 0u);
    allocate(blocks, 4'000'000);
    for (std::size_t i = 0; i < blocks.size(); i += 2)
    {
        std::free(blocks[i]); // none beside another, so that the heap keeps two million pieces
    }
    const long long fragmented = HeapFigureMs(figure);
    EXPECT_LT(fragmented, longest);
    EXPECT_GT(figure, 0u);
    EXPECT_LT(figure, 65536u * 4096u) << "the walk is bounded";
    std::printf("100,000 blocks: %lld ms; 2,000,000 freed among as many: %lld ms\n", live, fragmented);
}
} // namespace
