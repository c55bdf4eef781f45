// Plays the product's main program: the receiving end of the control pipe.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

#include <windows.h>

#include "tools/entry.h"
#include "tools/mainprogram/options.h"
#include "tools/mainprogram/output.h"
#include "tools/mainprogram/server.h"

namespace sndxtools
{
namespace
{
void CreateReadyFile(const std::string& name)
{
    if (!name.empty())
    {
        const AppendFile created(name);
    }
}

// Waits for messages as a program with windows does; the first wait is what makes the process idle for
// whoever has started it. Returns when done is signalled or the duration (milliseconds) is over.
void RunMessageLoop(HANDLE done, DWORD start, DWORD duration)
{
    for (;;)
    {
        const DWORD elapsed = GetTickCount() - start;
        const DWORD left = elapsed < duration ? duration - elapsed : 0;
        const DWORD woken = MsgWaitForMultipleObjects(1, &done, FALSE, left, QS_ALLINPUT);
        if (woken != WAIT_OBJECT_0 + 1)
        {
            return;
        }
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            if (message.message == WM_QUIT)
            {
                return;
            }
        }
    }
}

int Run(const Arguments& arguments)
{
    Arguments all = SplitCommandLine(EnvironmentVariable(contract::mainProgramOptions));
    all.insert(all.end(), arguments.begin(), arguments.end());
    const auto parsed = ParseMainProgramOptions(all, std::cout);
    if (!parsed || parsed->exitAtOnce)
    {
        return 0;
    }
    const MainProgramOptions& options = *parsed;
    const DWORD start = GetTickCount();
    Output output(options.outputFile, options.rawFile);
    PipeServer server(options, output);
    CreateReadyFile(options.readyFile);
    server.Start();
    Sleep(std::min(options.idleAfter, options.duration));
    RunMessageLoop(server.DoneEvent(), start, options.duration);
    // The serving threads still use what stands above: no destructor may run.
    std::_Exit(0);
}
} // namespace

int RunTool(const Arguments& arguments)
{
    try
    {
        return Run(arguments);
    }
    catch (const UsageError& error)
    {
        std::fprintf(stderr, "mainprogram: %s\nTry 'mainprogram --help'.\n", error.what());
        return 2;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "mainprogram: %s\n", error.what());
        return 1;
    }
}
} // namespace sndxtools
