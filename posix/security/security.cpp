// Security descriptors and access lists: only memory is laid out and checked here.

#include <cstdlib>
#include <cstring>
#include <iterator>

#include "posix/base/call.h"
#include "sndx/security.h"

namespace sndxposix
{
namespace
{
BYTE* BytesOf(PACL acl)
{
    return reinterpret_cast<BYTE*>(acl);
}

// Where entry `index` begins, in bytes from the list's start (for the number of entries: the free room).
DWORD EntryOffset(PACL acl, DWORD index)
{
    DWORD offset = sizeof(ACL);
    for (DWORD i = 0; i < index; ++i)
    {
        ACE_HEADER header;
        std::memcpy(&header, BytesOf(acl) + offset, sizeof(header));
        offset += header.AceSize;
    }
    return offset;
}
} // namespace

extern "C" BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
{
    if (FailNextCall("InitializeSecurityDescriptor", {static_cast<SECURITY_DESCRIPTOR*>(descriptor)}))
    {
        return FALSE;
    }
    SECURITY_DESCRIPTOR fresh = {};
    fresh.Revision = SECURITY_DESCRIPTOR_REVISION;
    *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = fresh;
    return revision == SECURITY_DESCRIPTOR_REVISION || FailWith(ERROR_UNKNOWN_REVISION);
}

extern "C" BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL daclPresent, PACL dacl,
                                                 BOOL daclDefaulted)
{
    if (FailNextCall("SetSecurityDescriptorDacl"))
    {
        return FALSE;
    }
    auto* const target = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    target->Dacl = daclPresent ? dacl : nullptr;
    target->Control =
        static_cast<WORD>((daclPresent ? SE_DACL_PRESENT : 0) | (daclDefaulted ? SE_DACL_DEFAULTED : 0));
    return TRUE;
}

extern "C" BOOL WINAPI GetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, LPBOOL daclPresent,
                                                 PACL* dacl, LPBOOL daclDefaulted)
{
    const auto* const source = static_cast<const SECURITY_DESCRIPTOR*>(descriptor);
    *daclPresent = (source->Control & SE_DACL_PRESENT) != 0;
    *dacl = source->Dacl;
    *daclDefaulted = (source->Control & SE_DACL_DEFAULTED) != 0;
    return TRUE;
}

extern "C" BOOL WINAPI AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE subAuthorityCount,
                                                DWORD subAuthority0, DWORD subAuthority1, DWORD subAuthority2,
                                                DWORD subAuthority3, DWORD subAuthority4, DWORD subAuthority5,
                                                DWORD subAuthority6, DWORD subAuthority7, PSID* sid)
{
    if (FailNextCall("AllocateAndInitializeSid", {sid}))
    {
        return FALSE;
    }
    const DWORD subAuthorities[] = {subAuthority0, subAuthority1, subAuthority2, subAuthority3,
                                    subAuthority4, subAuthority5, subAuthority6, subAuthority7};
    if (subAuthorityCount == 0 || subAuthorityCount > std::size(subAuthorities))
    {
        return FailWith(ERROR_INVALID_SID);
    }
    const std::size_t extra = (subAuthorityCount - 1u) * sizeof(DWORD);
    auto* const made = static_cast<SID*>(std::malloc(sizeof(SID) + extra));
    if (made == nullptr)
    {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    *made = {SID_REVISION, subAuthorityCount, *authority, {}};
    std::memcpy(made->SubAuthority, subAuthorities, sizeof(DWORD) + extra);
    *sid = made;
    CountLive(1);
    return TRUE;
}

extern "C" PVOID WINAPI FreeSid(PSID sid)
{
    std::free(sid);
    CountLive(sid != nullptr ? -1 : 0);
    return nullptr;
}

extern "C" DWORD WINAPI GetLengthSid(PSID sid)
{
    return static_cast<DWORD>(offsetof(SID, SubAuthority) +
                              static_cast<const SID*>(sid)->SubAuthorityCount * sizeof(DWORD));
}

extern "C" BOOL WINAPI InitializeAcl(PACL acl, DWORD length, DWORD revision)
{
    if (FailNextCall("InitializeAcl", {{acl, length}}))
    {
        return FALSE;
    }
    if (length < sizeof(ACL) || length > 0xFFFF || revision != ACL_REVISION)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    *acl = ACL{ACL_REVISION, 0, static_cast<WORD>(length & ~3u), 0, 0};
    return TRUE;
}

extern "C" BOOL WINAPI AddAccessAllowedAce(PACL acl, DWORD /*revision*/, DWORD accessMask, PSID sid)
{
    if (FailNextCall("AddAccessAllowedAce"))
    {
        return FALSE;
    }
    const DWORD offset = EntryOffset(acl, acl->AceCount);
    const DWORD fixedSize = offsetof(ACCESS_ALLOWED_ACE, SidStart);
    const DWORD size = fixedSize + GetLengthSid(sid);
    if (offset + size > acl->AclSize)
    {
        return FailWith(ERROR_ALLOTTED_SPACE_EXCEEDED);
    }
    const ACE_HEADER header = {ACCESS_ALLOWED_ACE_TYPE, 0, static_cast<WORD>(size)};
    std::memcpy(BytesOf(acl) + offset, &header, sizeof(header));
    std::memcpy(BytesOf(acl) + offset + offsetof(ACCESS_ALLOWED_ACE, Mask), &accessMask, sizeof(accessMask));
    std::memcpy(BytesOf(acl) + offset + fixedSize, sid, size - fixedSize);
    ++acl->AceCount;
    return TRUE;
}
} // namespace sndxposix
