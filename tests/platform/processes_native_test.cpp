// What only the native layer can show of processes: WaitForInputIdle of this very program (on Windows a
// console program has no input to wait for), descriptors, zombies and signals.

#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

class NativeProcesses : public ::testing::Test
{
  protected:
    NativeProcesses() { ClearPoints(); }
};

SNDX_CHILD(MessageLoop)
{
    WaitFor("become idle");
    MSG message;
    if (arguments[0] == "GetMessage")
    {
        GetMessageW(&message, nullptr, 0, 0);
    }
    else
    {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 60000, QS_ALLINPUT);
    }
    return 0;
}

TEST_F(NativeProcesses, IdleWhenTheChildFirstWaitsForMessages)
{
    for (const char* way : {"GetMessage", "MsgWait"})
    {
        ClearPoints();
        ChildProcess child("MessageLoop", {way});
        EXPECT_EQ(WAIT_TIMEOUT, WaitForInputIdle(child.Handle(), 50));
        Announce("become idle");
        EXPECT_EQ(0u, WaitForInputIdle(child.Handle(), INFINITE));
        EXPECT_TRUE(child.IsRunning());
        EXPECT_EQ(0u, WaitForInputIdle(child.Handle(), 0)) << "idle once is idle";
    }
}

TEST_F(NativeProcesses, EndCountsAsIdle)
{
    ChildProcess child = ChildProcess::Program("/bin/sleep", {"0.05"});
    EXPECT_EQ(WAIT_TIMEOUT, WaitForInputIdle(child.Handle(), 10));
    EXPECT_EQ(0u, WaitForInputIdle(child.Handle(), INFINITE));
    EXPECT_EQ(0, child.Wait());
    EXPECT_EQ(WAIT_FAILED, WaitForInputIdle(nullptr, 0));
}

TEST_F(NativeProcesses, ScriptsRunAndCrashesHaveTheirWindowsCodes)
{
    const std::string script = std::string(std::getenv("SENDORA_ROOT")) + "/script";
    std::ofstream(script) << "#!/bin/sh\nkill -$1 $$\n";
    chmod(script.c_str(), 0755);
    EXPECT_EQ(static_cast<int>(0xC0000005u), ChildProcess::Program(script, {"SEGV"}).Wait());
    EXPECT_EQ(static_cast<int>(0x80000003u), ChildProcess::Program(script, {"TRAP"}).Wait());
    EXPECT_EQ(3, ChildProcess::Program(script, {"ABRT"}).Wait());
}

SNDX_CHILD(CountDescriptors)
{
    int open = 0;
    for (int descriptor = 3; descriptor < 256; ++descriptor)
    {
        open += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    }
    return open;
}

TEST_F(NativeProcesses, OnlyTheStandardStreamsAndTheIdlePipePassOn)
{
    const int leak = open("/dev/null", O_RDONLY); // without O_CLOEXEC
    const int far = fcntl(leak, F_DUPFD, 200);
    EXPECT_EQ(1, ChildProcess("CountDescriptors", {}).Wait());
    close(leak);
    close(far);
}

bool IsZombieOrRunning(DWORD id)
{
    return kill(static_cast<pid_t>(id), 0) == 0;
}

TEST_F(NativeProcesses, NoZombieStaysBehind)
{
    DWORD ended = 0;
    {
        ChildProcess child = ChildProcess::Program("/bin/true", {});
        EXPECT_EQ(0, child.Wait());
        ended = child.Id();
    }
    EXPECT_FALSE(IsZombieOrRunning(ended));

    // Closed while it runs: it is collected at its end although nobody calls the layer any more.
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    auto text = Wide("\"Z:\\bin\\sleep\" 0.1");
    ASSERT_TRUE(CreateProcessW(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                               &information));
    CloseHandle(information.hThread);
    CloseHandle(information.hProcess);
    EXPECT_TRUE(IsZombieOrRunning(information.dwProcessId));
    for (int i = 0; i < 500 && IsZombieOrRunning(information.dwProcessId); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(IsZombieOrRunning(information.dwProcessId));
}
} // namespace
