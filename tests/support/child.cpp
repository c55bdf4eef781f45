#include "tests/support/child.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <utility>

#include <shellapi.h>

#include "tests/support/text.h"

namespace sndxtest
{
namespace
{
std::map<std::string, ChildFunction>& Roles()
{
    static std::map<std::string, ChildFunction> roles;
    return roles;
}

std::string OwnPath()
{
    WCHAR path[1024];
    return Utf8(WideString(path, GetModuleFileNameW(nullptr, path, 1024)));
}

// As the runtime library's start-up reads it back.
std::string Quote(const std::string& argument)
{
    std::string result = "\"";
    std::size_t backslashes = 0;
    for (const char c : argument)
    {
        if (c == '"')
        {
            result.append(backslashes + 1, '\\');
        }
        backslashes = c == '\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, '\\') + "\"";
}

std::string CommandLine(const std::string& program, const std::vector<std::string>& arguments)
{
    std::string result = "\"" + program + "\"";
    for (const std::string& argument : arguments)
    {
        result += " " + Quote(argument);
    }
    return result;
}

constexpr char pointsVariable[] = "SNDX_POINTS";

// The folder of the meeting points, the same in all processes of a test. A folder made here is removed at
// the end of the process that made it.
class PointsFolder
{
  public:
    PointsFolder()
    {
        if (const char* named = std::getenv(pointsVariable))
        {
            path_ = named;
            return;
        }
        const char* const root = std::getenv("SENDORA_ROOT"); // native only
        path_ = (root == nullptr ? std::filesystem::temp_directory_path() : std::filesystem::path(root)) /
                ("points-" + std::to_string(GetCurrentProcessId()));
        owned_ = std::filesystem::create_directories(path_);
        SetEnvironmentVariableW(Wide(pointsVariable).c_str(), Wide(path_.string()).c_str());
    }
    ~PointsFolder()
    {
        std::error_code ignored;
        if (owned_)
        {
            std::filesystem::remove_all(path_, ignored);
        }
    }
    const std::filesystem::path& Path() const { return path_; }

  private:
    std::filesystem::path path_;
    bool owned_ = false;
};

const std::filesystem::path& Points()
{
    static const PointsFolder folder;
    return folder.Path();
}
} // namespace

bool RegisterChild(const char* name, ChildFunction function)
{
    Roles()[name] = function;
    return true;
}

int RunChildIfAsked(int argc, char** argv)
{
    if (argc < 3 || std::strcmp(argv[1], "--child") != 0)
    {
        return -1;
    }
    int count = 0;
    LPWSTR* words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 3; i < count; ++i)
    {
        arguments.push_back(Utf8(words[i]));
    }
    LocalFree(words);
    const auto role = Roles().find(argv[2]);
    return role == Roles().end() ? 125 : role->second(arguments); // 125 is no result of a role
}

ChildProcess::ChildProcess(const std::string& role, const std::vector<std::string>& arguments)
{
    Points(); // before the child, so that it inherits the folder
    std::vector<std::string> words{"--child", role};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Start(CommandLine(OwnPath(), words));
}

ChildProcess ChildProcess::Program(const std::string& path, const std::vector<std::string>& arguments)
{
    Points();
    ChildProcess child;
#ifdef _WIN32
    // Wine shows the build machine's files on drive Z:.
    const std::string program = path.starts_with('/') ? "Z:" + path : path;
#else
    const std::string& program = path;
#endif
    child.Start(CommandLine(program, arguments));
    return child;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept : process_(std::exchange(other.process_, nullptr))
{
}

ChildProcess::~ChildProcess()
{
    if (process_ != nullptr)
    {
        Kill();
        CloseHandle(process_);
    }
}

void ChildProcess::Start(const std::string& commandLine)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    WideString text = Wide(commandLine);
    if (!CreateProcessW(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &information))
    {
        throw std::runtime_error("cannot start " + commandLine + ": error " + std::to_string(GetLastError()));
    }
    CloseHandle(information.hThread);
    process_ = information.hProcess;
}

bool ChildProcess::IsRunning() const
{
    return WaitForSingleObject(process_, 0) == WAIT_TIMEOUT;
}

int ChildProcess::Wait(DWORD milliseconds)
{
    DWORD code = 0;
    const bool ended = WaitForSingleObject(process_, milliseconds) == WAIT_OBJECT_0;
    return ended && GetExitCodeProcess(process_, &code) ? static_cast<int>(code) : -1;
}

void ChildProcess::Kill()
{
    TerminateProcess(process_, 1);
    WaitForSingleObject(process_, INFINITE); // a killed process ends
}

void Announce(const std::string& point)
{
    std::ofstream(Points() / point).put('.');
}

bool WaitFor(const std::string& point, DWORD milliseconds)
{
    constexpr DWORD step = 5;
    for (DWORD waited = 0; waited < milliseconds && !std::filesystem::exists(Points() / point);
         waited += step)
    {
        Sleep(step);
    }
    return std::filesystem::exists(Points() / point);
}

void ClearPoints()
{
    for (const auto& entry : std::filesystem::directory_iterator(Points()))
    {
        std::filesystem::remove(entry.path());
    }
}
} // namespace sndxtest
