// What the layer says about the system.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include <sys/sysinfo.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "sndx/system.h"

namespace sndxposix
{
namespace
{
constexpr DWORD majorVersion = 10;
constexpr DWORD minorVersion = 0;
constexpr DWORD buildNumber = 19045;

constexpr UINT_PTR lowestAddress = 0x10000;
constexpr UINT_PTR highestAddress = 0x7FFFFFFEFFFF;

struct ScreenSize
{
    int width = 1024;
    int height = 768;
};

// "WxH" in pixels; anything else is as if it were not set.
ScreenSize Screen()
{
    const char* const text = std::getenv("SENDORA_SCREEN");
    ScreenSize size;
    char rest;
    const bool isSize =
        text != nullptr && std::sscanf(text, "%dx%d%c", &size.width, &size.height, &rest) == 2;
    return isSize && size.width > 0 && size.height > 0 ? size : ScreenSize();
}
} // namespace

extern "C" void WINAPI GetSystemInfo(LPSYSTEM_INFO info)
{
    const long processors = std::clamp(sysconf(_SC_NPROCESSORS_ONLN), 1l, 64l);
    *info = {};
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    info->dwPageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    info->lpMinimumApplicationAddress = reinterpret_cast<LPVOID>(lowestAddress);
    info->lpMaximumApplicationAddress = reinterpret_cast<LPVOID>(highestAddress);
    info->dwActiveProcessorMask = ~DWORD_PTR{0} >> (64 - processors);
    info->dwNumberOfProcessors = static_cast<DWORD>(processors);
    info->dwProcessorType = 8664;
    info->dwAllocationGranularity = 65536;
}

extern "C" void WINAPI GetNativeSystemInfo(LPSYSTEM_INFO info)
{
    GetSystemInfo(info);
}

extern "C" BOOL WINAPI GlobalMemoryStatusEx(LPMEMORYSTATUSEX status)
{
    if (FailNextCall("GlobalMemoryStatusEx"))
    {
        return FALSE;
    }
    struct sysinfo information = {};
    if (status->dwLength != sizeof(*status) || sysinfo(&information) != 0)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    const DWORDLONG unit = information.mem_unit;
    status->ullTotalPhys = information.totalram * unit;
    status->ullAvailPhys = (information.freeram + information.bufferram) * unit;
    status->dwMemoryLoad = 100 - static_cast<DWORD>(status->ullAvailPhys * 100 / status->ullTotalPhys);
    status->ullTotalPageFile = status->ullTotalPhys + information.totalswap * unit;
    status->ullAvailPageFile = status->ullAvailPhys + information.freeswap * unit;
    status->ullTotalVirtual = highestAddress - lowestAddress;
    status->ullAvailVirtual = status->ullTotalVirtual;
    status->ullAvailExtendedVirtual = 0;
    return TRUE;
}

extern "C" BOOL WINAPI GetVersionExW(LPOSVERSIONINFOW info)
{
    if (FailNextCall("GetVersionExW"))
    {
        return FALSE;
    }
    const DWORD size = info->dwOSVersionInfoSize;
    if (size != sizeof(OSVERSIONINFOW) && size != sizeof(OSVERSIONINFOEXW))
    {
        return FailWith(ERROR_INSUFFICIENT_BUFFER);
    }
    if (size == sizeof(OSVERSIONINFOEXW))
    {
        OSVERSIONINFOEXW extended = {};
        extended.wProductType = VER_NT_WORKSTATION;
        *reinterpret_cast<LPOSVERSIONINFOEXW>(info) = extended;
    }
    *info = {size, majorVersion, minorVersion, buildNumber, VER_PLATFORM_WIN32_NT, {}};
    return TRUE;
}

extern "C" BOOL WINAPI VerifyVersionInfoW(LPOSVERSIONINFOEXW info, DWORD typeMask, DWORDLONG /*conditions*/)
{
    if (FailNextCall("VerifyVersionInfoW"))
    {
        return FALSE;
    }
    const auto asked = [&](DWORD type, DWORD part) { return (typeMask & type) != 0 ? part : 0; };
    // From the most significant part on; the first that differs decides. There is no service pack.
    const std::array<DWORD, 4> own = {asked(VER_MAJORVERSION, majorVersion),
                                      asked(VER_MINORVERSION, minorVersion)};
    const std::array<DWORD, 4> wanted = {asked(VER_MAJORVERSION, info->dwMajorVersion),
                                         asked(VER_MINORVERSION, info->dwMinorVersion),
                                         asked(VER_SERVICEPACKMAJOR, info->wServicePackMajor),
                                         asked(VER_SERVICEPACKMINOR, info->wServicePackMinor)};
    return own >= wanted || FailWith(ERROR_OLD_WIN_VERSION);
}

extern "C" ULONGLONG WINAPI VerSetConditionMask(ULONGLONG mask, DWORD typeMask, BYTE condition)
{
    return condition == VER_GREATER_EQUAL ? mask | typeMask : 0;
}

extern "C" int WINAPI GetSystemMetrics(int index)
{
    if (FailNextCall("GetSystemMetrics"))
    {
        return 0;
    }
    const bool isWidth = index == SM_CXSCREEN || index == SM_CXVIRTUALSCREEN;
    const bool isHeight = index == SM_CYSCREEN || index == SM_CYVIRTUALSCREEN;
    return isWidth ? Screen().width : isHeight ? Screen().height : 0;
}
} // namespace sndxposix
