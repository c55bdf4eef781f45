#pragma once
// Second processes for tests: the test program starts itself again with "--child NAME ARGUMENTS…", which
// runs a function registered under that name instead of the tests. Real processes, started with
// CreateProcessW on both targets.

#include <functional>
#include <string>
#include <vector>

#include <windows.h>

namespace sndxtest
{
// The path of this program.
std::string OwnPath();

using ChildFunction = int (*)(const std::vector<std::string>& arguments);

// Registers a child role; returns true so that it can initialise a constant. Use SNDX_CHILD.
bool RegisterChild(const char* name, ChildFunction function);

// Runs the role named on the command line. Returns -1 when the command line names none.
int RunChildIfAsked(int argc, char** argv);

// One started child. Its handle is closed, and the process terminated if it still runs, at destruction.
class ChildProcess
{
  public:
    ChildProcess(const std::string& role, const std::vector<std::string>& arguments);
    // Another program: its path as the target's Windows path or a path of the build machine.
    static ChildProcess Program(const std::string& path, const std::vector<std::string>& arguments);
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;

    bool IsRunning() const;
    // Waits for the end, at most milliseconds; the exit code, or -1 and a failure on time-out.
    int Wait(DWORD milliseconds = 20000);
    // Ends the process at once, as a crash or the task manager does (SIGKILL natively).
    void Kill();
    HANDLE Handle() const { return process_; }

  private:
    ChildProcess() = default;
    void Start(const std::string& commandLine);
    HANDLE process_ = nullptr;
    std::string commandLine_; // for messages
};

// Meeting points between the processes of one test: small files in the test's own folder.
void Announce(const std::string& point);
bool WaitFor(const std::string& point, DWORD milliseconds = 20000);
void ClearPoints();

#define SNDX_CHILD(name)                                                                                     \
    static int SndxChild_##name(const std::vector<std::string>& arguments);                                  \
    static const bool sndxChildRegistered_##name = sndxtest::RegisterChild(#name, &SndxChild_##name);        \
    static int SndxChild_##name([[maybe_unused]] const std::vector<std::string>& arguments)
} // namespace sndxtest
