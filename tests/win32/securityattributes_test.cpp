// The content of the security attributes, read back through the system.

#include <cstring>

#include <gtest/gtest.h>

#include "win32/securityattributes.h"

namespace
{
TEST(SecurityAttributes, GrantEverythingToAuthenticatedUsersOnly)
{
    LSecurityAttributesAllAccess security;
    const SECURITY_ATTRIBUTES* const attributes = security.GetSecurityAttributes();
    ASSERT_NE(attributes, nullptr);
    EXPECT_EQ(attributes->nLength, 24u);
    EXPECT_FALSE(attributes->bInheritHandle);
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    ACL* list = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &list, &defaulted));
    EXPECT_TRUE(present && !defaulted);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->AclRevision, 2);
    EXPECT_EQ(list->AclSize, 28);
    ASSERT_EQ(list->AceCount, 1);
    void* entry = nullptr;
    ASSERT_TRUE(GetAce(list, 0, &entry));
    const auto* const allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    EXPECT_EQ(allowed->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
    EXPECT_EQ(allowed->Mask, 0x10000000u);
    const BYTE authenticatedUsers[12] = {1, 1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0}; // S-1-5-11
    EXPECT_EQ(std::memcmp(authenticatedUsers, &allowed->SidStart, sizeof(authenticatedUsers)), 0);
}
} // namespace
