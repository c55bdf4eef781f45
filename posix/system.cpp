// What the layer says about the system.

#include "sndx/system.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

#include <sys/sysinfo.h>
#include <unistd.h>

#include "posix/internal.h"

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
    if (text == nullptr)
    {
        return {};
    }
    const char* const end = text + std::string_view(text).size();
    ScreenSize size;
    const auto [middle, widthError] = std::from_chars(text, end, size.width);
    if (widthError != std::errc() || middle == end || *middle != 'x')
    {
        return {};
    }
    const auto [rest, heightError] = std::from_chars(middle + 1, end, size.height);
    return heightError == std::errc() && rest == end && size.width > 0 && size.height > 0 ? size
                                                                                          : ScreenSize{};
}

// Bits of a condition mask that hold one part's condition.
constexpr unsigned bitsOfACondition = 3;

unsigned ConditionShift(DWORD type)
{
    unsigned part = 0;
    while ((type >> part & 1) == 0)
    {
        ++part;
    }
    return part * bitsOfACondition;
}

BYTE ConditionOf(DWORDLONG mask, DWORD type)
{
    return static_cast<BYTE>(mask >> ConditionShift(type) & 7);
}

bool Holds(BYTE condition, DWORD own, DWORD wanted)
{
    switch (condition)
    {
    case VER_EQUAL:
        return own == wanted;
    case VER_GREATER:
        return own > wanted;
    case VER_GREATER_EQUAL:
        return own >= wanted;
    case VER_LESS:
        return own < wanted;
    case VER_LESS_EQUAL:
        return own <= wanted;
    default:
        return false;
    }
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
    if (sndxposix::FailNextCall("GlobalMemoryStatusEx"))
    {
        return FALSE;
    }
    struct sysinfo information = {};
    if (status->dwLength != sizeof(*status) || sysinfo(&information) != 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
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
    if (sndxposix::FailNextCall("GetVersionExW"))
    {
        return FALSE;
    }
    const DWORD size = info->dwOSVersionInfoSize;
    if (size != sizeof(OSVERSIONINFOW) && size != sizeof(OSVERSIONINFOEXW))
    {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
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

extern "C" BOOL WINAPI VerifyVersionInfoW(LPOSVERSIONINFOEXW info, DWORD typeMask, DWORDLONG conditionMask)
{
    if (sndxposix::FailNextCall("VerifyVersionInfoW"))
    {
        return FALSE;
    }
    struct Part
    {
        DWORD type;
        DWORD own;
        DWORD wanted;
    };
    // From the most significant part on; the first that differs decides.
    const Part parts[] = {
        {VER_MAJORVERSION, majorVersion, info->dwMajorVersion},
        {VER_MINORVERSION, minorVersion, info->dwMinorVersion},
        {VER_SERVICEPACKMAJOR, 0, info->wServicePackMajor},
        {VER_SERVICEPACKMINOR, 0, info->wServicePackMinor},
    };
    constexpr DWORD knownTypes =
        VER_MAJORVERSION | VER_MINORVERSION | VER_BUILDNUMBER | VER_SERVICEPACKMAJOR | VER_SERVICEPACKMINOR;
    if (typeMask == 0 || (typeMask & ~knownTypes) != 0)
    {
        SetLastError(ERROR_BAD_ARGUMENTS);
        return FALSE;
    }
    bool meets = (typeMask & VER_BUILDNUMBER) == 0 ||
                 Holds(ConditionOf(conditionMask, VER_BUILDNUMBER), buildNumber, info->dwBuildNumber);
    const Part* deciding = nullptr;
    for (const Part& part : parts)
    {
        if ((typeMask & part.type) != 0 && (deciding == nullptr || deciding->own == deciding->wanted))
        {
            deciding = &part;
        }
    }
    if (deciding != nullptr)
    {
        meets = meets && Holds(ConditionOf(conditionMask, deciding->type), deciding->own, deciding->wanted);
    }
    if (!meets)
    {
        SetLastError(ERROR_OLD_WIN_VERSION);
    }
    return meets ? TRUE : FALSE;
}

extern "C" ULONGLONG WINAPI VerSetConditionMask(ULONGLONG mask, DWORD typeMask, BYTE condition)
{
    return typeMask == 0 ? mask : mask | ULONGLONG{condition & 7u} << ConditionShift(typeMask);
}

extern "C" int WINAPI GetSystemMetrics(int index)
{
    if (sndxposix::FailNextCall("GetSystemMetrics"))
    {
        return 0;
    }
    switch (index)
    {
    case SM_CXSCREEN:
    case SM_CXVIRTUALSCREEN:
        return Screen().width;
    case SM_CYSCREEN:
    case SM_CYVIRTUALSCREEN:
        return Screen().height;
    default:
        return 0;
    }
}
