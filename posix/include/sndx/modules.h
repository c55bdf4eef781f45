#pragma once
// Loading of modules. A module is a shared library that may export DllMain.

#include "sndx/base.h"

#define DLL_PROCESS_DETACH 0u
#define DLL_PROCESS_ATTACH 1u
#define DLL_THREAD_ATTACH 2u // the two for threads are never sent here
#define DLL_THREAD_DETACH 3u

extern "C"
{
    // Loads the module, or counts one more use of it. A name without a folder is looked for beside the
    // program, then in the current folder. At the first load the static constructors run, then DllMain with
    // DLL_PROCESS_ATTACH, on this thread. Null with ERROR_MOD_NOT_FOUND, ERROR_BAD_EXE_FORMAT, or
    // ERROR_DLL_INIT_FAILED when DllMain refuses.
    // "kernel32.dll" and "ntdll.dll" can be loaded and export nothing.
    HMODULE WINAPI LoadLibraryW(LPCWSTR path);
    HMODULE WINAPI LoadLibraryA(LPCSTR path);
    // The last use gone: DllMain with DLL_PROCESS_DETACH and null, then the static destructors. A process
    // that ends with modules loaded calls DllMain with DLL_PROCESS_DETACH and a non-null pointer, then the
    // static destructors.
    BOOL WINAPI FreeLibrary(HMODULE module);
    // Null with ERROR_PROC_NOT_FOUND.
    FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);
    // A loaded module by its file name, in either case; null is the program. Counts no use.
    HMODULE WINAPI GetModuleHandleW(LPCWSTR name);
    // The module's full path; null is the program. The length without terminator; a path that does not fit is
    // cut and terminated, and the result is size, with ERROR_INSUFFICIENT_BUFFER.
    DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);
    BOOL WINAPI DisableThreadLibraryCalls(HMODULE module);
}
