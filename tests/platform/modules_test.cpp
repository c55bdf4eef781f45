// Loading and unloading of modules, and what a process can ask about them.

#include <string>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/platform/testmodule/testmodule.h"
#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

WideString InTemporaryFolder(const std::string& name)
{
    WCHAR folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    return folder + Wide(name);
}

std::string FileNameOf(HMODULE module)
{
    WCHAR path[1024];
    const DWORD length = GetModuleFileNameW(module, path, 1024);
    return Utf8(WideString(path, length));
}

class Modules : public testing::Test
{
  protected:
    Modules() { Clear(); }
    ~Modules() override { Clear(); }

    // What the module has noted since the test began.
    static std::string Log()
    {
        const Handle file(CreateFileW(InTemporaryFolder(TESTMODULE_LOG).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
        char text[500] = {};
        DWORD bytes = 0;
        if (file.IsOpen())
        {
            ReadFile(file, text, sizeof text - 1, &bytes, nullptr);
        }
        return std::string(text, bytes);
    }

  private:
    static void Clear()
    {
        DeleteFileW(InTemporaryFolder(TESTMODULE_LOG).c_str());
        DeleteFileW(InTemporaryFolder(TESTMODULE_REFUSAL).c_str());
    }
};

TEST_F(Modules, LiveFromTheFirstLoadToTheLastRelease)
{
    const HMODULE module = LoadLibraryA(TESTMODULE_FILE);
    ASSERT_NE(module, nullptr) << GetLastError();
    EXPECT_EQ(Log(), "construct attach ");
    EXPECT_EQ(LoadLibraryW(Wide(FileNameOf(module)).c_str()), module);
    EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), module);
    const auto instance = reinterpret_cast<HINSTANCE (*)()>(
        reinterpret_cast<void*>(GetProcAddress(module, "TestModuleInstance")));
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance(), module);
    EXPECT_EQ(GetProcAddress(module, "NoSuchFunction"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);

    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(Log(), "construct attach ");
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(Log(), "construct attach detach destruct ");
    EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_FALSE(FreeLibrary(module));

    // A second life is like the first.
    const HMODULE again = LoadLibraryA(TESTMODULE_FILE);
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(FreeLibrary(again));
    EXPECT_EQ(Log(), "construct attach detach destruct construct attach detach destruct ");
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
    Handle(CreateFileW(InTemporaryFolder(TESTMODULE_REFUSAL).c_str(), GENERIC_WRITE, 0, nullptr,
                       CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_EQ(LoadLibraryA(TESTMODULE_FILE), nullptr);
    EXPECT_EQ(GetLastError(), 1114u); // ERROR_DLL_INIT_FAILED
    EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), nullptr);
    EXPECT_TRUE(Log().starts_with("construct attach ") && Log().ends_with("destruct ")) << Log();
}

TEST_F(Modules, HavePathsThatAreCutToTheBuffer)
{
    const std::string program = FileNameOf(nullptr);
    EXPECT_EQ(program.substr(1, 2), ":\\");
    EXPECT_EQ(program.find('/'), std::string::npos);
    EXPECT_NE(GetFileAttributesW(Wide(program).c_str()), INVALID_FILE_ATTRIBUTES);

    const HMODULE module = LoadLibraryA(TESTMODULE_FILE);
    const std::string path = FileNameOf(module);
    EXPECT_TRUE(path.ends_with("\\" TESTMODULE_FILE)) << path;
    const auto length = static_cast<DWORD>(path.size());
    for (const DWORD size : {DWORD{6}, length})
    {
        WideString cut(size + 1, WCHAR{'#'});
        EXPECT_EQ(GetModuleFileNameW(module, cut.data(), size), size);
        EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(Utf8(cut).substr(0, size - 1), path.substr(0, size - 1));
        EXPECT_EQ(cut[size], WCHAR{'#'});
    }
    WideString exact(length + 1, WCHAR{'#'});
    EXPECT_EQ(GetModuleFileNameW(module, exact.data(), length + 1), length);
    EXPECT_EQ(Utf8(exact.c_str()), path);
    EXPECT_TRUE(FreeLibrary(module));
}

TEST_F(Modules, ThatAreMissingOrNoneAreRefused)
{
    const WideString text = InTemporaryFolder("sndx-text.dll");
    {
        const Handle file(CreateFileW(text.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD bytes = 0;
        EXPECT_TRUE(WriteFile(file, "no module", 9, &bytes, nullptr));
    }
    const std::pair<WideString, DWORD> cases[] = {{Wide("sndx-no-such-module.dll"), ERROR_MOD_NOT_FOUND},
                                                  {InTemporaryFolder("none\\none.dll"), ERROR_MOD_NOT_FOUND},
                                                  {text, ERROR_BAD_EXE_FORMAT}};
    for (const auto& [name, error] : cases)
    {
        EXPECT_EQ(LoadLibraryW(name.c_str()), nullptr);
        EXPECT_EQ(GetLastError(), error) << Utf8(name);
    }
    EXPECT_TRUE(DeleteFileW(text.c_str()));
}

TEST_F(Modules, SystemLibrariesAreThere)
{
    const HMODULE kernel = LoadLibraryA("kernel32.dll");
    ASSERT_NE(kernel, nullptr);
    EXPECT_EQ(GetModuleHandleW(TEXT("KERNEL32")), kernel);
    EXPECT_EQ(GetProcAddress(kernel, "no_such_function"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_TRUE(FreeLibrary(kernel));
    const HMODULE ntdll = GetModuleHandleW(TEXT("ntdll.dll"));
    EXPECT_NE(ntdll, nullptr);
    EXPECT_NE(ntdll, kernel);
}
} // namespace
