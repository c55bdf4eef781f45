#include "win32/securityattributes.h"

#include "gen/debug.h"

LSecurityAttributesAllAccess::LSecurityAttributesAllAccess()
    : m_Descriptor{}, m_Attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE}, m_pAccessList(nullptr)
{
    static_assert(offsetof(LSecurityAttributesAllAccess, m_Attributes) == 40 &&
                  offsetof(LSecurityAttributesAllAccess, m_pAccessList) == 64); // contract.md M15
    if (!InitializeSecurityDescriptor(&m_Descriptor, SECURITY_DESCRIPTOR_REVISION))
    {
        LDebugTraceError(
            "LSecurityAttributesAllAccess::LSecurityAttributesAllAccess InitializeSecurityDescriptor "
            "FAILED");
        return;
    }
    SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
    PSID pSid = nullptr;
    if (!AllocateAndInitializeSid(&authority, 1, SECURITY_AUTHENTICATED_USER_RID, 0, 0, 0, 0, 0, 0, 0, &pSid))
    {
        LDebugTraceErrorF(
            "LSecurityAttributesAllAccess::LSecurityAttributesAllAccess AllocateAndInitializeSid failed "
            "with error %d\n", // contract.md O16, as below
            static_cast<int>(GetLastError()));
        return;
    }
    GrantAllAccess(pSid);
    FreeSid(pSid);
}

void LSecurityAttributesAllAccess::GrantAllAccess(PSID pSid)
{
    // The list's header, and the fixed part of its only entry without the first word of the SID in it.
    static_assert(sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD) == 16); // contract.md M15
    const DWORD uSize = GetLengthSid(pSid) + 16;
    m_pAccessList = static_cast<ACL*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, uSize));
    if (m_pAccessList == nullptr)
    {
        LDebugTraceErrorF(
            "LSecurityAttributesAllAccess::LSecurityAttributesAllAccess HeapAlloc failed with error %d\n",
            static_cast<int>(GetLastError()));
        return;
    }
    if (!InitializeAcl(m_pAccessList, uSize, ACL_REVISION))
    {
        LDebugTraceError("LSecurityAttributesAllAccess::LSecurityAttributesAllAccess InitializeAcl FAILED");
        return;
    }
    if (!AddAccessAllowedAce(m_pAccessList, ACL_REVISION, GENERIC_ALL, pSid))
    {
        LDebugTraceError(
            "LSecurityAttributesAllAccess::LSecurityAttributesAllAccess AddAccessAllowedAce FAILED");
        return;
    }
    if (!SetSecurityDescriptorDacl(&m_Descriptor, TRUE, m_pAccessList, FALSE))
    {
        LDebugTraceError(
            "LSecurityAttributesAllAccess::LSecurityAttributesAllAccess SetSecurityDescriptorDacl FAILED");
        return;
    }
    m_Attributes.lpSecurityDescriptor = &m_Descriptor;
}

LSecurityAttributesAllAccess::~LSecurityAttributesAllAccess()
{
    if (m_pAccessList != nullptr)
    {
        HeapFree(GetProcessHeap(), 0, m_pAccessList);
    }
}

SECURITY_ATTRIBUTES* LSecurityAttributesAllAccess::GetSecurityAttributes()
{
    return m_Attributes.lpSecurityDescriptor == nullptr ? nullptr : &m_Attributes;
}
