#include "tools/shellhost/misuse.h"

#include <algorithm>
#include <stdexcept>

#include <windows.h>

#include "tools/shellhost/commands.h"
#include "tools/shellhost/tracefile.h"

namespace sndxtools
{
namespace
{
struct Case
{
    const char* name;
    Misuse misuse;
    const char* text;
    DWORD exitCode;     // of the child, when the module does its part
    const char* report; // in the trace then
};

constexpr DWORD breakpoint = 0x80000003; // also what SIGTRAP counts as natively

constexpr Case cases[] = {
    {"over-release", Misuse::overRelease,
     "one Release more than there were references; reported, and the process carries on", exitAnswered,
     "Release is being called too often"},
    {"double-release", Misuse::doubleRelease,
     "an object that has ended is made to end again, so that its block is released a second\n"
     "                time; the process stops with a breakpoint exception",
     breakpoint, "Possible attempt to delete an object twice!"},
};

const Case& FindCase(const std::string& name)
{
    const auto found = std::find_if(std::begin(cases), std::end(cases),
                                    [&](const Case& entry) { return name == entry.name; });
    if (found == std::end(cases))
    {
        throw UsageError("unknown misuse '" + name + "'");
    }
    return *found;
}

void List(std::ostream& out)
{
    for (const Case& entry : cases)
    {
        out << entry.name << std::string(16 - std::string_view(entry.name).size(), ' ') << entry.text << "\n";
    }
}

// This program once more, sharing the standard streams. It does not outlive the object.
class ChildProcess
{
  public:
    explicit ChildProcess(WideString commandLine)
    {
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        constexpr BOOL inheritStreams = TRUE;
        if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, inheritStreams, 0, nullptr,
                            nullptr, &startup, &process_))
        {
            throw std::runtime_error("cannot start a child process: error " + std::to_string(GetLastError()));
        }
    }
    ~ChildProcess()
    {
        if (!HasEnded(0))
        {
            TerminateProcess(process_.hProcess, exitRefused);
        }
        CloseHandle(process_.hThread);
        CloseHandle(process_.hProcess);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool HasEnded(DWORD milliseconds) const
    {
        return WaitForSingleObject(process_.hProcess, milliseconds) == WAIT_OBJECT_0;
    }
    DWORD ExitCode() const
    {
        DWORD code = 0;
        GetExitCodeProcess(process_.hProcess, &code);
        return code;
    }

  private:
    PROCESS_INFORMATION process_ = {};
};

WideString Quote(const WideString& argument)
{
    return TEXT("\"") + argument + TEXT("\"");
}

int RunInChild(const WideString& modulePath, const Case& entry, std::ostream& out)
{
    const WideString tracePath = TraceFilePath();
    out << std::flush;
    const ChildProcess child(Quote(ProgramPath()) + TEXT(" --module ") + Quote(modulePath) +
                             TEXT(" misuse --here ") + Wide(entry.name));
    // It has next to nothing to do; the bound is for one that hangs.
    constexpr DWORD longestMs = 20000;
    if (!child.HasEnded(longestMs))
    {
        out << "The child process does not end and is stopped.\n";
        return exitRefused;
    }
    const DWORD code = child.ExitCode();
    if (code == exitNoModule || code == exitRefused)
    {
        return static_cast<int>(code); // It has said why.
    }
    out << "The child process ended with " << Hex(code, 8)
        << (code == breakpoint ? ", a breakpoint exception" : "") << ".\nWhat the module reported, in "
        << Utf8(tracePath) << ":\n\n";
    bool reported = false;
    for (const std::string& line : TraceLines(tracePath))
    {
        if (IsErrorLine(line))
        {
            out << line << "\n";
            reported = reported || line.find(entry.report) != std::string::npos;
        }
    }
    if (code != entry.exitCode || !reported)
    {
        out << "Something else was expected.\n";
        return exitRefused;
    }
    return exitAnswered;
}
} // namespace

int MisuseCommand(Host& host, const Arguments& arguments, std::ostream& out)
{
    const bool here = !arguments.empty() && arguments[0] == "--here";
    const std::size_t named = here ? 1 : 0;
    if (arguments.size() != named + 1)
    {
        throw UsageError("misuse takes one name; 'misuse list' shows them");
    }
    if (!here && arguments[0] == "list")
    {
        List(out);
        return exitAnswered;
    }
    const Case& entry = FindCase(arguments[named]);
    return here ? CommitMisuse(host, entry.misuse, out) : RunInChild(host.ModulePath(), entry, out);
}
} // namespace sndxtools
