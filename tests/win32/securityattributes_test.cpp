// The content of the security attributes, the steps of their construction that can fail, and who may open a
// block that is created with them.

#include <cstring>

#ifdef _WIN32
#include <windows.h>
#include <sddl.h>
#else
#include "sndxposix.h"
#endif

#include "tests/support/reports.h"
#include "win32/securityattributes.h"
#include "win32/sharedmemory.h"

namespace
{
using namespace sndxtest;

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
    // Revision 2, 28 bytes, one entry: 20 bytes that allow GENERIC_ALL to S-1-5-11.
    const BYTE expected[28] = {2, 0,    28, 0, 1, 0, 0, 0, 0, 0, 20, 0, 0, 0,
                               0, 0x10, 1,  1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0};
    EXPECT_EQ(std::memcmp(list, expected, sizeof expected), 0);
}

#ifdef _WIN32 // the native layer keeps no security with its objects
// The access list of an existing block in the system's text form.
std::string AccessList(const std::string& name)
{
    const LHandle block(OpenFileMappingW(READ_CONTROL, FALSE, Wide(name).c_str()));
    BYTE descriptor[1024];
    DWORD size = sizeof(descriptor);
    WCHAR* text = nullptr;
    if (!GetKernelObjectSecurity(block.Get(), DACL_SECURITY_INFORMATION, descriptor, size, &size) ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                              DACL_SECURITY_INFORMATION, &text, nullptr))
    {
        return "error " + std::to_string(GetLastError());
    }
    const std::string result = Utf8(text);
    LocalFree(text);
    return result;
}

TEST(SecurityAttributes, AGlobalBlockIsOpenToEveryAuthenticatedUserOnly)
{
    const std::string name = "sndxtest" + std::to_string(GetCurrentProcessId());
    LIPCSharedMemoryBuffer global;
    global._Create(Wide(name).c_str(), 4, false, true);
    // The generic right may come back as the rights that it stands for.
    const std::string list = AccessList("Global\\" + name);
    EXPECT_TRUE(list == "D:(A;;GA;;;AU)" || list == "D:(A;;0xf001f;;;AU)") << list;
    LIPCSharedMemoryBuffer local;
    local._Create(Wide(name).c_str(), 4, false, false);
    EXPECT_EQ(AccessList(name).find("AU"), std::string::npos) << "default security for a local block";
}
#else // on Windows no step can be made to fail
// Blocks that a failed construction forgets are found by the leak check of the sanitized build.
TEST(SecurityAttributes, AStepThatFailsIsReportedAndLeavesDefaultSecurity)
{
    const std::pair<const char*, std::string> steps[] = {
        {"InitializeSecurityDescriptor", "InitializeSecurityDescriptor FAILED"},
        {"AllocateAndInitializeSid", "AllocateAndInitializeSid failed with error 1234\n"},
        {"HeapAlloc", "HeapAlloc failed with error 1234\n"},
        {"InitializeAcl", "InitializeAcl FAILED"},
        {"AddAccessAllowedAce", "AddAccessAllowedAce FAILED"},
        {"SetSecurityDescriptorDacl", "SetSecurityDescriptorDacl FAILED"}};
    for (const auto& [function, text] : steps)
    {
        SCOPED_TRACE(function);
        const std::string report = "**LSecurityAttributesAllAccess::LSecurityAttributesAllAccess " + text;
        const TraceCapture trace;
        sndxposix::FailCall(function, 1234);
        EXPECT_EQ(LSecurityAttributesAllAccess().GetSecurityAttributes(), nullptr);
        EXPECT_EQ(sndxposix::PendingFailures(), 0u);
        EXPECT_EQ(trace.Texts(), Lines{report});
    }
}
#endif
} // namespace
