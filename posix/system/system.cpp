// What the layer says about the system.

#include <array>

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

} // namespace

extern "C" void WINAPI GetSystemInfo(LPSYSTEM_INFO info)
{
    *info = {};
    info->dwPageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    info->dwNumberOfProcessors = static_cast<DWORD>(sysconf(_SC_NPROCESSORS_ONLN));
}

extern "C" void WINAPI GetNativeSystemInfo(LPSYSTEM_INFO info)
{
    GetSystemInfo(info);
}

extern "C" BOOL WINAPI GlobalMemoryStatusEx(LPMEMORYSTATUSEX status)
{
    if (FailNextCall("GlobalMemoryStatusEx", {status}))
    {
        return FALSE;
    }
    struct sysinfo information = {};
    if (status->dwLength != sizeof(*status) || sysinfo(&information) != 0)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    *status = {};
    status->dwLength = sizeof(*status);
    status->ullTotalPhys = DWORDLONG{information.totalram} * information.mem_unit;
    return TRUE;
}

extern "C" BOOL WINAPI GetVersionExW(LPOSVERSIONINFOW info)
{
    if (FailNextCall("GetVersionExW", {info}))
    {
        return FALSE;
    }
    const DWORD size = info->dwOSVersionInfoSize;
    if (size != sizeof(OSVERSIONINFOW))
    {
        return FailWith(ERROR_INSUFFICIENT_BUFFER);
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
    return isWidth ? 1024 : isHeight ? 768 : 0;
}
} // namespace sndxposix
