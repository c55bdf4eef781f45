#pragma once
// The processes that run, and the modules that they have loaded. Those of the same root folder are this
// machine's processes: others are not shown.

#include "sndx/base.h"

#define TH32CS_SNAPPROCESS 0x2u
#define TH32CS_SNAPMODULE 0x8u

// What is not named in a comment is 0.
struct PROCESSENTRY32W
{
    DWORD dwSize; // set by the caller
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    WCHAR szExeFile[MAX_PATH]; // the program's file name
};
static_assert(sizeof(PROCESSENTRY32W) == 568);

struct MODULEENTRY32W
{
    DWORD dwSize; // set by the caller
    DWORD th32ModuleID;
    DWORD th32ProcessID;
    DWORD GlblcntUsage;
    DWORD ProccntUsage;
    BYTE* modBaseAddr;
    DWORD modBaseSize;
    HMODULE hModule;
    WCHAR szModule[256];       // file name
    WCHAR szExePath[MAX_PATH]; // full path, also of a file that has been moved meanwhile; longer ones are cut
};
static_assert(sizeof(MODULEENTRY32W) == 1080);

extern "C"
{
    // One of the two kinds; the process counts for modules only, 0 is the calling one. The modules are the
    // files that the process has mapped for execution, its program among them. INVALID_HANDLE_VALUE with
    // ERROR_INVALID_PARAMETER for a process that there is not, ERROR_ACCESS_DENIED for another user's.
    HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD process);
    // FALSE with ERROR_NO_MORE_FILES at the end.
    BOOL WINAPI Process32FirstW(HANDLE snapshot, PROCESSENTRY32W* entry);
    BOOL WINAPI Process32NextW(HANDLE snapshot, PROCESSENTRY32W* entry);
    BOOL WINAPI Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry);
    BOOL WINAPI Module32NextW(HANDLE snapshot, MODULEENTRY32W* entry);
}
