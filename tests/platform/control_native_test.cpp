// The control interface for tests, which only the POSIX layer has, and the tables that all calls use.

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <set>
#include <string>
#include <thread>

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
    const int times[][3] = {{0, 0, 0}, {23, 59, 58}, {12, 34, 56}, {7, 8, 9}};
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

TEST(Control, FailuresMeetTheCallTheyAreMeantFor)
{
    const auto attributes = []
    {
        SetLastError(ERROR_SUCCESS);
        return GetFileAttributesW(TEXT("C:\\")) == INVALID_FILE_ATTRIBUTES ? GetLastError() : 0;
    };
    EXPECT_EQ(attributes(), 0u);
    sndxposix::FailCall("GetFileAttributesW", 5);
    sndxposix::FailCall("GetFileAttributesW", 32, 2);
    sndxposix::FailCall("DeleteFileW", 87);
    EXPECT_EQ(sndxposix::PendingFailures(), 3u);
    EXPECT_EQ(attributes(), 5u);
    EXPECT_EQ(attributes(), 0u);
    EXPECT_EQ(attributes(), 32u);
    EXPECT_EQ(attributes(), 0u);
    EXPECT_EQ(sndxposix::PendingFailures(), 1u);
    sndxposix::ResetFailures();
    EXPECT_FALSE(DeleteFileW(TEXT("C:\\none")));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(Control, TwoFailuresOfOneFunctionMeetTwoCalls)
{
    sndxposix::FailCall("_aligned_malloc", 8);
    sndxposix::FailCall("_aligned_malloc", 8);
    EXPECT_EQ(_aligned_malloc(16, 16), nullptr);
    EXPECT_EQ(_aligned_malloc(16, 16), nullptr);
    void* const block = _aligned_malloc(16, 16);
    EXPECT_NE(block, nullptr);
    _aligned_free(block);
}

TEST(Control, DebuggerOutputIsKeptAndBounded)
{
    sndxposix::TakeDebugOutput();
    OutputDebugStringA("one\n");
    OutputDebugStringA(nullptr);
    OutputDebugStringA("two\n");
    EXPECT_EQ(sndxposix::DebugOutput(), "one\ntwo\n");
    EXPECT_EQ(sndxposix::TakeDebugOutput(), "one\ntwo\n");
    EXPECT_EQ(sndxposix::DebugOutput(), "");
    const std::string line(1000, 'x');
    for (int i = 0; i < 5000; ++i)
    {
        OutputDebugStringA(line.c_str());
    }
    OutputDebugStringA("last");
    const std::string kept = sndxposix::TakeDebugOutput();
    EXPECT_GE(kept.size(), std::size_t{1} << 20);
    EXPECT_LE(kept.size(), std::size_t{2} << 20);
    EXPECT_TRUE(kept.ends_with("xlast"));
}

TEST(Control, DebuggerOutputGoesToTheFileNamed)
{
    const std::string path = sndxposix::RootFolder() + "/debugoutput.txt";
    setenv("SENDORA_DEBUGOUTPUT", path.c_str(), 1);
    OutputDebugStringA("one\n");
    OutputDebugStringA("two\n");
    unsetenv("SENDORA_DEBUGOUTPUT");
    OutputDebugStringA("three\n");
    sndxposix::TakeDebugOutput();
    char text[100] = {};
    std::FILE* const file = std::fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    const std::size_t length = std::fread(text, 1, sizeof text, file);
    std::fclose(file);
    std::remove(path.c_str());
    EXPECT_EQ(std::string(text, length), "one\ntwo\n");
}

TEST(Handles, AreDistinctWhileOpenAndShareTheirObject)
{
    class Object : public sndxposix::KernelObject
    {
      public:
        explicit Object(int& live) : live_(live) { ++live_; }
        ~Object() override { --live_; }

      private:
        int& live_;
    };
    int live = 0;
    std::set<HANDLE> handles;
    for (int i = 0; i < 1000; ++i)
    {
        const HANDLE handle = sndxposix::InsertHandle(std::make_shared<Object>(live));
        const auto value = reinterpret_cast<std::uintptr_t>(handle);
        EXPECT_TRUE(value != 0 && value % 4 == 0 && value < 100000);
        EXPECT_TRUE(handles.insert(handle).second);
    }
    EXPECT_EQ(live, 1000);
    auto used = sndxposix::LookupHandleAs<Object>(*handles.begin());
    EXPECT_EQ(sndxposix::LookupHandleAs<sndxposix::StreamObject>(*handles.begin()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    for (const HANDLE handle : handles)
    {
        EXPECT_TRUE(CloseHandle(handle));
        EXPECT_FALSE(CloseHandle(handle));
    }
    EXPECT_EQ(live, 1) << "an object in use outlives its handle";
    used.reset();
    EXPECT_EQ(live, 0);
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
