// Failures on demand, which only the POSIX layer has.

#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/platform/handle.h"

namespace
{
using namespace sndxtest;

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
} // namespace
