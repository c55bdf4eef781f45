// Every step of the construction that can fail; on Windows none can be made to.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/support/tracefile.h"
#include "win32/securityattributes.h"
#include "win32/sharedmemory.h"

namespace
{
using sndxtest::TraceCapture;
using ::testing::Contains;
using ::testing::ElementsAre;

struct Step
{
    const char* function;
    const char* report; // behind the name of the constructor
};

class SecurityStep : public ::testing::TestWithParam<Step>
{
  protected:
    ~SecurityStep() override { sndxposix::ResetFailures(); }
    static std::string Report()
    {
        return std::string("**LSecurityAttributesAllAccess::LSecurityAttributesAllAccess ") +
               GetParam().report;
    }
};

// Blocks that a failed construction forgets are found by the leak check of the sanitized build.
TEST_P(SecurityStep, ThatFailsIsReportedAndLeavesDefaultSecurity)
{
    const TraceCapture trace;
    sndxposix::FailCall(GetParam().function, 1234);
    LSecurityAttributesAllAccess security;
    EXPECT_EQ(0u, sndxposix::PendingFailures());
    EXPECT_EQ(nullptr, security.GetSecurityAttributes());
    EXPECT_THAT(trace.Texts(), ElementsAre(Report()));
}

TEST_P(SecurityStep, ThatFailsDoesNotKeepABlockFromItsCreation)
{
    const TraceCapture trace;
    sndxposix::FailCall(GetParam().function, 1234);
    LIPCSharedMemoryBuffer block;
    block._Create(TEXT("insecure"), 4, false, true);
    EXPECT_TRUE(block.IsValid());
    EXPECT_THAT(trace.Texts(), Contains(Report()));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, SecurityStep,
    ::testing::Values(Step{"InitializeSecurityDescriptor", "InitializeSecurityDescriptor FAILED"},
                      Step{"AllocateAndInitializeSid", "AllocateAndInitializeSid failed with error 1234\n"},
                      Step{"HeapAlloc", "HeapAlloc failed with error 1234\n"},
                      Step{"InitializeAcl", "InitializeAcl FAILED"},
                      Step{"AddAccessAllowedAce", "AddAccessAllowedAce FAILED"},
                      Step{"SetSecurityDescriptorDacl", "SetSecurityDescriptorDacl FAILED"}),
    [](const auto& test) { return test.param.function; });
} // namespace
