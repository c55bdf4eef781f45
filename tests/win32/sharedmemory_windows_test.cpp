// Who may open a block. The native layer keeps no security with its objects.

#include <gtest/gtest.h>

#include <windows.h>
#include <sddl.h>

#include "tests/support/text.h"
#include "win32/sharedmemory.h"

namespace
{
// The access list of an existing block in the system's text form.
std::string AccessList(const std::string& name)
{
    const LHandle block(OpenFileMappingW(READ_CONTROL, FALSE, sndxtest::Wide(name).c_str()));
    BYTE descriptor[1024];
    DWORD size = sizeof(descriptor);
    WCHAR* text = nullptr;
    if (!GetKernelObjectSecurity(block.Get(), DACL_SECURITY_INFORMATION, descriptor, size, &size) ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                              DACL_SECURITY_INFORMATION, &text, nullptr))
    {
        return "error " + std::to_string(GetLastError());
    }
    const std::string result = sndxtest::Utf8(text);
    LocalFree(text);
    return result;
}

TEST(SharedMemorySecurity, AGlobalBlockIsOpenToEveryAuthenticatedUserOnly)
{
    const std::string name = "sndxtest" + std::to_string(GetCurrentProcessId());
    LIPCSharedMemoryBuffer global;
    global._Create(sndxtest::Wide(name).c_str(), 4, false, true);
    // The generic right may come back as the rights that it stands for.
    const std::string list = AccessList("Global\\" + name);
    EXPECT_TRUE(list == "D:(A;;GA;;;AU)" || list == "D:(A;;0xf001f;;;AU)") << list;
    LIPCSharedMemoryBuffer local;
    local._Create(sndxtest::Wide(name).c_str(), 4, false, false);
    EXPECT_EQ(AccessList(name).find("AU"), std::string::npos) << "default security for a local block";
}
} // namespace
