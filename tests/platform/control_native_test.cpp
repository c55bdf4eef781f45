// The control interface for tests, which only the POSIX layer has.

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include <windows.h>

#include "posix/internal.h"
#include "sndxposix.h"

namespace
{
TEST(Control, TickCountStandsMovesAndRuns)
{
    sndxposix::SetTickCount(0xFFFFFFF0);
    EXPECT_EQ(GetTickCount(), 0xFFFFFFF0u);
    sndxposix::AdvanceTickCount(0x20);
    EXPECT_EQ(GetTickCount(), 0x10u);
    sndxposix::SetTickCount(0);
    EXPECT_EQ(GetTickCount(), 0u);
    sndxposix::RunTickCount();
    const DWORD begin = GetTickCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_GE(GetTickCount() - begin, 29u);
    EXPECT_LT(GetTickCount() - begin, 10000u);
}

TEST(Control, LocalTimeShowsAnyTimeOfDay)
{
    const std::time_t before = std::time(nullptr);
    const std::tm zoneBefore = *std::localtime(&before);
    const int times[][3] = {{0, 0, 0}, {23, 59, 58}, {7, 8, 9}};
    for (const auto& wanted : times)
    {
        sndxposix::SetLocalTimeOfDay(wanted[0], wanted[1], wanted[2]);
        const std::time_t now = std::time(nullptr);
        const std::tm local = *std::localtime(&now);
        const int seconds = (local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec;
        const int late = (seconds - (wanted[0] * 60 + wanted[1]) * 60 - wanted[2] + 86400) % 86400;
        EXPECT_LE(late, 1) << wanted[0] << ":" << wanted[1] << ":" << wanted[2];
    }
    sndxposix::ResetLocalTime();
    EXPECT_EQ(std::localtime(&before)->tm_hour, zoneBefore.tm_hour);
    EXPECT_EQ(std::localtime(&before)->tm_min, zoneBefore.tm_min);
}

TEST(Control, ThreadIdentifierIsTheThreadsOwn)
{
    const DWORD real = GetCurrentThreadId();
    EXPECT_EQ(real, static_cast<DWORD>(gettid()));
    sndxposix::SetCurrentThreadId(0xABC);
    EXPECT_EQ(GetCurrentThreadId(), 0xABCu);
    DWORD other = 0;
    std::thread([&] { other = GetCurrentThreadId(); }).join();
    EXPECT_NE(other, 0xABCu);
    EXPECT_NE(other, real);
    sndxposix::SetCurrentThreadId(0);
    EXPECT_EQ(GetCurrentThreadId(), real);
}

TEST(Control, FailuresMeetTheCallsTheyAreMeantFor)
{
    const auto attributes = []
    {
        SetLastError(ERROR_SUCCESS);
        return GetFileAttributesW(TEXT("C:\\")) == INVALID_FILE_ATTRIBUTES ? GetLastError() : 0;
    };
    sndxposix::FailCall("GetFileAttributesW", 5);
    sndxposix::FailCall("GetFileAttributesW", 6);
    sndxposix::FailCall("GetFileAttributesW", 32, 2);
    sndxposix::FailCall("DeleteFileW", 87);
    EXPECT_EQ(sndxposix::PendingFailures(), 4u);
    std::vector<DWORD> errors;
    for (int i = 0; i < 5; ++i)
    {
        errors.push_back(attributes());
    }
    EXPECT_EQ(errors, (std::vector<DWORD>{5, 6, 32, 0, 0}));
    EXPECT_EQ(sndxposix::PendingFailures(), 1u);
    sndxposix::ResetFailures();
    EXPECT_FALSE(DeleteFileW(TEXT("C:\\none")));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(Control, DebuggerOutputIsKeptBoundedAndGoesToTheFileNamed)
{
    const std::string path = sndxposix::RootFolder() + "/debugoutput.txt";
    setenv("SENDORA_DEBUGOUTPUT", path.c_str(), 1);
    OutputDebugStringA("one\n");
    OutputDebugStringA("two\n");
    unsetenv("SENDORA_DEBUGOUTPUT");
    OutputDebugStringA(nullptr);
    std::ostringstream written;
    written << std::ifstream(path).rdbuf();
    EXPECT_EQ(written.str(), "one\ntwo\n");
    EXPECT_EQ(sndxposix::TakeDebugOutput(), "one\ntwo\n");
    EXPECT_EQ(sndxposix::TakeDebugOutput(), "");
    for (int i = 0; i < 5000; ++i)
    {
        OutputDebugStringA(std::string(1000, 'x').c_str());
    }
    OutputDebugStringA("last");
    const std::string kept = sndxposix::TakeDebugOutput();
    EXPECT_GE(kept.size(), std::size_t{1} << 20);
    EXPECT_LE(kept.size(), std::size_t{2} << 20);
    EXPECT_TRUE(kept.ends_with("xlast"));
}

TEST(Handles, LastErrorIsTheThreadsOwn)
{
    SetLastError(77);
    DWORD other = 1;
    std::thread(
        [&]
        {
            other = GetLastError();
            SetLastError(88);
        })
        .join();
    EXPECT_EQ(other, 0u);
    EXPECT_EQ(GetLastError(), 77u);
}
} // namespace
