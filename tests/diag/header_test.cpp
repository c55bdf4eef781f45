// The lines of the diagnostic header that no two systems share, and the probes behind them. The header as a
// whole is tested with the module's load.

#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "diag/environment.h"
#include "diag/header.h"
#include "tests/support/reports.h"
#include "win32/library.h"
#include "win32/settings.h"

namespace
{
using namespace sndxtest;
using ::testing::AnyOf;

bool UnderWine()
{
    return GetProcAddress(GetModuleHandleW(TEXT("kernel32.dll")), "wine_get_unix_file_name") != nullptr;
}

// What a function of Wine's answers.
template <class TResult, class... TArguments>
TResult AskWine(const char* name, TArguments... arguments)
{
    const FARPROC function = GetProcAddress(GetModuleHandleW(TEXT("ntdll.dll")), name);
    return LFunctionCast<TResult(__cdecl*)(TArguments...)>(function)(arguments...);
}

std::string MachineString(const WCHAR* path, const WCHAR* name)
{
    WCHAR text[LSTR];
    RegGetString(HKEY_LOCAL_MACHINE, path, name, TEXT(""), text);
    return Utf8(text);
}

// The lines of the version. Wine has a release, too, but is not asked for it.
Lines ExpectedVersion()
{
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExW(&version);
    const std::string release =
        MachineString(TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"), TEXT("ReleaseId"));
    const std::string shown = UnderWine() ? "" : " (" + release + ")";
    const std::string line = "Windows Version: " + std::to_string(version.dwMajorVersion) + "." +
                             std::to_string(version.dwMinorVersion) + shown + " " +
                             Utf8(version.szCSDVersion) + " 64-bit";
    if (!UnderWine())
    {
        return {line};
    }
    const char* system = nullptr;
    const char* host = nullptr;
    AskWine<void>("wine_get_host_version", &system, &host);
    return {line, std::string("Running under Wine version: ") + AskWine<const char*>("wine_get_version") +
                      ", build: " + AskWine<const char*>("wine_get_build_id") + ", Host version: " + system +
                      " - " + host};
}

TEST(Header, TellsWhereItWasWritten)
{
    EXPECT_EQ(LIsRunningUnderWine(), UnderWine()); // decided before, so that the probe leaves no line
    SYSTEM_INFO system = {};
    GetNativeSystemInfo(&system);
    const std::time_t before = std::time(nullptr);
    const Lines texts = Traced(&LDebugWriteHeader);
    const std::time_t after = std::time(nullptr);
    ASSERT_GE(texts.size(), 14u);
    const std::regex built("Build Date/Time: [A-Z][a-z]{2} [ 1-3][0-9] 20[0-9]{2} [0-9:]{8}");
    EXPECT_TRUE(std::regex_match(texts[1], built)) << texts[1];
    const std::string executed = "Execution Date/Time: ";
    EXPECT_THAT(texts[2], AnyOf(executed + std::asctime(std::localtime(&before)),
                                executed + std::asctime(std::localtime(&after))));
    const Lines version = ExpectedVersion();
    EXPECT_EQ(Lines(texts.begin() + 5, texts.begin() + 5 + std::ssize(version)), version);
    const std::string processor = MachineString(TEXT("Hardware\\Description\\System\\CentralProcessor\\0"),
                                                TEXT("ProcessorNameString"));
    EXPECT_EQ(texts[5 + version.size()], "Processor Details: " + processor + " (" +
                                             std::to_string(system.dwNumberOfProcessors) + " CPUs)");
    EXPECT_EQ(texts[texts.size() - 2],
              "--------------------------------------------------------------------");
    const std::string heap = "Run Heap Size = ";
    EXPECT_GT(std::stoull(texts.back().substr(heap.size())), 0u);
    EXPECT_EQ(texts.back().substr(0, heap.size()), heap);
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
} // namespace
