// The diagnostic header and the probes behind it. Expectations come from the system itself, asked in other
// words.

#include <cctype>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/environment.h"
#include "gen/debug/header.h"
#include "tests/support/child.h"
#include "tests/support/reports.h"
#include "tests/support/text.h"
#include "win32/library.h"

namespace
{
using namespace sndxtest;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char missingFunction[] = "LDLLLoadFunctionNoError Cannot find the library function: ";
const WCHAR* const currentVersion = TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion");
const WCHAR* const processor = TEXT("Hardware\\Description\\System\\CentralProcessor\\0");

template <class TFunction>
TFunction WineFunction(const char* name)
{
    return LFunctionCast<TFunction>(GetProcAddress(GetModuleHandleW(TEXT("ntdll.dll")), name));
}

bool UnderWine()
{
    return GetProcAddress(GetModuleHandleW(TEXT("kernel32.dll")), "wine_get_unix_file_name") != nullptr;
}

std::string MachineString(const WCHAR* path, const WCHAR* name)
{
    WCHAR text[LSTR] = {};
    HKEY key = nullptr;
    DWORD size = sizeof(text) - sizeof(WCHAR);
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) == ERROR_SUCCESS)
    {
        RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
        RegCloseKey(key);
    }
    return Utf8(text);
}

// Wine has the value, too, but is not asked for it.
std::string ExpectedRelease()
{
    return UnderWine() ? "" : MachineString(currentVersion, TEXT("ReleaseId"));
}

// The lines of the version, of its probes before and of Wine behind.
Lines ExpectedVersion()
{
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version));
    const std::string release = ExpectedRelease();
    const std::string shown = release.empty() ? "" : " (" + release + ")";
    const std::string line = "Windows Version: " + std::to_string(version.dwMajorVersion) + "." +
                             std::to_string(version.dwMinorVersion) + shown + " " +
                             Utf8(version.szCSDVersion) + " 64-bit";
    if (!UnderWine())
    {
        return release.empty() ? Lines{"LGetWindowsReleaseNumber RegGetString() failed", line} : Lines{line};
    }
    const char* system = nullptr;
    const char* host = nullptr;
    WineFunction<void(__cdecl*)(const char**, const char**)>("wine_get_host_version")(&system, &host);
    return {line, std::string("Running under Wine version: ") +
                      WineFunction<const char*(__cdecl*)()>("wine_get_version")() +
                      ", build: " + WineFunction<const char*(__cdecl*)()>("wine_get_build_id")() +
                      ", Host version: " + system + " - " + host};
}

std::string ExpectedScreen(const std::string& prefix, int width, int height)
{
    return prefix + std::to_string(GetSystemMetrics(width)) + " x " +
           std::to_string(GetSystemMetrics(height));
}

TEST(Header, ItsLinesInTheirOrder)
{
    LIsRunningUnderWine(); // decided before, so that the probe leaves no line
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof(memory);
    GlobalMemoryStatusEx(&memory);
    SYSTEM_INFO system = {};
    GetNativeSystemInfo(&system);
    const std::time_t before = std::time(nullptr);
    Lines texts = Traced(&LDebugWriteHeader);
    const std::time_t after = std::time(nullptr);
    ASSERT_GE(texts.size(), 14u);

    // What no two runs share.
    std::string built = texts[1].substr(17);
    for (char& c : built)
    {
        const auto u = static_cast<unsigned char>(c);
        c = std::isdigit(u) ? '0' : std::isalpha(u) ? 'a' : c;
    }
    EXPECT_THAT(built, AnyOf("aaa 00 0000 00:00:00", "aaa  0 0000 00:00:00"));
    EXPECT_THAT((Lines{std::asctime(std::localtime(&before)), std::asctime(std::localtime(&after))}),
                Contains(texts[2].substr(21)));
    const std::uint64_t heapSize = std::stoull(texts.back().substr(16));
    EXPECT_GT(heapSize, 0u);
    texts[1].resize(17);
    texts[2].resize(21);

    EXPECT_EQ(texts,
              (Lines{"DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535",
                     "Build Date/Time: ", "Execution Date/Time: ", "Target Processor: X64",
                     "Command line: " + Utf8(GetCommandLineW())} +
               ExpectedVersion() +
               Lines{"Processor Details: " + MachineString(processor, TEXT("ProcessorNameString")) + " (" +
                         std::to_string(system.dwNumberOfProcessors) + " CPUs)",
                     "System memory: " + std::to_string(memory.ullTotalPhys),
                     ExpectedScreen("Virtual Screen resolution: ", SM_CXVIRTUALSCREEN, SM_CYVIRTUALSCREEN),
                     ExpectedScreen("Primary Screen resolution: ", SM_CXSCREEN, SM_CYSCREEN),
                     "NOTE: This file should never be created on release version software.",
                     "      If it appears please contact Taleno Software Support.",
                     "--------------------------------------------------------------------",
                     "Run Heap Size = " + std::to_string(heapSize)}));
}

SNDX_CHILD(Header)
{
    LDebugWriteHeader();
    return 0;
}

TEST(Header, TheFirstOneOfAProcessShowsWhatTheWineProbeFound)
{
    const TraceCapture trace;
    const std::string longArgument(8000, '\'');
    ASSERT_EQ(ChildProcess("Header", {"L\u00F6schen", longArgument}).Wait(), 0);
    const Lines texts = trace.Texts();
    ASSERT_GT(texts.size(), 10u);
    EXPECT_THAT(texts[4], HasSubstr("L\u00F6schen"));
    EXPECT_GT(texts[4].size(), longArgument.size()) << "not cut to a shorter buffer";
    EXPECT_EQ(texts[5] == std::string(missingFunction) + "wine_get_unix_file_name", !UnderWine());
}

TEST(Probes, TheVersionTestDoesNotTrustWine)
{
    EXPECT_EQ(LIsRunningUnderWine(), UnderWine());
    EXPECT_TRUE(LIsWindowsVersionOrGreater(5, 1));
    EXPECT_EQ(LIsWindowsVersionOrGreater(6, 0), !UnderWine());
    EXPECT_EQ(LIsWindowsVersionOrGreater(6, 4), !UnderWine());
    EXPECT_FALSE(LIsWindowsVersionOrGreater(99, 0));
    const std::string release = ExpectedRelease();
    EXPECT_EQ(LGetWindowsReleaseNumber(), release.empty() ? 0 : std::stoi(release));
}

TEST(Probes, PhysicalMemoryAndHeapAreCounted)
{
    EXPECT_GT(LGetTotalPhysicalMemory(), 64u << 20);
    constexpr std::size_t size = 3'000'000;
    const std::uint64_t before = LGetRuntimeHeapSize();
    void* volatile block = std::malloc(size);
    const std::uint64_t with = LGetRuntimeHeapSize();
    std::free(block);
    EXPECT_GE(with - before, size);
    EXPECT_LT(with - before, size + 65536);
    EXPECT_EQ(LGetRuntimeHeapSize(), before);
}
} // namespace
