#include "diag/header.h"

#include <time.h>

#include "diag/buildstamp.h"
#include "diag/environment.h"
#include "gen/debug.h"
#include "gen/stringtools.h"
#include "win32/settings.h"

namespace
{
void WriteExecutionDate()
{
    const time_t now = time(nullptr);
    const tm* pLocal = localtime(&now);
    // The runtime's text ends in a line feed, which stays in the line (contract.md T15, O16).
    LDebugTraceValue("Execution Date/Time: ", pLocal == nullptr ? "" : asctime(pLocal), false);
}

void WriteWindowsVersion()
{
    WCHAR szRelease[LSTR] = {0};
    const std::int32_t nRelease = LGetWindowsReleaseNumber();
    if (nRelease > 0)
    {
        tsnprintf(szRelease, LSTR, TEXT(" (%d)"), static_cast<int>(nRelease));
    }
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    if (!GetVersionExW(&version))
    {
        version = {};
    }
    WCHAR szVersion[LSTR];
    tsnprintf(szVersion, LSTR, TEXT("%d.%d%s %s %s"), static_cast<int>(version.dwMajorVersion),
              static_cast<int>(version.dwMinorVersion), szRelease, version.szCSDVersion,
              sizeof(void*) == 8 ? TEXT("64-bit") : TEXT("32-bit"));
    LDebugTraceValue(TEXT("Windows Version: "), szVersion, false);
}

void WriteProcessor()
{
    WCHAR szName[LSTR];
    RegGetString(HKEY_LOCAL_MACHINE, TEXT("hardware\\description\\system\\CentralProcessor\\0"),
                 TEXT("ProcessorNameString"), TEXT(""), szName);
    SYSTEM_INFO system = {};
    GetNativeSystemInfo(&system);
    WCHAR szDetails[LSTR];
    tsnprintf(szDetails, LSTR, TEXT("%s (%d CPUs)"), szName, static_cast<int>(system.dwNumberOfProcessors));
    LDebugTraceValue(TEXT("Processor Details: "), szDetails, false);
}

void WriteMemory()
{
    WCHAR szBytes[LSTR];
    tsnprintf(szBytes, LSTR, TEXT("%llu"), static_cast<unsigned long long>(LGetTotalPhysicalMemory()));
    LDebugTraceValue(TEXT("System memory: "), szBytes, false);
}

void WriteScreen(const WCHAR* szPrefix, int nWidthIndex, int nHeightIndex)
{
    WCHAR szSize[LSTR];
    tsnprintf(szSize, LSTR, TEXT("%d x %d"), GetSystemMetrics(nWidthIndex), GetSystemMetrics(nHeightIndex));
    LDebugTraceValue(szPrefix, szSize, false);
}
} // namespace

void LDebugWriteHeader() // contract.md T14
{
    LDebugWriteLineW(TEXT("DIAGNOSTIC VERSION TRACE Sendora File Transfer v. 3.00 r. 455535"), false);
    LDebugTraceValue("Build Date/Time: ", g_szBuildStamp, false);
    WriteExecutionDate();
    LDebugTrace("Target Processor: X64");
    LDebugTraceValue(TEXT("Command line: "), GetCommandLineW(), false);
    WriteWindowsVersion();
    if (LIsRunningUnderWine())
    {
        LDebugTraceWineVersion();
    }
    WriteProcessor();
    WriteMemory();
    WriteScreen(TEXT("Virtual Screen resolution: "), SM_CXVIRTUALSCREEN, SM_CYVIRTUALSCREEN);
    WriteScreen(TEXT("Primary Screen resolution: "), SM_CXSCREEN, SM_CYSCREEN);
    LDebugTrace("NOTE: This file should never be created on release version software.");
    LDebugTrace("      If it appears please contact Taleno Software Support.");
    LDebugTrace("--------------------------------------------------------------------");
    LDebugTraceF("Run Heap Size = %u", static_cast<unsigned>(LGetRuntimeHeapSize()));
}
