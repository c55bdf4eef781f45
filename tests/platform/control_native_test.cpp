// The control interface for tests, which only the POSIX layer has. And memory where Wine is no measure: it
// shows a program's written data as not yet copied for writing, and DebugBreak ends a process by an exception
// of its own.

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "posix/internal.h"
#include "sndxposix.h"
#include "tests/platform/handle.h"

namespace
{
using namespace sndxtest;

TEST(Control, TickCountStandsMovesAndRuns)
{
    sndxposix::SetTickCount(0xFFFFFFF0);
    EXPECT_EQ(GetTickCount(), 0xFFFFFFF0u);
    sndxposix::AdvanceTickCount(0x20);
    EXPECT_EQ(GetTickCount(), 0x10u);
    sndxposix::RunTickCount();
    const DWORD begin = GetTickCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_GE(GetTickCount() - begin, 29u);
    EXPECT_LT(GetTickCount() - begin, 10000u);
}

TEST(Control, ThreadIdentifierAndLastErrorAreTheThreadsOwn)
{
    sndxposix::SetCurrentThreadId(0xABC);
    SetLastError(77);
    std::thread(
        []
        {
            EXPECT_EQ(GetCurrentThreadId(), static_cast<DWORD>(gettid()));
            EXPECT_EQ(GetLastError(), 0u);
        })
        .join();
    EXPECT_EQ(GetCurrentThreadId(), 0xABCu);
    EXPECT_EQ(GetLastError(), 77u);
    sndxposix::SetCurrentThreadId(0);
}

TEST(Control, FailuresMeetTheCallsTheyAreMeantFor)
{
    sndxposix::FailCall("GetFileAttributesW", 5);
    sndxposix::FailCall("GetFileAttributesW", 6);
    sndxposix::FailCall("GetFileAttributesW", 32, 2);
    sndxposix::FailCall("DeleteFileW", 87);
    EXPECT_EQ(sndxposix::PendingFailures(), 4u);
    for (const DWORD error : {5u, 6u, 32u, 0u, 0u})
    {
        EXPECT_EQ(ErrorOf(GetFileAttributesW(TEXT("C:\\")) != INVALID_FILE_ATTRIBUTES), error);
    }
    EXPECT_EQ(sndxposix::PendingFailures(), 1u);
    sndxposix::ResetFailures();
    EXPECT_EQ(ErrorOf(DeleteFileW(TEXT("C:\\none"))), ERROR_FILE_NOT_FOUND);
}

TEST(Control, DebuggerOutputIsKeptAndGoesToTheFileNamed)
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
}

TEST(NativeMemory, DataOfTheProgramIsWriteableAndDebugBreakStopsIt)
{
    static int data = 1;
    MEMORY_BASIC_INFORMATION information;
    ASSERT_EQ(VirtualQuery(&data, &information, sizeof information), sizeof information);
    EXPECT_EQ(information.Protect, PAGE_READWRITE);
    EXPECT_EXIT(DebugBreak(), testing::KilledBySignal(SIGTRAP), "");
}

TEST(Control, ScreenIsTakenFromTheEnvironment)
{
    const auto size = [](const char* text)
    {
        setenv("SENDORA_SCREEN", text, 1);
        return std::to_string(GetSystemMetrics(SM_CXSCREEN)) + "x" +
               std::to_string(GetSystemMetrics(SM_CYVIRTUALSCREEN));
    };
    EXPECT_EQ("1920x1080", size("1920x1080"));
    for (const char* wrong : {"", "x1080", "1920x", "1920x1080x", "-5x5", "99999999999x5"})
    {
        EXPECT_EQ("1024x768", size(wrong)) << wrong;
    }
}
} // namespace
