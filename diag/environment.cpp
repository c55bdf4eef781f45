#include "diag/environment.h"

#include <atomic>
#include <initializer_list>

#include <malloc.h>

#include "gen/debug.h"
#include "gen/stringtools.h"
#include "win32/library.h"
#include "win32/settings.h"

namespace
{
// -1 unknown, 1 Wine, 0 not Wine.
constinit std::atomic<std::int32_t> g_nWine{-1};

const char* TextOr(const char* szText, const char* szDefault)
{
    return szText == nullptr ? szDefault : szText;
}
} // namespace

bool LIsRunningUnderWine()
{
    std::int32_t nWine = g_nWine.load(std::memory_order_relaxed);
    if (nWine < 0)
    {
        const LLibrary kernel("kernel32.dll");
        nWine = kernel.GetFunction("wine_get_unix_file_name") != nullptr ? 1 : 0;
        g_nWine.store(nWine, std::memory_order_relaxed);
    }
    return nWine == 1;
}

void LDebugTraceWineVersion()
{
    using GetText = const char*(__cdecl*)();
    using GetHostVersion = void(__cdecl*)(const char**, const char**);

    const HMODULE hNtdll = GetModuleHandleW(TEXT("ntdll.dll"));
    if (hNtdll == nullptr)
    {
        return;
    }
    const auto getVersion = LFunctionCast<GetText>(GetProcAddress(hNtdll, "wine_get_version"));
    const auto getBuildId = LFunctionCast<GetText>(GetProcAddress(hNtdll, "wine_get_build_id"));
    const auto getHost = LFunctionCast<GetHostVersion>(GetProcAddress(hNtdll, "wine_get_host_version"));
    if (getVersion == nullptr)
    {
        LDebugTrace("Running under wine");
        return;
    }
    if (getHost == nullptr)
    {
        LDebugTrace("Running under wine version: ", getVersion());
        return;
    }
    const char* szVersion = TextOr(getVersion(), "");
    // The three functions came together; a Wine without the build's name would be a strange one.
    const char* szBuild = getBuildId == nullptr ? "unknown" : TextOr(getBuildId(), "unknown");
    const char* szSystem = nullptr;
    const char* szRelease = nullptr;
    getHost(&szSystem, &szRelease);
    if (szSystem != nullptr && szSystem[0] != 0 && szRelease != nullptr && szRelease[0] != 0)
    {
        LDebugTraceF("Running under Wine version: %s, build: %s, Host version: %s - %s", szVersion, szBuild,
                     szSystem, szRelease);
    }
    else
    {
        LDebugTraceF("Running under Wine version: %s, build: %s", szVersion, szBuild);
    }
}

bool LIsWindowsVersionOrGreater(std::uint32_t uMajor, std::uint32_t uMinor)
{
    if (LIsRunningUnderWine() && uMajor >= 6)
    {
        return false;
    }
    constexpr DWORD uParts =
        VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR | VER_SERVICEPACKMINOR;
    static_assert(uParts == 0x33);
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    version.dwMajorVersion = uMajor;
    version.dwMinorVersion = uMinor;
    DWORDLONG uConditions = 0;
    for (const DWORD uPart : {VER_MAJORVERSION, VER_MINORVERSION, VER_SERVICEPACKMAJOR, VER_SERVICEPACKMINOR})
    {
        uConditions = VerSetConditionMask(uConditions, uPart, VER_GREATER_EQUAL);
    }
    return VerifyVersionInfoW(&version, uParts, uConditions) != FALSE;
}

std::int32_t LGetWindowsReleaseNumber()
{
    if (!LIsWindowsVersionOrGreater(6, 4))
    {
        return 0;
    }
    WCHAR szRelease[LSTR];
    if (!RegGetString(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"),
                      TEXT("ReleaseId"), TEXT(""), szRelease))
    {
        LDebugTraceFunction("LGetWindowsReleaseNumber", false, "RegGetString() failed");
        return 0;
    }
    return ttoi(szRelease);
}

std::uint64_t LGetTotalPhysicalMemory()
{
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof(status);
    return GlobalMemoryStatusEx(&status) ? status.ullTotalPhys : 4294967295u;
}

std::uint64_t LGetRuntimeHeapSize()
{
    constexpr std::uint32_t uMostEntries = 65536; // blocks in use, free ones and the heap's own
    constexpr std::uint32_t uMostMs = 20;
    const auto hHeap = reinterpret_cast<HANDLE>(_get_heap_handle());
    // The heap is locked, and the loader's lock is held: other threads of the host that want either wait. So
    // the walk ends after so many entries or so much time, whichever comes first (contract.md L14); what a
    // single step costs is the system's.
    if (!HeapLock(hHeap))
    {
        return 0;
    }
    std::uint64_t uBytes = 0;
    PROCESS_HEAP_ENTRY entry = {};
    const std::uint32_t uStart = GetTickCount();
    for (std::uint32_t i = 0;
         i < uMostEntries && GetTickCount() - uStart < uMostMs && HeapWalk(hHeap, &entry); ++i)
    {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0)
        {
            uBytes += entry.cbData;
        }
    }
    HeapUnlock(hHeap);
    return uBytes;
}
