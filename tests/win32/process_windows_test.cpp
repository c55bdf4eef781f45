// That a started program inherits nothing. Windows only: the native layer has nothing to inherit.

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/text.h"
#include "win32/handle.h"
#include "win32/process.h"

namespace
{
using namespace sndxtest;

SNDX_CHILD(RunUntilTold)
{
    Announce("running");
    WaitFor("end");
    TerminateProcess(GetCurrentProcess(), 0); // without a last line in the next test's trace
    return 1;
}

TEST(Process, InheritsNothing)
{
    EXPECT_EQ(ChildProcess("NoSuchRole", {}).Wait(), 125); // sets the folder of the meeting points up
    ClearPoints();
    WCHAR path[1024];
    GetModuleFileNameW(nullptr, path, 1024);
    const WideString name = Wide("sndxtest" + std::to_string(GetCurrentProcessId()));
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    LHandle kept(CreateMutexW(&inheritable, FALSE, name.c_str()));
    WideString commandLine = Wide("\"" + Utf8(path) + "\" --child RunUntilTold");
    StartAndWaitForInputIdle(commandLine.data()); // a program without windows is not waited for
    EXPECT_TRUE(WaitFor("running"));
    kept.Close();
    // A program that had inherited the handle would keep the object alive.
    EXPECT_FALSE(LHandle(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str())).IsOpen());
    Announce("end");
}
} // namespace
