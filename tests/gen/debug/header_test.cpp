// The diagnostic header and the probes behind it. Expectations come from the system itself, asked in other
// words.

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/environment.h"
#include "gen/debug/header.h"
#include "tests/gen/reports.h"
#include "tests/support/child.h"
#include "tests/support/text.h"
#include "win32/library.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

template <class TFunction>
TFunction WineFunction(const char* name)
{
    return LFunctionCast<TFunction>(GetProcAddress(GetModuleHandleW(TEXT("ntdll.dll")), name));
}

bool UnderWine()
{
    return GetProcAddress(GetModuleHandleW(TEXT("kernel32.dll")), "wine_get_unix_file_name") != nullptr;
}

constexpr char missingFunction[] = "LDLLLoadFunctionNoError Cannot find the library function: ";

std::string ExpectedWineLine()
{
    const char* system = nullptr;
    const char* release = nullptr;
    WineFunction<void(__cdecl*)(const char**, const char**)>("wine_get_host_version")(&system, &release);
    return std::string("Running under Wine version: ") +
           WineFunction<const char*(__cdecl*)()>("wine_get_version")() +
           ", build: " + WineFunction<const char*(__cdecl*)()>("wine_get_build_id")() +
           ", Host version: " + system + " - " + release;
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
    return UnderWine()
               ? ""
               : MachineString(TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"), TEXT("ReleaseId"));
}

std::string ExpectedVersion()
{
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version));
    const std::string release = ExpectedRelease();
    return "Windows Version: " + std::to_string(version.dwMajorVersion) + "." +
           std::to_string(version.dwMinorVersion) + (release.empty() ? "" : " (" + release + ")") + " " +
           Utf8(version.szCSDVersion) + " 64-bit";
}

std::string ExpectedProcessor()
{
    SYSTEM_INFO system = {};
    GetNativeSystemInfo(&system);
    return "Processor Details: " +
           MachineString(TEXT("Hardware\\Description\\System\\CentralProcessor\\0"),
                         TEXT("ProcessorNameString")) +
           " (" + std::to_string(system.dwNumberOfProcessors) + " CPUs)";
}

std::string ExpectedScreen(const std::string& prefix, int width, int height)
{
    return prefix + std::to_string(GetSystemMetrics(width)) + " x " +
           std::to_string(GetSystemMetrics(height));
}

// Digits as '0', letters as 'a'.
std::string Shape(std::string text)
{
    for (char& c : text)
    {
        const auto u = static_cast<unsigned char>(c);
        c = std::isdigit(u) ? '0' : std::isalpha(u) ? 'a' : c;
    }
    return text;
}

TEST(Header, ItsLinesInTheirOrder)
{
    LIsRunningUnderWine(); // decided before, so that the probe leaves no line
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof(memory);
    GlobalMemoryStatusEx(&memory);
    const TraceCapture trace;
    const std::time_t before = std::time(nullptr);
    LDebugWriteHeader();
    const std::time_t after = std::time(nullptr);
    Lines texts = trace.Texts();
    ASSERT_GE(texts.size(), 14u);

    // What no two runs share.
    EXPECT_THAT(Shape(texts[1].substr(17)), ::testing::AnyOf("aaa 00 0000 00:00:00", "aaa  0 0000 00:00:00"));
    EXPECT_THAT((Lines{std::asctime(std::localtime(&before)), std::asctime(std::localtime(&after))}),
                ::testing::Contains(texts[2].substr(21)));
    EXPECT_GT(std::stoull(texts.back().substr(16)), 0u);
    EXPECT_EQ(texts.back(), "Run Heap Size = " + std::to_string(std::stoull(texts.back().substr(16))));
    texts[1].resize(17);
    texts[2].resize(21);
    texts.pop_back();

    Lines expected = {"DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535",
                      "Build Date/Time: ", "Execution Date/Time: ", "Target Processor: X64",
                      "Command line: " + Utf8(GetCommandLineW())};
    if (!UnderWine() && ExpectedRelease().empty())
    {
        expected.push_back("LGetWindowsReleaseNumber RegGetString() failed");
    }
    expected.push_back(ExpectedVersion());
    if (UnderWine())
    {
        expected.push_back(ExpectedWineLine());
    }
    for (const std::string& line :
         {ExpectedProcessor(), "System memory: " + std::to_string(memory.ullTotalPhys),
          ExpectedScreen("Virtual Screen resolution: ", SM_CXVIRTUALSCREEN, SM_CYVIRTUALSCREEN),
          ExpectedScreen("Primary Screen resolution: ", SM_CXSCREEN, SM_CYSCREEN),
          std::string("NOTE: This file should never be created on release version software."),
          std::string("      If it appears please contact Taleno Software Support."),
          std::string("--------------------------------------------------------------------")})
    {
        expected.push_back(line);
    }
    EXPECT_EQ(texts, expected);
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
    const auto commandLine =
        std::find_if(texts.begin(), texts.end(),
                     [](const std::string& text) { return text.starts_with("Command line: "); });
    ASSERT_NE(commandLine, texts.end());
    EXPECT_NE(commandLine->find("L\u00F6schen"), std::string::npos);
    EXPECT_GT(commandLine->size(), longArgument.size()) << "not cut to a shorter buffer";
    const std::string missing = std::string(missingFunction) + "wine_get_unix_file_name";
    if (UnderWine())
    {
        EXPECT_THAT(texts, ::testing::Not(::testing::Contains(missing)));
    }
    else
    {
        EXPECT_EQ(*(commandLine + 1), missing);
    }
}

TEST(Probes, TheVersionTestDoesNotTrustWine)
{
    EXPECT_EQ(LIsRunningUnderWine(), UnderWine());
    EXPECT_EQ(LIsRunningUnderWine(), UnderWine()) << "and stays decided";
    EXPECT_TRUE(LIsWindowsVersionOrGreater(5, 1));
    EXPECT_EQ(LIsWindowsVersionOrGreater(6, 0), !UnderWine());
    EXPECT_EQ(LIsWindowsVersionOrGreater(6, 4), !UnderWine());
    EXPECT_FALSE(LIsWindowsVersionOrGreater(99, 0));
    const std::string release = ExpectedRelease();
    EXPECT_EQ(LGetWindowsReleaseNumber(), release.empty() ? 0 : std::stoi(release));
}

TEST(Probes, LibraryFunctionsThatAreMissingAreReported)
{
    TraceCapture trace;
    EXPECT_EQ(LDLLLoad("nosuchlibrary.dll"), nullptr);
    const LLibrary missing("nosuch2.dll");
    EXPECT_EQ(missing.GetFunction("any"), nullptr) << "without a library there is no further report";
    EXPECT_EQ(LDLLLoadFunctionNoError(nullptr, "any"), nullptr);
    EXPECT_THAT(trace.Texts(), ElementsAre("LDLLLoad Cannot load the dll: nosuchlibrary.dll",
                                           "LDLLLoad Cannot load the dll: nosuch2.dll"));
    trace.Restart();
    const LLibrary kernel("kernel32.dll");
    EXPECT_EQ(kernel.GetFunction("NoSuchFunction"), nullptr);
    EXPECT_THAT(trace.Texts(), ElementsAre(std::string(missingFunction) + "NoSuchFunction"));
}

TEST(Probes, PhysicalMemoryAndHeapAreCounted)
{
    EXPECT_GT(LGetTotalPhysicalMemory(), 64u << 20);
    constexpr std::size_t size = 3'000'000;
    const std::uint64_t before = LGetRuntimeHeapSize();
    void* volatile block = std::malloc(size);
    const std::uint64_t with = LGetRuntimeHeapSize();
    std::free(block);
    const std::uint64_t after = LGetRuntimeHeapSize();
    EXPECT_GE(with - before, size);
    EXPECT_LT(with - before, size + 65536);
    EXPECT_EQ(after, before);
}
} // namespace
