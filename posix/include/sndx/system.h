#pragma once
// What the layer says about the system: the machine's own figures, and Windows 10.0 build 19045. Figures that
// nobody asks for are 0.

#include "sndx/types.h"

struct SYSTEM_INFO
{
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};
using LPSYSTEM_INFO = SYSTEM_INFO*;
static_assert(sizeof(SYSTEM_INFO) == 48);

struct MEMORYSTATUSEX
{
    DWORD dwLength; // sizeof(MEMORYSTATUSEX), set by the caller
    DWORD dwMemoryLoad;
    DWORDLONG ullTotalPhys;
    DWORDLONG ullAvailPhys;
    DWORDLONG ullTotalPageFile;
    DWORDLONG ullAvailPageFile;
    DWORDLONG ullTotalVirtual;
    DWORDLONG ullAvailVirtual;
    DWORDLONG ullAvailExtendedVirtual;
};
using LPMEMORYSTATUSEX = MEMORYSTATUSEX*;
static_assert(sizeof(MEMORYSTATUSEX) == 64);

struct OSVERSIONINFOW
{
    DWORD dwOSVersionInfoSize; // set by the caller
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
using LPOSVERSIONINFOW = OSVERSIONINFOW*;
static_assert(sizeof(OSVERSIONINFOW) == 276);

struct OSVERSIONINFOEXW : OSVERSIONINFOW
{
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
using LPOSVERSIONINFOEXW = OSVERSIONINFOEXW*;
static_assert(sizeof(OSVERSIONINFOEXW) == 284);

#define VER_PLATFORM_WIN32_NT 2

#define VER_MINORVERSION 0x01u
#define VER_MAJORVERSION 0x02u
#define VER_SERVICEPACKMINOR 0x10u
#define VER_SERVICEPACKMAJOR 0x20u

#define VER_GREATER_EQUAL 3

#define SM_CXSCREEN 0
#define SM_CYSCREEN 1
#define SM_CXVIRTUALSCREEN 78
#define SM_CYVIRTUALSCREEN 79

extern "C"
{
    void WINAPI GetSystemInfo(LPSYSTEM_INFO info);
    void WINAPI GetNativeSystemInfo(LPSYSTEM_INFO info);
    BOOL WINAPI GlobalMemoryStatusEx(LPMEMORYSTATUSEX status);

    BOOL WINAPI GetVersionExW(LPOSVERSIONINFOW info);
    // Whether the system is not older, with major, minor and service pack taken as one number; error 1150
    // otherwise. VER_GREATER_EQUAL is the only condition.
    BOOL WINAPI VerifyVersionInfoW(LPOSVERSIONINFOEXW info, DWORD typeMask, DWORDLONG conditionMask);
    ULONGLONG WINAPI VerSetConditionMask(ULONGLONG mask, DWORD typeMask, BYTE condition);

    // A screen of 1024 by 768 pixels; 0 for other figures than its width and height.
    int WINAPI GetSystemMetrics(int index);
}
