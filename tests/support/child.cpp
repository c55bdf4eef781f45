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
    const DWORD length = GetModuleFileNameW(nullptr, path, 1024);
    return Utf8(WideString(path, length));
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
        }
        else
        {
            path_ = Base() / ("points-" + std::to_string(GetCurrentProcessId()));
            owned_ = true;
            SetEnvironmentVariableW(Wide(pointsVariable).c_str(), Wide(path_.string()).c_str());
        }
        std::filesystem::create_directories(path_);
    }
    ~PointsFolder()
    {
        if (owned_)
        {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }
    PointsFolder(const PointsFolder&) = delete;
    PointsFolder& operator=(const PointsFolder&) = delete;
    const std::filesystem::path& Path() const { return path_; }

  private:
    static std::filesystem::path Base()
    {
#ifdef _WIN32
        WCHAR path[MAX_PATH + 1];
        GetTempPathW(MAX_PATH + 1, path);
        return Utf8(path);
#else
        const char* root = std::getenv("SENDORA_ROOT");
        return root == nullptr ? std::filesystem::temp_directory_path() : std::filesystem::path(root);
#endif
    }
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
    if (role == Roles().end())
    {
        return 125; // told apart from every result of a role
    }
    return role->second(arguments);
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

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : process_(std::exchange(other.process_, nullptr)), id_(std::exchange(other.id_, 0))
{
}

ChildProcess::~ChildProcess()
{
    if (process_ == nullptr)
    {
        return;
    }
    if (IsRunning())
    {
        Kill();
    }
    CloseHandle(process_);
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
    id_ = information.dwProcessId;
}

bool ChildProcess::IsRunning() const
{
    return WaitForSingleObject(process_, 0) == WAIT_TIMEOUT;
}

int ChildProcess::Wait(DWORD milliseconds)
{
    if (WaitForSingleObject(process_, milliseconds) != WAIT_OBJECT_0)
    {
        return -1;
    }
    DWORD code = 0;
    GetExitCodeProcess(process_, &code);
    return static_cast<int>(code);
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
    for (DWORD waited = 0;; waited += step)
    {
        if (std::filesystem::exists(Points() / point))
        {
            return true;
        }
        if (waited >= milliseconds)
        {
            return false;
        }
        Sleep(step);
    }
}

void ClearPoints()
{
    for (const auto& entry : std::filesystem::directory_iterator(Points()))
    {
        std::filesystem::remove(entry.path());
    }
}
} // namespace sndxtest
