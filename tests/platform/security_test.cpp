// Building a security descriptor, and reading it back through the structures.

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

namespace
{
SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;

class Sid
{
  public:
    explicit Sid(DWORD first, BYTE count = 1, DWORD second = 0)
    {
        EXPECT_TRUE(AllocateAndInitializeSid(&ntAuthority, count, first, second, 0, 0, 0, 0, 0, 0, &sid_));
    }
    ~Sid() { EXPECT_EQ(nullptr, FreeSid(sid_)); }
    Sid(const Sid&) = delete;
    Sid& operator=(const Sid&) = delete;
    operator PSID() const { return sid_; }

  private:
    PSID sid_ = nullptr;
};

TEST(Security, SidsHaveTheirWindowsLayout)
{
    const Sid authenticated(11);
    ASSERT_EQ(12u, GetLengthSid(authenticated));
    const BYTE expected[12] = {1, 1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(expected, authenticated, sizeof(expected)));

    const Sid guests(32, 2, 546);
    EXPECT_EQ(16u, GetLengthSid(guests));
    const Sid alike(32, 2, 546);
    const Sid administrators(32, 2, 544);
    EXPECT_TRUE(EqualSid(guests, alike));
    EXPECT_FALSE(EqualSid(guests, administrators));
    EXPECT_FALSE(EqualSid(guests, authenticated));

    PSID none = nullptr;
    SetLastError(0);
    EXPECT_FALSE(AllocateAndInitializeSid(&ntAuthority, 9, 1, 2, 3, 4, 5, 6, 7, 8, &none));
    EXPECT_EQ(DWORD{ERROR_INVALID_SID}, GetLastError());
}

TEST(Security, AnAccessListTakesTheEntriesThatItHasRoomFor)
{
    const Sid authenticated(11);
    const Sid guests(32, 2, 546);
    // The list's header and the fixed part of one entry are 16 bytes.
    const DWORD size = GetLengthSid(authenticated) + 16;
    std::vector<DWORD> memory(size / 4 + 1, 0x5A5A5A5Au);
    ACL* acl = reinterpret_cast<ACL*>(memory.data());
    ASSERT_TRUE(InitializeAcl(acl, size, ACL_REVISION));
    EXPECT_EQ(2, acl->AclRevision);
    EXPECT_EQ(size, acl->AclSize);
    EXPECT_EQ(0, acl->AceCount);

    void* ace = nullptr;
    EXPECT_FALSE(GetAce(acl, 0, &ace));
    ASSERT_TRUE(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, authenticated));
    EXPECT_EQ(1, acl->AceCount);
    ASSERT_TRUE(GetAce(acl, 0, &ace));
    EXPECT_EQ(reinterpret_cast<BYTE*>(acl) + sizeof(ACL), ace);
    const ACCESS_ALLOWED_ACE* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(ace);
    EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, allowed->Header.AceType);
    EXPECT_EQ(0, allowed->Header.AceFlags);
    EXPECT_EQ(20u, allowed->Header.AceSize);
    EXPECT_EQ(0x10000000u, allowed->Mask);
    EXPECT_TRUE(EqualSid(const_cast<DWORD*>(&allowed->SidStart), authenticated));

    SetLastError(0);
    EXPECT_FALSE(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, guests));
    EXPECT_EQ(DWORD{ERROR_ALLOTTED_SPACE_EXCEEDED}, GetLastError());
    EXPECT_EQ(1, acl->AceCount);
    EXPECT_EQ(0x5A5A5A5Au, memory.back());
    EXPECT_FALSE(GetAce(acl, 1, &ace));
}

TEST(Security, AccessListsRefuseWrongArguments)
{
    const Sid authenticated(11);
    DWORD memory[16] = {};
    ACL* acl = reinterpret_cast<ACL*>(memory);
    SetLastError(0);
    EXPECT_FALSE(InitializeAcl(acl, sizeof(ACL) - 1, ACL_REVISION));
    EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, GetLastError());
    EXPECT_FALSE(InitializeAcl(acl, 65536, ACL_REVISION));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    EXPECT_FALSE(InitializeAcl(acl, sizeof(memory), 1));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    EXPECT_FALSE(InitializeAcl(acl, sizeof(memory), 5));

    ASSERT_TRUE(InitializeAcl(acl, sizeof(memory), ACL_REVISION));
    EXPECT_FALSE(AddAccessAllowedAce(acl, 5, GENERIC_ALL, authenticated));
    EXPECT_EQ(DWORD{ERROR_REVISION_MISMATCH}, GetLastError());
    BYTE broken[12] = {7, 1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0};
    EXPECT_FALSE(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, broken));
    EXPECT_EQ(DWORD{ERROR_INVALID_SID}, GetLastError());
    EXPECT_EQ(0, acl->AceCount);
}

TEST(Security, ADescriptorGivesItsAccessListBack)
{
    SECURITY_DESCRIPTOR descriptor;
    std::memset(&descriptor, 0x5A, sizeof(descriptor));
    SetLastError(0);
    EXPECT_FALSE(InitializeSecurityDescriptor(&descriptor, 2));
    EXPECT_EQ(DWORD{ERROR_UNKNOWN_REVISION}, GetLastError());
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_EQ(1, descriptor.Revision);
    EXPECT_EQ(0, descriptor.Control);
    EXPECT_EQ(nullptr, descriptor.Owner);

    BOOL present = TRUE;
    BOOL defaulted = FALSE;
    ACL* list = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
    EXPECT_FALSE(present);

    ACL acl = {};
    ASSERT_TRUE(InitializeAcl(&acl, sizeof(acl), ACL_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, &acl, FALSE));
    EXPECT_EQ(SE_DACL_PRESENT, descriptor.Control);
    ASSERT_TRUE(GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_FALSE(defaulted);
    EXPECT_EQ(&acl, list);

    // Everybody: a list that is present and null.
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, TRUE));
    ASSERT_TRUE(GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_TRUE(defaulted);
    EXPECT_EQ(nullptr, list);
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, FALSE, &acl, FALSE));
    ASSERT_TRUE(GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
    EXPECT_FALSE(present);

    descriptor.Revision = 9;
    EXPECT_FALSE(SetSecurityDescriptorDacl(&descriptor, TRUE, &acl, FALSE));
    EXPECT_EQ(DWORD{ERROR_UNKNOWN_REVISION}, GetLastError());
}
} // namespace
