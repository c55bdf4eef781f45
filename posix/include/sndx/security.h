#pragma once
// Security descriptors, access lists and security identifiers: real structures with Windows' layout. The
// layer's objects do not enforce them; they are for callers that build them and for tests that read them.

#include "sndx/base.h"

#define GENERIC_ALL 0x10000000u
#define SECURITY_DESCRIPTOR_REVISION 1
#define SID_REVISION 1
#define ACL_REVISION 2
#define ACCESS_ALLOWED_ACE_TYPE 0
#define SE_DACL_PRESENT 0x0004
#define SE_DACL_DEFAULTED 0x0008
#define SECURITY_AUTHENTICATED_USER_RID 11

using PSID = void*;
using PSECURITY_DESCRIPTOR = void*;
using SECURITY_DESCRIPTOR_CONTROL = WORD;
using ACCESS_MASK = DWORD;

struct SID_IDENTIFIER_AUTHORITY
{
    BYTE Value[6];
};
using PSID_IDENTIFIER_AUTHORITY = SID_IDENTIFIER_AUTHORITY*;
// Initialiser of the authority that issues the well-known groups.
#define SECURITY_NT_AUTHORITY                                                                                \
    {                                                                                                        \
        {                                                                                                    \
            0, 0, 0, 0, 0, 5                                                                                 \
        }                                                                                                    \
    }

// A SID of n sub-authorities takes 8 + 4n bytes; the array is declared with its smallest length.
struct SID
{
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];
};
static_assert(sizeof(SID) == 12 && offsetof(SID, SubAuthority) == 8);

// Header of an access list; AclSize counts the header, the entries and the free room behind them.
struct ACL
{
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
};
using PACL = ACL*;
static_assert(sizeof(ACL) == 8);

struct ACE_HEADER
{
    BYTE AceType;
    BYTE AceFlags;
    WORD AceSize;
};

// The entry's SID begins in the field SidStart.
struct ACCESS_ALLOWED_ACE
{
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    DWORD SidStart;
};
static_assert(sizeof(ACCESS_ALLOWED_ACE) == 12 && offsetof(ACCESS_ALLOWED_ACE, SidStart) == 8);

// Absolute form: owner, group and lists are pointers that the caller keeps alive.
struct SECURITY_DESCRIPTOR
{
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    PSID Owner;
    PSID Group;
    PACL Sacl;
    PACL Dacl;
};
static_assert(sizeof(SECURITY_DESCRIPTOR) == 40 && offsetof(SECURITY_DESCRIPTOR, Dacl) == 32);

static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

extern "C"
{
    // Only revision 1; otherwise error 1305.
    BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
    // daclPresent FALSE takes the list out; a null list that is present allows everybody everything.
    BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL daclPresent, PACL dacl,
                                          BOOL daclDefaulted);
    BOOL WINAPI GetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, LPBOOL daclPresent, PACL* dacl,
                                          LPBOOL daclDefaulted);

    // Between 1 and 8 sub-authorities. The SID is the caller's, to be freed with FreeSid.
    BOOL WINAPI AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE subAuthorityCount,
                                         DWORD subAuthority0, DWORD subAuthority1, DWORD subAuthority2,
                                         DWORD subAuthority3, DWORD subAuthority4, DWORD subAuthority5,
                                         DWORD subAuthority6, DWORD subAuthority7, PSID* sid);
    // Always null.
    PVOID WINAPI FreeSid(PSID sid);
    // Bytes; the SID is not validated.
    DWORD WINAPI GetLengthSid(PSID sid);

    // length in bytes, header included, at most 65535.
    BOOL WINAPI InitializeAcl(PACL acl, DWORD length, DWORD revision);
    // Appends a copy of the SID; error 1344 when the list's size does not hold it.
    BOOL WINAPI AddAccessAllowedAce(PACL acl, DWORD revision, DWORD accessMask, PSID sid);
}
