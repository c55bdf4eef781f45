// What the system says about itself.

#include <string>

#include <gtest/gtest.h>

#include <windows.h>

namespace
{
bool Meets(DWORD major, DWORD minor, BYTE condition, WORD servicePack = 0)
{
    OSVERSIONINFOEXW wanted = {};
    wanted.dwOSVersionInfoSize = sizeof(wanted);
    wanted.dwMajorVersion = major;
    wanted.dwMinorVersion = minor;
    wanted.wServicePackMajor = servicePack;
    const DWORD types = VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR | VER_SERVICEPACKMINOR;
    ULONGLONG conditions = 0;
    for (const DWORD type : {DWORD{VER_MAJORVERSION}, DWORD{VER_MINORVERSION}, DWORD{VER_SERVICEPACKMAJOR},
                             DWORD{VER_SERVICEPACKMINOR}})
    {
        VER_SET_CONDITION(conditions, type, condition);
    }
    SetLastError(0);
    const BOOL meets = VerifyVersionInfoW(&wanted, types, conditions);
    EXPECT_EQ(meets ? DWORD{0} : DWORD{ERROR_OLD_WIN_VERSION}, GetLastError());
    return meets != FALSE;
}

TEST(System, Processors)
{
    SYSTEM_INFO info = {};
    GetNativeSystemInfo(&info);
    EXPECT_EQ(PROCESSOR_ARCHITECTURE_AMD64, info.wProcessorArchitecture);
    EXPECT_EQ(4096u, info.dwPageSize);
    EXPECT_EQ(65536u, info.dwAllocationGranularity);
    EXPECT_GE(info.dwNumberOfProcessors, 1u);
    EXPECT_LT(info.lpMinimumApplicationAddress, info.lpMaximumApplicationAddress);
    EXPECT_GT(reinterpret_cast<UINT_PTR>(info.lpMaximumApplicationAddress),
              reinterpret_cast<UINT_PTR>(&info));

    SYSTEM_INFO same = {};
    GetSystemInfo(&same);
    EXPECT_EQ(info.dwPageSize, same.dwPageSize);
    EXPECT_EQ(info.dwNumberOfProcessors, same.dwNumberOfProcessors);
}

TEST(System, Memory)
{
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof(status);
    ASSERT_TRUE(GlobalMemoryStatusEx(&status));
    EXPECT_GT(status.ullTotalPhys, 64ull << 20);
    EXPECT_LE(status.ullAvailPhys, status.ullTotalPhys);
    EXPECT_LE(status.dwMemoryLoad, 100u);
    status.dwLength = 8;
    SetLastError(0);
    EXPECT_FALSE(GlobalMemoryStatusEx(&status));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
}

TEST(System, Version)
{
    OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    ASSERT_TRUE(GetVersionExW(&info));
    EXPECT_EQ(DWORD{VER_PLATFORM_WIN32_NT}, info.dwPlatformId);
    EXPECT_GE(info.dwMajorVersion * 100 + info.dwMinorVersion, 601u);
    OSVERSIONINFOEXW extended = {};
    extended.dwOSVersionInfoSize = sizeof(extended);
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&extended)));
    EXPECT_EQ(info.dwMajorVersion, extended.dwMajorVersion);
    EXPECT_EQ(info.dwBuildNumber, extended.dwBuildNumber);
    EXPECT_EQ(VER_NT_WORKSTATION, extended.wProductType);
    info.dwOSVersionInfoSize = 3;
    EXPECT_FALSE(GetVersionExW(&info));
}

TEST(System, VersionConditions)
{
    OSVERSIONINFOEXW own = {};
    own.dwOSVersionInfoSize = sizeof(own);
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&own)));
    const DWORD major = own.dwMajorVersion;
    const DWORD minor = own.dwMinorVersion;
    EXPECT_TRUE(Meets(major, minor, VER_GREATER_EQUAL, own.wServicePackMajor));
    EXPECT_TRUE(Meets(major, minor, VER_EQUAL, own.wServicePackMajor));
    EXPECT_FALSE(Meets(major, minor, VER_GREATER_EQUAL, static_cast<WORD>(own.wServicePackMajor + 1)));
    EXPECT_FALSE(Meets(major, minor + 1, VER_GREATER_EQUAL));
    EXPECT_FALSE(Meets(major + 1, 0, VER_GREATER_EQUAL));
    // The parts count as one number: a higher minor version of a lower major one is older.
    EXPECT_TRUE(Meets(major - 1, minor + 50, VER_GREATER_EQUAL, 99));
    EXPECT_TRUE(Meets(5, 1, VER_GREATER_EQUAL));
    EXPECT_TRUE(Meets(major, minor + 1, VER_LESS));
    EXPECT_FALSE(Meets(major - 1, minor, VER_LESS_EQUAL));

    SetLastError(0);
    EXPECT_FALSE(VerifyVersionInfoW(&own, 0, 0));
    EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, GetLastError());
}

TEST(System, Screen)
{
    EXPECT_GE(GetSystemMetrics(SM_CXSCREEN), 320);
    EXPECT_GE(GetSystemMetrics(SM_CYSCREEN), 200);
    EXPECT_GE(GetSystemMetrics(SM_CXVIRTUALSCREEN), GetSystemMetrics(SM_CXSCREEN));
    EXPECT_GE(GetSystemMetrics(SM_CYVIRTUALSCREEN), GetSystemMetrics(SM_CYSCREEN));
}
} // namespace
