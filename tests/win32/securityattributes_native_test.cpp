// Every step of the construction that can fail; on Windows none can be made to.

#include <gmock/gmock.h>

#include "sndxposix.h"
#include "tests/support/tracefile.h"
#include "win32/securityattributes.h"
#include "win32/sharedmemory.h"

namespace
{
using namespace sndxtest;
using ::testing::Contains;
using ::testing::ElementsAre;

// Blocks that a failed construction forgets are found by the leak check of the sanitized build.
TEST(SecurityStep, ThatFailsIsReportedAndLeavesDefaultSecurity)
{
    const std::pair<const char*, std::string> steps[] = {
        {"InitializeSecurityDescriptor", "InitializeSecurityDescriptor FAILED"},
        {"AllocateAndInitializeSid", "AllocateAndInitializeSid failed with error 1234\n"},
        {"HeapAlloc", "HeapAlloc failed with error 1234\n"},
        {"InitializeAcl", "InitializeAcl FAILED"},
        {"AddAccessAllowedAce", "AddAccessAllowedAce FAILED"},
        {"SetSecurityDescriptorDacl", "SetSecurityDescriptorDacl FAILED"}};
    for (const auto& [function, text] : steps)
    {
        SCOPED_TRACE(function);
        const std::string report = "**LSecurityAttributesAllAccess::LSecurityAttributesAllAccess " + text;
        TraceCapture trace;
        sndxposix::FailCall(function, 1234);
        EXPECT_EQ(LSecurityAttributesAllAccess().GetSecurityAttributes(), nullptr);
        EXPECT_EQ(sndxposix::PendingFailures(), 0u);
        EXPECT_THAT(trace.Texts(), ElementsAre(report));
        // A block is created all the same.
        trace.Restart();
        sndxposix::FailCall(function, 1234);
        LIPCSharedMemoryBuffer block;
        block._Create(TEXT("insecure"), 4, false, true);
        EXPECT_TRUE(block.IsValid());
        EXPECT_THAT(trace.Texts(), Contains(report));
    }
}
} // namespace
