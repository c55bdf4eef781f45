#pragma once
// Security attributes that grant all access to every authenticated user, for objects that processes of
// different users share.

#include "gen/types.h"

class LSecurityAttributesAllAccess
{
  public:
    // A failed step is reported and leaves the object incomplete.
    LSecurityAttributesAllAccess();
    ~LSecurityAttributesAllAccess();
    LSecurityAttributesAllAccess(const LSecurityAttributesAllAccess&) = delete;
    LSecurityAttributesAllAccess& operator=(const LSecurityAttributesAllAccess&) = delete;

    // Null when the construction failed: default security. Valid as long as the object.
    SECURITY_ATTRIBUTES* GetSecurityAttributes();

  private:
    void GrantAllAccess(PSID pSid);

    SECURITY_DESCRIPTOR m_Descriptor;
    SECURITY_ATTRIBUTES m_Attributes; // lpSecurityDescriptor is null until everything has succeeded
    ACL* m_pAccessList;               // on the process heap, owned
};
// contract.md M15
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24 && sizeof(LSecurityAttributesAllAccess) == 72);
