#include "tests/support/child.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <utility>

#include <gtest/gtest.h>

#include <shellapi.h>

#include "tests/support/text.h"
#include "tests/support/timing.h"

namespace sndxtest
{
namespace
{
std::map<std::string, ChildFunction>& Roles()
{
    static std::map<std::string, ChildFunction> roles;
    return roles;
}

// No argument of a test has a double quote, or a backslash at its end.
std::string CommandLine(const std::string& program, const std::vector<std::string>& arguments)
{
    std::string result = "\"" + program + "\"";
    for (const std::string& argument : arguments)
    {
        result += " \"" + argument + "\"";
    }
    return result;
}

bool g_isChild = false;

// Of the meeting points, the same in all processes of a test: they have one root folder natively, and one
// Wine prefix in which no two tests run at a time.
const std::filesystem::path& Points()
{
    static const std::filesystem::path folder = []
    {
        const char* const root = std::getenv("SENDORA_ROOT"); // native only
        const auto path =
            (root == nullptr ? std::filesystem::temp_directory_path() : std::filesystem::path(root)) /
            "sndx-points";
        if (!g_isChild) // what an earlier test has left
        {
            std::filesystem::remove_all(path);
        }
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}
} // namespace

std::string OwnPath()
{
    WCHAR path[1024];
    return Utf8(WideString(path, GetModuleFileNameW(nullptr, path, 1024)));
}

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
    g_isChild = true;
#ifdef _WIN32
    // main's own words have lost what is not in the system's character set.
    int count = 0;
    LPWSTR* words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 3; i < count; ++i)
    {
        arguments.push_back(Utf8(words[i]));
    }
    LocalFree(words);
#else
    const std::vector<std::string> arguments(argv + 3, argv + argc);
#endif
    const auto role = Roles().find(argv[2]);
    return role == Roles().end() ? 125 : role->second(arguments); // 125 is no result of a role
}

ChildProcess::ChildProcess(const std::string& role, const std::vector<std::string>& arguments)
{
    Points(); // empty before the child uses it
    std::vector<std::string> words{"--child", role};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Start(CommandLine(OwnPath(), words));
}

ChildProcess ChildProcess::Program(const std::string& path, const std::vector<std::string>& arguments)
{
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
    : process_(std::exchange(other.process_, nullptr)), commandLine_(std::move(other.commandLine_))
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
    commandLine_ = commandLine;
}

bool ChildProcess::IsRunning() const
{
    return WaitForSingleObject(process_, 0) == WAIT_TIMEOUT;
}

int ChildProcess::Wait(DWORD milliseconds)
{
    DWORD code = 0;
    const bool ended = WaitForSingleObject(process_, milliseconds) == WAIT_OBJECT_0;
    EXPECT_TRUE(ended) << "after " << milliseconds << " ms there still runs " << commandLine_;
    return ended && GetExitCodeProcess(process_, &code) ? static_cast<int>(code) : -1;
}

void ChildProcess::Kill()
{
    TerminateProcess(process_, 1);
    EXPECT_EQ(WaitForSingleObject(process_, 20000), WAIT_OBJECT_0) << "killed: " << commandLine_;
}

void Announce(const std::string& point)
{
    std::ofstream(Points() / point).put('.');
}

bool WaitFor(const std::string& point, DWORD milliseconds)
{
    return Within(milliseconds, [&] { return std::filesystem::exists(Points() / point); });
}

void ClearPoints()
{
    std::filesystem::remove_all(Points());
    std::filesystem::create_directory(Points());
}
} // namespace sndxtest
