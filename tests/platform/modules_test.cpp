// Loading and unloading of modules, and what a process can ask about them.

#include <string>

#include <gtest/gtest.h>

#include <windows.h>

#include <shlobj.h>

#include "tests/platform/handle.h"
#include "tests/platform/testmodule/testmodule.h"
#include "tests/support/child.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"

namespace
{
using namespace sndxtest;

std::string InDataFolder(const std::string& name)
{
    WCHAR folder[MAX_PATH];
    SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
    return Utf8(folder) + "\\" + name;
}

std::string FileNameOf(HMODULE module)
{
    WCHAR path[1024];
    return Utf8(WideString(path, GetModuleFileNameW(module, path, 1024)));
}

class Modules : public testing::Test
{
  protected:
    Modules() { Clear(); }
    ~Modules() override { Clear(); }

    // What the module has noted since the test began.
    static std::string Log() { return ReadWholeFile(InDataFolder(TESTMODULE_LOG)); }

  private:
    static void Clear()
    {
        for (const char* name : {TESTMODULE_LOG, TESTMODULE_REFUSAL})
        {
            DeleteFileW(Wide(InDataFolder(name)).c_str());
        }
    }
};

TEST_F(Modules, LiveFromTheFirstLoadToTheLastRelease)
{
    std::string lives;
    for (int life = 0; life < 2; ++life)
    {
        const HMODULE module = LoadLibraryA(TESTMODULE_FILE);
        ASSERT_NE(module, nullptr) << GetLastError();
        EXPECT_EQ(Log(), lives += "construct attach ");
        EXPECT_EQ(LoadLibraryW(Wide(FileNameOf(module)).c_str()), module);
        EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), module);
        const auto instance = reinterpret_cast<HINSTANCE (*)()>(
            reinterpret_cast<void*>(GetProcAddress(module, "TestModuleInstance")));
        ASSERT_NE(instance, nullptr);
        EXPECT_EQ(instance(), module);
        EXPECT_EQ(GetProcAddress(module, "NoSuchFunction"), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_EQ(Log(), lives);
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_EQ(Log(), lives += "detach destruct ");
        EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), nullptr);
        EXPECT_EQ(ErrorOf(FreeLibrary(module)), ERROR_MOD_NOT_FOUND);
    }
}

SNDX_CHILD(LoadAndEnd)
{
    return LoadLibraryA(TESTMODULE_FILE) != nullptr ? 7 : 1;
}

TEST_F(Modules, AreDetachedAndDestroyedAtTheEndOfTheProcess)
{
    EXPECT_EQ(ChildProcess("LoadAndEnd", {}).Wait(), 7);
    EXPECT_EQ(Log(), "construct attach detach-at-exit destruct ");
}

TEST_F(Modules, ThatRefuseToAttachAreNotLoaded)
{
    WriteWholeFile(InDataFolder(TESTMODULE_REFUSAL), "");
    EXPECT_EQ(LoadLibraryA(TESTMODULE_FILE), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_DLL_INIT_FAILED);
    EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), nullptr);
    EXPECT_TRUE(Log().starts_with("construct attach ") && Log().ends_with("destruct ")) << Log();
}

} // namespace
