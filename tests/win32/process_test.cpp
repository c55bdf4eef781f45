// Starting a program and waiting until it is ready.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/support/child.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/timing.h"
#include "win32/handle.h"
#include "win32/process.h"

namespace
{
using sndxtest::AtLeast;
using sndxtest::Stopwatch;
using sndxtest::Utf8;
using sndxtest::Wide;
using sndxtest::WideString;

std::string OwnPath()
{
    WCHAR path[1024];
    GetModuleFileNameW(nullptr, path, 1024);
    return Utf8(path);
}

// The test program as a program that has windows: a copy that says so in its header, since the system waits
// for the input of such programs only. Natively there is no difference between the two.
class WindowProgram
{
  public:
    WindowProgram()
    {
#ifdef _WIN32
        std::string image = sndxtest::ReadWholeFile(OwnPath());
        const std::size_t header =
            static_cast<unsigned char>(image.at(0x3C)) + 256u * static_cast<unsigned char>(image.at(0x3D));
        image.at(header + 24 + 68) = IMAGE_SUBSYSTEM_WINDOWS_GUI;
        WCHAR folder[MAX_PATH + 1];
        GetTempPathW(MAX_PATH + 1, folder);
        path_ = Utf8(folder) + "sndx window program.exe";
        sndxtest::WriteWholeFile(path_, image);
#else
        path_ = OwnPath();
#endif
    }
    ~WindowProgram()
    {
#ifdef _WIN32
        // The program may need a moment to end.
        for (int i = 0; i < 400 && !DeleteFileW(Wide(path_).c_str()); ++i)
        {
            Sleep(10);
        }
#endif
    }
    WindowProgram(const WindowProgram&) = delete;
    WindowProgram& operator=(const WindowProgram&) = delete;

    void Start(const std::string& role, const std::string& argument = {}) const
    {
        WideString commandLine = Wide("\"" + path_ + "\" --child " + role + " " + argument);
        StartAndWaitForInputIdle(commandLine.data());
    }

  private:
    std::string path_;
};

// Ends a child that nobody waits for: without its static objects' last trace line, which could appear in the
// trace of the next test.
int EndSilently()
{
    TerminateProcess(GetCurrentProcess(), 0);
    return 1;
}

SNDX_CHILD(BecomeReady)
{
    Sleep(300);
    sndxtest::Announce("prepared");
    MSG message;
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE); // makes the thread's queue
    std::thread end(
        [thread = GetCurrentThreadId()]
        {
            sndxtest::WaitFor("end");
            PostThreadMessageW(thread, WM_QUIT, 0, 0);
        });
    // Ready when it finds its queue empty here.
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
    {
    }
    end.join();
    sndxtest::Announce("ended");
    return EndSilently();
}

SNDX_CHILD(EndUnready)
{
    Sleep(300);
    sndxtest::Announce("prepared");
    return EndSilently();
}

SNDX_CHILD(EndAtOnce)
{
    return EndSilently();
}

class Process : public ::testing::Test
{
  protected:
    Process()
    {
        sndxtest::ClearPoints();
        // Sets the folder of the points up for the children that are started without the support's help.
        EXPECT_EQ(125, sndxtest::ChildProcess("NoSuchRole", {}).Wait());
    }
};

TEST_F(Process, IsWaitedForUntilItIsReady)
{
    const WindowProgram program;
    const std::string name = "sndxtest" + std::to_string(GetCurrentProcessId());
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    LHandle kept(CreateMutexW(&inheritable, FALSE, Wide(name).c_str()));
    const Stopwatch stopwatch;
    program.Start("BecomeReady");
    EXPECT_TRUE(sndxtest::WaitFor("prepared", 0)) << "returned before the program was ready";
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(300));
    EXPECT_LT(stopwatch.Milliseconds(), 20000);
    EXPECT_FALSE(sndxtest::WaitFor("ended", 0));
    // A program that had inherited the handle would keep the object alive.
    kept.Close();
    EXPECT_FALSE(LHandle(OpenMutexW(SYNCHRONIZE, FALSE, Wide(name).c_str())).IsOpen());
    sndxtest::Announce("end");
    EXPECT_TRUE(sndxtest::WaitFor("ended"));
}

TEST_F(Process, IsNoLongerWaitedForWhenItHasEnded)
{
    const WindowProgram program;
    const Stopwatch stopwatch;
    program.Start("EndUnready");
    EXPECT_TRUE(sndxtest::WaitFor("prepared", 0));
    EXPECT_LT(stopwatch.Milliseconds(), 20000);
}

TEST_F(Process, AStartThatFailsIsNotWaitedFor)
{
    const Stopwatch stopwatch;
    for (const char* const commandLine : {"\"C:\\sndx no such program.exe\"", "\"\"", ""})
    {
        WideString text = Wide(commandLine);
        StartAndWaitForInputIdle(text.data());
    }
    EXPECT_LT(stopwatch.Milliseconds(), 20000);
}

TEST_F(Process, ItsHandlesAreClosed)
{
    const WideString program = Wide("\"" + OwnPath() + "\" --child EndAtOnce");
    EXPECT_EQ(0, sndxtest::HandlesLeft(
                     [&]
                     {
                         WideString commandLine = program;
                         StartAndWaitForInputIdle(commandLine.data());
                     }));
}
} // namespace
