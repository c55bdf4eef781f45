// Probes with answers of a test's choice: the native registry is the process's own, and its calls can fail.

#include <string>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "diag/environment.h"
#include "diag/header.h"
#include "sndxposix.h"
#include "tests/support/reports.h"
#include "tests/support/settings.h"

namespace
{
using namespace sndxtest;
using ::testing::Contains;
using ::testing::StartsWith;

std::string HeaderLine(const std::string& prefix)
{
    for (const std::string& text : Traced(&LDebugWriteHeader))
    {
        if (text.starts_with(prefix))
        {
            return text.substr(prefix.size());
        }
    }
    return "(no such line)";
}

TEST(HeaderNative, TheReleaseNumberOfWindows10)
{
    const TraceCapture trace;
    for (const auto& [text, shown] :
         {std::pair{"1809", "10.0 (1809)  64-bit"}, {"none", "10.0  64-bit"}, {"-5", "10.0  64-bit"}})
    {
        SetMachineString("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ReleaseId", text);
        EXPECT_EQ(HeaderLine("Windows Version: "), shown);
    }
    sndxposix::FailCall("VerifyVersionInfoW", ERROR_OLD_WIN_VERSION);
    EXPECT_EQ(LGetWindowsReleaseNumber(), 0);
    constexpr char failed[] = "LGetWindowsReleaseNumber RegGetString() failed";
    EXPECT_THAT(trace.Texts(), ::testing::Not(Contains(failed)));
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Microsoft\\Windows NT"));
    EXPECT_EQ(HeaderLine("Windows Version: "), "10.0  64-bit");
    EXPECT_THAT(trace.Texts(), Contains(failed));
}

TEST(HeaderNative, FailedProbesLeaveAFullHeader)
{
    const std::string name = "L\u00F6w" + std::string(253, 'p');
    SetMachineString("hardware\\description\\system\\CentralProcessor\\0", "ProcessorNameString", name);
    EXPECT_EQ(HeaderLine("Processor Details: ").substr(0, 259), name + " (");
    EXPECT_EQ(HeaderLine("Processor Details: ").size(), 260u) << "cut to the usual buffer";
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, TEXT("hardware"));
    EXPECT_THAT(HeaderLine("Processor Details: "), StartsWith(" ("));
    sndxposix::FailCall("GlobalMemoryStatusEx", ERROR_GEN_FAILURE);
    EXPECT_EQ(HeaderLine("System memory: "), "4294967295");
    sndxposix::FailCall("GetVersionExW", ERROR_GEN_FAILURE);
    EXPECT_THAT(HeaderLine("Windows Version: "), StartsWith("0.0 "));
    sndxposix::FailCall("HeapLock", ERROR_GEN_FAILURE);
    EXPECT_EQ(HeaderLine("Run Heap Size = "), "0");
    // Asked for Wine's version all the same, when there is no Wine.
    EXPECT_THAT(Traced(&LDebugTraceWineVersion), ::testing::ElementsAre("Running under wine"));
    sndxposix::FailCall("GetModuleHandleW", ERROR_MOD_NOT_FOUND);
    EXPECT_THAT(Traced(&LDebugTraceWineVersion), ::testing::IsEmpty());
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
}
} // namespace
