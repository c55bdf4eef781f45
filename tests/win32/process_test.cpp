// What a started program inherits, and that nothing of it is kept. That it is waited for is tested with the
// module's requests.

#include "tests/support/child.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "win32/handle.h"
#include "win32/process.h"

namespace
{
using namespace sndxtest;

SNDX_CHILD(RunUntilTold)
{
    Announce("running");
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_ALLINPUT); // idle: the start is over
    WaitFor("end");
    Announce("ended");
    TerminateProcess(GetCurrentProcess(), 0); // without a last line in the next test's trace
    return 1;
}

void StartChild(const std::string& role)
{
    WideString commandLine = Wide("\"" + OwnPath() + "\" --child " + role);
    StartAndWaitForInputIdle(commandLine.data()); // a program without windows is not waited for
}

TEST(Process, ItsHandlesAreClosed)
{
    EXPECT_EQ(HandlesLeft([] { StartChild("NoSuchRole"); }), 0);
}

TEST(Process, InheritsNothing)
{
    ClearPoints();
    const WideString name = Wide("sndxtest" + std::to_string(GetCurrentProcessId()));
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    LHandle kept(CreateMutexW(&inheritable, FALSE, name.c_str()));
    StartChild("RunUntilTold");
    EXPECT_TRUE(WaitFor("running"));
    kept.Close();
    // A program that had inherited the handle would keep the object alive.
    EXPECT_FALSE(LHandle(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str())).IsOpen());
    Announce("end");
    EXPECT_TRUE(WaitFor("ended")); // in this test's folder, which goes with it
}
} // namespace
