// The content of the security attributes, read back through the system.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/tracefile.h"
#include "win32/securityattributes.h"

namespace
{
TEST(SecurityAttributes, GrantEverythingToAuthenticatedUsersOnly)
{
    const sndxtest::TraceCapture trace;
    LSecurityAttributesAllAccess security;
    const SECURITY_ATTRIBUTES* const attributes = security.GetSecurityAttributes();
    ASSERT_NE(nullptr, attributes);
    EXPECT_EQ(24u, attributes->nLength);
    EXPECT_FALSE(attributes->bInheritHandle);
    const auto* const descriptor = static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
    ASSERT_NE(nullptr, descriptor);
    EXPECT_EQ(1, descriptor->Revision);
    EXPECT_EQ(nullptr, descriptor->Owner);
    EXPECT_EQ(nullptr, descriptor->Group);
    EXPECT_EQ(nullptr, descriptor->Sacl);

    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    ACL* list = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &list, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_FALSE(defaulted);
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(2, list->AclRevision);
    EXPECT_EQ(28, list->AclSize);
    ASSERT_EQ(1, list->AceCount);

    void* entry = nullptr;
    ASSERT_TRUE(GetAce(list, 0, &entry));
    const auto* const allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, allowed->Header.AceType);
    EXPECT_EQ(0, allowed->Header.AceFlags);
    EXPECT_EQ(0x10000000u, allowed->Mask);
    const BYTE authenticatedUsers[12] = {1, 1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0}; // S-1-5-11
    EXPECT_EQ(0, std::memcmp(authenticatedUsers, &allowed->SidStart, sizeof(authenticatedUsers)));
    EXPECT_THAT(trace.Texts(), ::testing::IsEmpty());
}
} // namespace
