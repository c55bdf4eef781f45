// What the system says about itself.

#include <gtest/gtest.h>

#include "tests/platform/handle.h"

namespace
{
using namespace sndxtest;

TEST(System, ProcessorsMemoryAndScreen)
{
    SYSTEM_INFO info = {};
    GetNativeSystemInfo(&info);
    EXPECT_EQ(PROCESSOR_ARCHITECTURE_AMD64, info.wProcessorArchitecture);
    EXPECT_EQ(4096u, info.dwPageSize);
    EXPECT_GE(info.dwNumberOfProcessors, 1u);
    EXPECT_GT(reinterpret_cast<UINT_PTR>(info.lpMaximumApplicationAddress),
              reinterpret_cast<UINT_PTR>(&info));

    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof(status);
    ASSERT_TRUE(GlobalMemoryStatusEx(&status));
    EXPECT_GT(status.ullTotalPhys, 64ull << 20);
    EXPECT_LE(status.ullAvailPhys, status.ullTotalPhys);
    EXPECT_LE(status.dwMemoryLoad, 100u);
    status.dwLength = 8;
    EXPECT_EQ(ErrorOf(GlobalMemoryStatusEx(&status)), ERROR_INVALID_PARAMETER);

    EXPECT_GE(GetSystemMetrics(SM_CXSCREEN), 320);
    EXPECT_GE(GetSystemMetrics(SM_CYSCREEN), 200);
    EXPECT_GE(GetSystemMetrics(SM_CXVIRTUALSCREEN), GetSystemMetrics(SM_CXSCREEN));
}

DWORD Verify(DWORD major, DWORD minor, DWORD servicePack, BYTE condition)
{
    OSVERSIONINFOEXW wanted = {};
    wanted.dwOSVersionInfoSize = sizeof(wanted);
    wanted.dwMajorVersion = major;
    wanted.dwMinorVersion = minor;
    wanted.wServicePackMajor = static_cast<WORD>(servicePack);
    ULONGLONG conditions = 0;
    DWORD types = 0;
    for (const DWORD type : {VER_MAJORVERSION, VER_MINORVERSION, VER_SERVICEPACKMAJOR, VER_SERVICEPACKMINOR})
    {
        VER_SET_CONDITION(conditions, type, condition);
        types |= type;
    }
    return ErrorOf(VerifyVersionInfoW(&wanted, types, conditions));
}

TEST(System, VersionAndItsConditions)
{
    OSVERSIONINFOEXW own = {};
    own.dwOSVersionInfoSize = 3;
    EXPECT_FALSE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&own)));
    own.dwOSVersionInfoSize = sizeof(own);
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&own)));
    EXPECT_EQ(DWORD{VER_PLATFORM_WIN32_NT}, own.dwPlatformId);
    EXPECT_EQ(VER_NT_WORKSTATION, own.wProductType);
    const DWORD major = own.dwMajorVersion;
    const DWORD minor = own.dwMinorVersion;
    const DWORD pack = own.wServicePackMajor;
    EXPECT_GE(major * 100 + minor, 601u);
    const struct
    {
        DWORD major;
        DWORD minor;
        DWORD servicePack;
        BYTE condition;
        bool meets;
    } cases[] = {
        {major, minor, pack, VER_GREATER_EQUAL, true},
        {major, minor, pack, VER_EQUAL, true},
        {major, minor, pack + 1, VER_GREATER_EQUAL, false},
        {major, minor + 1, 0, VER_GREATER_EQUAL, false},
        {major + 1, 0, 0, VER_GREATER_EQUAL, false},
        // The parts count as one number: a higher minor version of a lower major one is older.
        {major - 1, minor + 50, 99, VER_GREATER_EQUAL, true},
        {major, minor + 1, 0, VER_LESS, true},
        {major - 1, minor, 0, VER_LESS_EQUAL, false},
    };
    for (const auto& each : cases)
    {
        EXPECT_EQ(Verify(each.major, each.minor, each.servicePack, each.condition),
                  each.meets ? ERROR_SUCCESS : ERROR_OLD_WIN_VERSION)
            << each.major << "." << each.minor << "." << each.servicePack;
    }
}
} // namespace
