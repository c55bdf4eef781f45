// A module that notes its own life in a file. It does so with the interfaces under test: modules open files
// in their static constructors and destructors, too.

#include <cstring>
#include <string>

#include <windows.h>

#include <shlobj.h>

#include "tests/platform/testmodule/testmodule.h"

namespace
{
// A file of the user's folder for programs' data.
std::basic_string<WCHAR> PathOf(const WCHAR* name)
{
    WCHAR folder[MAX_PATH];
    SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
    return std::basic_string<WCHAR>(folder) + TEXT("\\") + name;
}

void Note(const char* word)
{
    const HANDLE file = CreateFileW(PathOf(TEXT(TESTMODULE_LOG)).c_str(), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    LARGE_INTEGER end = {};
    SetFilePointerEx(file, end, nullptr, FILE_END);
    DWORD bytes = 0;
    WriteFile(file, word, static_cast<DWORD>(std::strlen(word)), &bytes, nullptr);
    CloseHandle(file);
}

struct Life
{
    Life() { Note("construct "); }
    ~Life() { Note("destruct "); }
};
const Life life;
HINSTANCE instance = nullptr;
} // namespace

extern "C"
{
    BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);
    HINSTANCE TestModuleInstance();

    BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved)
    {
        if (reason == DLL_PROCESS_ATTACH)
        {
            instance = module;
            Note("attach ");
            return GetFileAttributesW(PathOf(TEXT(TESTMODULE_REFUSAL)).c_str()) == INVALID_FILE_ATTRIBUTES;
        }
        if (reason == DLL_PROCESS_DETACH)
        {
            Note(reserved == nullptr ? "detach " : "detach-at-exit ");
        }
        return TRUE;
    }

    // The handle that DllMain got.
    HINSTANCE TestModuleInstance()
    {
        return instance;
    }
}
