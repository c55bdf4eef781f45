// Building a security descriptor as the product does, and reading it back through the structures.

#include <cstring>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"

namespace
{
using namespace sndxtest;

TEST(Security, ADescriptorGivesBackTheAccessListBuiltForIt)
{
    SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
    PSID sid = nullptr;
    ASSERT_TRUE(AllocateAndInitializeSid(&authority, 1, 11, 0, 0, 0, 0, 0, 0, 0, &sid));
    ASSERT_EQ(12u, GetLengthSid(sid));
    const BYTE layout[12] = {1, 1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(layout, sid, sizeof layout));

    // Room for one entry: the list's header and the entry's fixed part are 16 bytes.
    DWORD memory[8] = {};
    memory[7] = 0x5A5A5A5A;
    ACL* const acl = reinterpret_cast<ACL*>(memory);
    EXPECT_EQ(ErrorOf(InitializeAcl(acl, sizeof(ACL) - 1, ACL_REVISION)), ERROR_INSUFFICIENT_BUFFER);
    ASSERT_TRUE(InitializeAcl(acl, 28, ACL_REVISION));
    BYTE broken[12] = {7, 1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0};
    EXPECT_EQ(ErrorOf(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, broken)), ERROR_INVALID_SID);
    ASSERT_TRUE(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, sid));
    EXPECT_EQ(ErrorOf(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, sid)),
              ERROR_ALLOTTED_SPACE_EXCEEDED);
    EXPECT_EQ(1, acl->AceCount);
    EXPECT_EQ(0x5A5A5A5Au, memory[7]);

    SECURITY_DESCRIPTOR descriptor;
    EXPECT_EQ(ErrorOf(InitializeSecurityDescriptor(&descriptor, 2)), ERROR_UNKNOWN_REVISION);
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    BOOL present = TRUE;
    BOOL defaulted = TRUE;
    ACL* list = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
    EXPECT_FALSE(present);
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE));
    ASSERT_TRUE(GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_FALSE(defaulted);
    ASSERT_EQ(acl, list);

    void* entry = nullptr;
    EXPECT_FALSE(GetAce(list, 1, &entry));
    ASSERT_TRUE(GetAce(list, 0, &entry));
    const auto* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, allowed->Header.AceType);
    EXPECT_EQ(0, allowed->Header.AceFlags);
    EXPECT_EQ(20u, allowed->Header.AceSize);
    EXPECT_EQ(0x10000000u, allowed->Mask);
    EXPECT_EQ(0, std::memcmp(layout, &allowed->SidStart, sizeof layout));
    EXPECT_EQ(nullptr, FreeSid(sid));
}
} // namespace
