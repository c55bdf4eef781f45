// What only the native layer can show of processes: WaitForInputIdle of this very program (on Windows a
// console program has no input to wait for), zombies and signals.

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
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
    return static_cast<int>(MsgWaitForMultipleObjects(0, nullptr, FALSE, 60000, QS_ALLINPUT));
}

TEST_F(NativeProcesses, AreIdleWhenTheyFirstWaitForMessagesOrHaveEnded)
{
    ChildProcess child("MessageLoop", {});
    EXPECT_EQ(WAIT_TIMEOUT, WaitForInputIdle(child.Handle(), 50));
    Announce("become idle");
    EXPECT_EQ(0u, WaitForInputIdle(child.Handle(), INFINITE));
    EXPECT_TRUE(child.IsRunning());
    EXPECT_EQ(0u, WaitForInputIdle(child.Handle(), 0)) << "idle once is idle";
    ChildProcess ending = ChildProcess::Program("/bin/sleep", {"0.05"});
    EXPECT_EQ(WAIT_TIMEOUT, WaitForInputIdle(ending.Handle(), 10));
    EXPECT_EQ(0u, WaitForInputIdle(ending.Handle(), INFINITE));
    EXPECT_EQ(WAIT_FAILED, WaitForInputIdle(nullptr, 0));
}

TEST_F(NativeProcesses, ScriptsRunAndCrashesHaveTheirWindowsCodes)
{
    const std::string script = std::string(std::getenv("SENDORA_ROOT")) + "/script";
    std::ofstream(script) << "#!/bin/sh\nkill -$1 $$\n";
    chmod(script.c_str(), 0755);
    const std::pair<const char*, DWORD> cases[] = {{"SEGV", 0xC0000005}, {"TRAP", 0x80000003}, {"ABRT", 3}};
    for (const auto& [signal, code] : cases)
    {
        EXPECT_EQ(static_cast<int>(code), ChildProcess::Program(script, {signal}).Wait()) << signal;
    }
}

// Closed while it runs, a child is collected at its end although nobody calls the layer any more.
TEST_F(NativeProcesses, NoZombieStaysBehind)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    auto text = Wide("\"Z:\\bin\\sleep\" 0.1");
    ASSERT_TRUE(CreateProcessW(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                               &information));
    CloseHandle(information.hThread);
    CloseHandle(information.hProcess);
    const auto isThere = [&] { return kill(static_cast<pid_t>(information.dwProcessId), 0) == 0; };
    EXPECT_TRUE(isThere());
    for (int i = 0; i < 500 && isThere(); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(isThere());
}
} // namespace
