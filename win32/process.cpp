#include "win32/process.h"

#include "win32/handle.h"

void StartAndWaitForInputIdle(WCHAR* szCommandLine)
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    static_assert(sizeof(startup) == 104); // contract.md M28
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, szCommandLine, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
    {
        return; // the caller's next open tells (contract.md O12)
    }
    const LHandle thread(process.hThread);
    const LHandle program(process.hProcess);
    // No bound: the caller's request is worth nothing before the program is ready (contract.md D3).
    WaitForInputIdle(program.Get(), INFINITE);
}
