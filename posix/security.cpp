// Security descriptors and access lists: only memory is laid out and checked here.

#include "sndx/security.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

#include "posix/internal.h"

namespace
{
constexpr DWORD highestAclRevision = 4;

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

bool IsSid(const SID* sid)
{
    return sid != nullptr && sid->Revision == SID_REVISION &&
           sid->SubAuthorityCount <= SID_MAX_SUB_AUTHORITIES;
}

constexpr DWORD SidLength(BYTE subAuthorityCount)
{
    return static_cast<DWORD>(offsetof(SID, SubAuthority) + subAuthorityCount * sizeof(DWORD));
}

BYTE* BytesOf(PACL acl)
{
    return reinterpret_cast<BYTE*>(acl);
}

// Where entry `index` begins, in bytes from the list's start (for the number of entries: the free room).
// 0 when an entry before it does not lie within the list.
DWORD EntryOffset(PACL acl, DWORD index)
{
    DWORD offset = sizeof(ACL);
    for (DWORD i = 0; i < index; ++i)
    {
        ACE_HEADER header;
        if (offset + sizeof(header) > acl->AclSize)
        {
            return 0;
        }
        std::memcpy(&header, BytesOf(acl) + offset, sizeof(header));
        if (header.AceSize < sizeof(header) || offset + header.AceSize > acl->AclSize)
        {
            return 0;
        }
        offset += header.AceSize;
    }
    return offset;
}
} // namespace

extern "C" BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
{
    if (sndxposix::FailNextCall("InitializeSecurityDescriptor"))
    {
        return FALSE;
    }
    if (revision != SECURITY_DESCRIPTOR_REVISION)
    {
        return Fail(ERROR_UNKNOWN_REVISION);
    }
    SECURITY_DESCRIPTOR fresh = {};
    fresh.Revision = SECURITY_DESCRIPTOR_REVISION;
    *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = fresh;
    return TRUE;
}

extern "C" BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL daclPresent, PACL dacl,
                                                 BOOL daclDefaulted)
{
    if (sndxposix::FailNextCall("SetSecurityDescriptorDacl"))
    {
        return FALSE;
    }
    auto* const target = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    if (target->Revision != SECURITY_DESCRIPTOR_REVISION)
    {
        return Fail(ERROR_UNKNOWN_REVISION);
    }
    unsigned control = target->Control & ~static_cast<unsigned>(SE_DACL_PRESENT | SE_DACL_DEFAULTED);
    if (daclPresent != FALSE)
    {
        target->Dacl = dacl;
        control |= SE_DACL_PRESENT | (daclDefaulted != FALSE ? SE_DACL_DEFAULTED : 0u);
    }
    target->Control = static_cast<SECURITY_DESCRIPTOR_CONTROL>(control);
    return TRUE;
}

extern "C" BOOL WINAPI GetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, LPBOOL daclPresent,
                                                 PACL* dacl, LPBOOL daclDefaulted)
{
    const auto* const source = static_cast<const SECURITY_DESCRIPTOR*>(descriptor);
    if (source->Revision != SECURITY_DESCRIPTOR_REVISION)
    {
        return Fail(ERROR_UNKNOWN_REVISION);
    }
    *daclPresent = (source->Control & SE_DACL_PRESENT) != 0 ? TRUE : FALSE;
    if (*daclPresent != FALSE)
    {
        *dacl = source->Dacl;
        *daclDefaulted = (source->Control & SE_DACL_DEFAULTED) != 0 ? TRUE : FALSE;
    }
    return TRUE;
}

extern "C" BOOL WINAPI AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE subAuthorityCount,
                                                DWORD subAuthority0, DWORD subAuthority1, DWORD subAuthority2,
                                                DWORD subAuthority3, DWORD subAuthority4, DWORD subAuthority5,
                                                DWORD subAuthority6, DWORD subAuthority7, PSID* sid)
{
    if (sndxposix::FailNextCall("AllocateAndInitializeSid"))
    {
        return FALSE;
    }
    const DWORD subAuthorities[] = {subAuthority0, subAuthority1, subAuthority2, subAuthority3,
                                    subAuthority4, subAuthority5, subAuthority6, subAuthority7};
    if (subAuthorityCount > std::size(subAuthorities))
    {
        return Fail(ERROR_INVALID_SID);
    }
    // A whole SID even without sub-authorities, so that the structure lies within the block.
    auto* const made = static_cast<SID*>(std::calloc(1, SidLength(subAuthorityCount) + sizeof(DWORD)));
    if (made == nullptr)
    {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    made->Revision = SID_REVISION;
    made->SubAuthorityCount = subAuthorityCount;
    made->IdentifierAuthority = *authority;
    std::memcpy(made->SubAuthority, subAuthorities, subAuthorityCount * sizeof(DWORD));
    *sid = made;
    return TRUE;
}

extern "C" PVOID WINAPI FreeSid(PSID sid)
{
    std::free(sid);
    return nullptr;
}

extern "C" DWORD WINAPI GetLengthSid(PSID sid)
{
    return SidLength(static_cast<const SID*>(sid)->SubAuthorityCount);
}

extern "C" BOOL WINAPI EqualSid(PSID first, PSID second)
{
    const auto* const one = static_cast<const SID*>(first);
    const auto* const other = static_cast<const SID*>(second);
    if (!IsSid(one) || !IsSid(other))
    {
        return Fail(ERROR_INVALID_SID);
    }
    return one->SubAuthorityCount == other->SubAuthorityCount &&
                   std::memcmp(one, other, SidLength(one->SubAuthorityCount)) == 0
               ? TRUE
               : FALSE;
}

extern "C" BOOL WINAPI InitializeAcl(PACL acl, DWORD length, DWORD revision)
{
    if (sndxposix::FailNextCall("InitializeAcl"))
    {
        return FALSE;
    }
    if (length < sizeof(ACL))
    {
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    if (length > 0xFFFF || revision < ACL_REVISION || revision > highestAclRevision)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *acl = ACL{static_cast<BYTE>(revision), 0, static_cast<WORD>(length & ~3u), 0, 0};
    return TRUE;
}

extern "C" BOOL WINAPI AddAccessAllowedAce(PACL acl, DWORD revision, DWORD accessMask, PSID sid)
{
    if (sndxposix::FailNextCall("AddAccessAllowedAce"))
    {
        return FALSE;
    }
    if (!IsSid(static_cast<const SID*>(sid)))
    {
        return Fail(ERROR_INVALID_SID);
    }
    if (acl->AclRevision > highestAclRevision || revision > highestAclRevision)
    {
        return Fail(ERROR_REVISION_MISMATCH);
    }
    const DWORD offset = EntryOffset(acl, acl->AceCount);
    if (offset == 0)
    {
        return Fail(ERROR_INVALID_ACL);
    }
    const DWORD fixedSize = offsetof(ACCESS_ALLOWED_ACE, SidStart);
    const DWORD size = fixedSize + GetLengthSid(sid);
    if (offset + size > acl->AclSize)
    {
        return Fail(ERROR_ALLOTTED_SPACE_EXCEEDED);
    }
    const ACE_HEADER header = {ACCESS_ALLOWED_ACE_TYPE, 0, static_cast<WORD>(size)};
    std::memcpy(BytesOf(acl) + offset, &header, sizeof(header));
    std::memcpy(BytesOf(acl) + offset + offsetof(ACCESS_ALLOWED_ACE, Mask), &accessMask, sizeof(accessMask));
    std::memcpy(BytesOf(acl) + offset + fixedSize, sid, size - fixedSize);
    ++acl->AceCount;
    if (acl->AclRevision < revision)
    {
        acl->AclRevision = static_cast<BYTE>(revision);
    }
    return TRUE;
}

extern "C" BOOL WINAPI GetAce(PACL acl, DWORD index, LPVOID* ace)
{
    if (acl->AclRevision < ACL_REVISION || acl->AclRevision > highestAclRevision || index >= acl->AceCount)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const DWORD offset = EntryOffset(acl, index);
    if (offset == 0 || EntryOffset(acl, index + 1) == 0)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *ace = BytesOf(acl) + offset;
    return TRUE;
}
