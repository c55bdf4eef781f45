// Processes: starting, waiting, ending.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "posix/base/descriptor.h"
#include "posix/files/paths.h"
#include "posix/processes/commandline.h"
#include "posix/processes/messagequeue.h"
#include "posix/sync/waiting.h"
#include "posix/text/charsets.h"
#include "sndx/processes.h"

namespace sndxposix
{
namespace
{
bool IsReadable(int descriptor)
{
    pollfd wanted{descriptor, POLLIN, 0};
    return poll(&wanted, 1, 0) > 0;
}

DWORD CodeFromStatus(int status)
{
    if (WIFEXITED(status))
    {
        return static_cast<DWORD>(WEXITSTATUS(status));
    }
    constexpr struct
    {
        int signal;
        DWORD code;
    } crashes[] = {
        {SIGSEGV, 0xC0000005},                        // access violation
        {SIGBUS, 0xC0000005},  {SIGTRAP, 0x80000003}, // breakpoint
        {SIGILL, 0xC000001D},                         // illegal instruction
        {SIGABRT, 3},
    };
    const int signal = WTERMSIG(status);
    const auto* const found = std::find_if(std::begin(crashes), std::end(crashes),
                                           [&](const auto& crash) { return crash.signal == signal; });
    return found == std::end(crashes) ? 128 + static_cast<DWORD>(signal) : found->code; // as shells say it
}

class ProcessObject : public KernelObject
{
  public:
    ProcessObject(pid_t id, Descriptor idle)
        : id_(id), process_(static_cast<int>(syscall(SYS_pidfd_open, id, 0))), idle_(std::move(idle))
    {
    }
    ~ProcessObject() override;
    bool IsWaitable() const override { return true; }
    std::optional<DWORD> TryWait() override
    {
        return ExitCode() ? std::optional<DWORD>(WAIT_OBJECT_0) : std::nullopt;
    }
    std::chrono::milliseconds PollInterval() const override { return sharedStatePoll; }
    // Nothing while the process runs. Collects the child's state.
    std::optional<DWORD> ExitCode();
    bool Terminate(DWORD code);
    bool IsIdle() { return IsReadable(idle_.Get()) || ExitCode(); }

  private:
    const pid_t id_;
    const Descriptor process_; // names the process also when its number is used again
    const Descriptor idle_;    // readable once the child has announced that it is idle
    std::mutex mutex_;
    std::optional<DWORD> exitCode_;
    std::optional<DWORD> terminatedWith_;
};

ProcessObject::~ProcessObject()
{
    if (ExitCode())
    {
        return;
    }
    // Somebody has to collect the child's state at its end, whenever that is. The thread takes no signal
    // meant for the host.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try
    {
        std::thread([id = id_] { TEMP_FAILURE_RETRY(waitpid(id, nullptr, 0)); }).detach();
    }
    catch (const std::system_error&)
    {
        // No thread to be had: the child's entry stays until this process ends.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

std::optional<DWORD> ProcessObject::ExitCode()
{
    const std::lock_guard lock(mutex_);
    if (exitCode_)
    {
        return exitCode_;
    }
    int status = 0;
    const pid_t found = waitpid(id_, &status, WNOHANG);
    if (found == id_)
    {
        const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        exitCode_ = killed && terminatedWith_ ? *terminatedWith_ : CodeFromStatus(status);
    }
    else if (found < 0 && errno == ECHILD && IsReadable(process_.Get()))
    {
        // The host collects its children by itself, or ignores SIGCHLD: the code is lost.
        exitCode_ = terminatedWith_.value_or(0);
    }
    return exitCode_;
}

bool ProcessObject::Terminate(DWORD code)
{
    if (ExitCode())
    {
        return false;
    }
    const std::lock_guard lock(mutex_);
    terminatedWith_ = code;
    return syscall(SYS_pidfd_send_signal, process_.Get(), SIGKILL, nullptr, 0) == 0;
}

// ERROR_SUCCESS when the file can be started.
DWORD CheckProgram(const std::string& path)
{
    struct stat status = {};
    if (path.empty() || stat(path.c_str(), &status) != 0)
    {
        return ERROR_FILE_NOT_FOUND;
    }
    if (S_ISDIR(status.st_mode))
    {
        return ERROR_ACCESS_DENIED;
    }
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char magic[4] = {};
    const bool program = read(file.Get(), magic, sizeof magic) >= 2 &&
                         (std::memcmp(magic, "#!", 2) == 0 || std::memcmp(magic, "\177ELF", 4) == 0);
    return program && access(path.c_str(), X_OK) == 0 ? ERROR_SUCCESS : ERROR_BAD_EXE_FORMAT;
}

std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts)
    {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

// Where the child finds the idle pipe: the first descriptor behind the standard ones.
constexpr int childIdleDescriptor = 3;

std::vector<std::string> ChildEnvironment(int idlePipe)
{
    struct stat status = {};
    fstat(idlePipe, &status);
    std::vector<std::string> result;
    for (char** variable = environ; *variable != nullptr; ++variable)
    {
        result.emplace_back(*variable);
    }
    result.push_back(std::string(idleVariable) + "=" + std::to_string(childIdleDescriptor) + ":" +
                     std::to_string(status.st_ino));
    return result;
}

// posix_spawn, because the host has threads: between fork and exec hardly anything would be allowed. The
// child starts with no signal blocked or ignored, whatever the host does with its own.
DWORD Spawn(const std::string& program, std::u16string_view rest, int idlePipe, pid_t& id)
{
    std::vector<std::string> arguments{program};
    for (const auto& argument : SplitArguments(rest))
    {
        arguments.push_back(Utf8(argument));
    }
    std::vector<std::string> environment = ChildEnvironment(idlePipe);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, idlePipe, childIdleDescriptor);
    posix_spawn_file_actions_addclosefrom_np(&actions, childIdleDescriptor + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawn(&id, program.c_str(), &actions, &attributes, Pointers(arguments).data(),
                                  Pointers(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? ERROR_SUCCESS : error == ENOEXEC ? ERROR_BAD_EXE_FORMAT : ErrorFromErrno(error);
}

DWORD CreateChild(std::u16string_view commandLine, PROCESS_INFORMATION& information)
{
    const auto [word, rest] = SplitProgram(commandLine);
    if (word.empty())
    {
        return commandLine.empty() ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_PARAMETER;
    }
    const std::string program = ToUnixPath(word.c_str());
    if (const DWORD error = CheckProgram(program))
    {
        return error;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
    {
        return ErrorFromErrno(errno);
    }
    Descriptor idle(ends[0]);
    const Descriptor childIdle(ends[1]);
    pid_t id = 0;
    if (const DWORD error = Spawn(program, rest, childIdle.Get(), id))
    {
        return error;
    }
    const auto process = std::make_shared<ProcessObject>(id, std::move(idle));
    information.hProcess = InsertHandle(process);
    information.hThread = InsertHandle(process);
    information.dwProcessId = static_cast<DWORD>(id);
    information.dwThreadId = static_cast<DWORD>(id);
    return ERROR_SUCCESS;
}
} // namespace

extern "C" BOOL WINAPI CreateProcessW(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES,
                                      LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID environment,
                                      LPCWSTR currentDirectory, LPSTARTUPINFOW,
                                      LPPROCESS_INFORMATION information)
{
    const auto body = [&]() -> BOOL
    {
        if (application != nullptr || environment != nullptr || currentDirectory != nullptr)
        {
            return FailWith(ERROR_INVALID_PARAMETER);
        }
        const DWORD error = CreateChild(commandLine, *information);
        return error == ERROR_SUCCESS || FailWith(error);
    };
    return Call("CreateProcessW", FALSE, body, {information});
}

extern "C" BOOL WINAPI GetExitCodeProcess(HANDLE process, LPDWORD code)
{
    const auto object = LookupHandleAs<ProcessObject>(process);
    if (object)
    {
        *code = object->ExitCode().value_or(STILL_ACTIVE);
    }
    return object != nullptr;
}

extern "C" BOOL WINAPI TerminateProcess(HANDLE process, UINT code)
{
    if (process == GetCurrentProcess())
    {
        _exit(static_cast<int>(code)); // no destructors
    }
    const auto object = LookupHandleAs<ProcessObject>(process);
    return object && (object->Terminate(code) || FailWith(ERROR_ACCESS_DENIED));
}

extern "C" void WINAPI ExitProcess(UINT code)
{
    std::exit(static_cast<int>(code));
}

extern "C" HANDLE WINAPI GetCurrentProcess()
{
    return INVALID_HANDLE_VALUE;
}

extern "C" DWORD WINAPI GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}

extern "C" DWORD WINAPI WaitForInputIdle(HANDLE process, DWORD milliseconds)
{
    const auto object = LookupHandleFor<ProcessObject>("WaitForInputIdle", process);
    if (!object)
    {
        return WAIT_FAILED;
    }
    return WaitUntil([&object] { return object->IsIdle(); }, milliseconds, sharedStatePoll) ? WAIT_OBJECT_0
                                                                                            : WAIT_TIMEOUT;
}

extern "C" BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
{
    const std::string variable = Utf8(name);
    const int result =
        value == nullptr ? unsetenv(variable.c_str()) : setenv(variable.c_str(), Utf8(value).c_str(), 1);
    return result == 0 || FailWith(ERROR_INVALID_PARAMETER);
}
} // namespace sndxposix
