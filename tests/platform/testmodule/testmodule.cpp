// A module that notes its own life in a file. It does so with the interfaces under test: modules open files
// in their static constructors and destructors, too.

#include <windows.h>

#include "tests/platform/testmodule/testmodule.h"

namespace
{
// Appends the name of a file to the folder for temporary files. buffer has 2 * MAX_PATH units.
void PathOf(const WCHAR* name, WCHAR* buffer)
{
    WCHAR* end = buffer + GetTempPathW(MAX_PATH, buffer);
    while ((*end++ = *name++) != 0)
    {
    }
}

void Note(const char* word)
{
    WCHAR path[2 * MAX_PATH];
    PathOf(TEXT(TESTMODULE_LOG), path);
    const HANDLE file = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    LARGE_INTEGER end = {};
    SetFilePointerEx(file, end, nullptr, FILE_END);
    DWORD length = 0;
    while (word[length] != 0)
    {
        ++length;
    }
    DWORD bytes = 0;
    WriteFile(file, word, length, &bytes, nullptr);
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
            WCHAR path[2 * MAX_PATH];
            PathOf(TEXT(TESTMODULE_REFUSAL), path);
            return GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES;
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
