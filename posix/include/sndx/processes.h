#pragma once
// Processes, their command lines and environments, and the message queues of threads.

#include "sndx/base.h"

#define STILL_ACTIVE 259u

struct STARTUPINFOW
{
    DWORD cb;
    DWORD unused[25]; // windows and standard streams, which nobody sets
};
static_assert(sizeof(STARTUPINFOW) == 104);
using LPSTARTUPINFOW = STARTUPINFOW*;

struct PROCESS_INFORMATION
{
    HANDLE hProcess; // to be closed by the caller
    HANDLE hThread;  // to be closed by the caller; names the process, there is nothing to do with a thread
    DWORD dwProcessId;
    DWORD dwThreadId;
};
using LPPROCESS_INFORMATION = PROCESS_INFORMATION*;

struct MSG
{
    HWND hwnd; // always null: there are no windows, only messages posted to threads
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time; // tick count of the posting
    POINT pt;
};
using LPMSG = MSG*;

#define WM_QUIT 0x0012u
#define WM_APP 0x8000u
#define PM_NOREMOVE 0x0000u
#define PM_REMOVE 0x0001u

extern "C"
{
    // Starts the program that the first word of the command line names; application, environment and
    // currentDirectory are null. Only the three standard streams pass on, whatever inherit says. flags and
    // the start-up record are not looked at. A file without an executable format and without "#!" gives
    // ERROR_BAD_EXE_FORMAT. Any state of the child is collected when somebody waits for it or asks for its
    // exit code; if its last handle is closed while it runs, a thread of this layer waits for its end, so
    // that it does not stay behind as a zombie.
    BOOL WINAPI CreateProcessW(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                               LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherit, DWORD flags,
                               LPVOID environment, LPCWSTR currentDirectory, LPSTARTUPINFOW startup,
                               LPPROCESS_INFORMATION information);
    // Exit codes have 8 bits here. A crash gives the code it has on Windows, as far as there is one.
    BOOL WINAPI GetExitCodeProcess(HANDLE process, LPDWORD code);
    BOOL WINAPI TerminateProcess(HANDLE process, UINT code);
    [[noreturn]] void WINAPI ExitProcess(UINT code);
    HANDLE WINAPI GetCurrentProcess();
    DWORD WINAPI GetCurrentProcessId();
    // 0 once the process has first waited for messages, or has ended; WAIT_TIMEOUT; WAIT_FAILED.
    DWORD WINAPI WaitForInputIdle(HANDLE process, DWORD milliseconds);

    // The calling thread's next message; window and the range are not looked at.
    BOOL WINAPI PeekMessageW(LPMSG message, HWND window, UINT first, UINT last, UINT remove);
    // A thread has a queue from its first call of the one above or of MsgWaitForMultipleObjects on.
    BOOL WINAPI PostThreadMessageW(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam);

    LPWSTR WINAPI GetCommandLineW();

    // Null as value removes the variable. No other thread may start a process or read the environment
    // meanwhile.
    BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);
}
