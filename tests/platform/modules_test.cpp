// Loading and unloading of modules, and what a process can ask about them.

#include <string>

#include <gtest/gtest.h>

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

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

class Modules : public testing::Test
{
  protected:
    Modules() { Clear(); }
    ~Modules() override { Clear(); }

    // What the module has noted since the last call.
    std::string TakeLog()
    {
        const HANDLE file = CreateFileW(InTemporaryFolder(TESTMODULE_LOG).c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
        char text[500] = {};
        DWORD bytes = 0;
        if (file != INVALID_HANDLE_VALUE)
        {
            ReadFile(file, text, sizeof text - 1, &bytes, nullptr);
            CloseHandle(file);
        }
        Clear();
        return text;
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
    EXPECT_EQ(TakeLog(), "construct attach ");
    EXPECT_EQ(LoadLibraryW(Wide(FileNameOf(module)).c_str()), module);
    EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), module);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(TakeLog(), "");
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(TakeLog(), "detach destruct ");
    EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_FALSE(FreeLibrary(module));

    // A second life is like the first.
    const HMODULE again = LoadLibraryA(TESTMODULE_FILE);
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(FreeLibrary(again));
    EXPECT_EQ(TakeLog(), "construct attach detach destruct ");
}

SNDX_CHILD(LoadAndEnd)
{
    return LoadLibraryA(TESTMODULE_FILE) != nullptr ? 7 : 1;
}

TEST_F(Modules, AreDetachedAndDestroyedAtTheEndOfTheProcess)
{
    ChildProcess child("LoadAndEnd", {});
    EXPECT_EQ(child.Wait(), 7);
    EXPECT_EQ(TakeLog(), "construct attach detach-at-exit destruct ");
}

TEST_F(Modules, ThatRefuseToAttachAreNotLoaded)
{
    CloseHandle(CreateFileW(InTemporaryFolder(TESTMODULE_REFUSAL).c_str(), GENERIC_WRITE, 0, nullptr,
                            CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_EQ(LoadLibraryA(TESTMODULE_FILE), nullptr);
    EXPECT_EQ(GetLastError(), 1114u); // ERROR_DLL_INIT_FAILED
    EXPECT_EQ(GetModuleHandleW(Wide(TESTMODULE_FILE).c_str()), nullptr);
    const std::string log = TakeLog();
    EXPECT_EQ(log.find("construct attach "), 0u) << log;
    EXPECT_TRUE(EndsWith(log, "destruct ")) << log;
}

TEST_F(Modules, GiveTheirFunctionsByName)
{
    const HMODULE module = LoadLibraryA(TESTMODULE_FILE);
    ASSERT_NE(module, nullptr);
    const auto instance = reinterpret_cast<HINSTANCE (*)()>(
        reinterpret_cast<void*>(GetProcAddress(module, "TestModuleInstance")));
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance(), module);
    EXPECT_EQ(GetProcAddress(module, "NoSuchFunction"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_TRUE(FreeLibrary(module));
}

TEST_F(Modules, HavePaths)
{
    const std::string program = FileNameOf(nullptr);
    EXPECT_EQ(program.substr(1, 2), ":\\");
    EXPECT_EQ(program.find('/'), std::string::npos);
    EXPECT_NE(GetFileAttributesW(Wide(program).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(FileNameOf(GetModuleHandleW(nullptr)), program);

    const HMODULE module = LoadLibraryA(TESTMODULE_FILE);
    ASSERT_NE(module, nullptr);
    const std::string path = FileNameOf(module);
    EXPECT_TRUE(EndsWith(path, "\\" TESTMODULE_FILE)) << path;

    WCHAR buffer[7] = {};
    EXPECT_EQ(GetModuleFileNameW(module, buffer, 6), 6u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(Utf8(buffer).substr(0, 5), path.substr(0, 5));
    EXPECT_EQ(buffer[6], WCHAR{0});
    WideString exact(path.size() + 1, WCHAR{'#'});
    EXPECT_EQ(GetModuleFileNameW(module, exact.data(), static_cast<DWORD>(path.size())), path.size());
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(GetModuleFileNameW(module, exact.data(), static_cast<DWORD>(path.size() + 1)), path.size());
    EXPECT_EQ(Utf8(exact.c_str()), path);
    EXPECT_TRUE(FreeLibrary(module));
}

TEST_F(Modules, ThatAreMissingOrNoneAreRefused)
{
    EXPECT_EQ(LoadLibraryW(TEXT("sndx-no-such-module.dll")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(LoadLibraryW(InTemporaryFolder("none\\none.dll").c_str()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    const WideString text = InTemporaryFolder("sndx-text.dll");
    const HANDLE file =
        CreateFileW(text.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD bytes = 0;
    WriteFile(file, "no module", 9, &bytes, nullptr);
    CloseHandle(file);
    EXPECT_EQ(LoadLibraryW(text.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_BAD_EXE_FORMAT);
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
    EXPECT_EQ(GetProcAddress(ntdll, "no_such_function"), nullptr);
    EXPECT_EQ(GetModuleHandleW(TEXT("sndx-no-such-module.dll")), nullptr);
}
} // namespace
