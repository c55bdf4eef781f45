// Starting processes, their ends, command lines and environments.

#include <fstream>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>
#include <shellapi.h>

#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using sndxtest::Announce;
using sndxtest::ChildProcess;
using sndxtest::Utf8;
using sndxtest::WaitFor;
using sndxtest::Wide;
using sndxtest::WideString;

class Processes : public ::testing::Test
{
  protected:
    Processes()
    {
        sndxtest::ClearPoints();
        folder_ = std::filesystem::temp_directory_path() /
                  ("sndxtest processes " + std::to_string(GetCurrentProcessId()));
        std::filesystem::create_directories(folder_);
    }
    ~Processes() override { std::filesystem::remove_all(folder_); }

    // As the Windows interfaces spell it.
    static std::string Path(const std::filesystem::path& path)
    {
#ifdef _WIN32
        return path.string();
#else
        return "Z:" + path.string();
#endif
    }

    std::filesystem::path folder_;
};

struct Started
{
    BOOL result = FALSE;
    DWORD error = 0;
    int code = -1;
};

// Starts the command line and waits for the end.
Started StartAndWait(const std::string& commandLine, const std::string& folder = {})
{
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    WideString text = Wide(commandLine);
    const WideString current = Wide(folder);
    Started started;
    SetLastError(0);
    started.result = CreateProcessW(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                    folder.empty() ? nullptr : current.c_str(), &startup, &information);
    started.error = GetLastError();
    if (started.result)
    {
        EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(information.hProcess, 20000));
        DWORD code = 0;
        EXPECT_TRUE(GetExitCodeProcess(information.hProcess, &code));
        started.code = static_cast<int>(code);
        CloseHandle(information.hProcess);
        CloseHandle(information.hThread);
    }
    return started;
}

std::string OwnPath()
{
    WCHAR path[1024];
    const DWORD length = GetModuleFileNameW(nullptr, path, 1024);
    return Utf8(WideString(path, length));
}

// The same for the standard library.
std::filesystem::path OwnFile()
{
#ifdef _WIN32
    return OwnPath();
#else
    return "/proc/self/exe";
#endif
}

// Prints its arguments, one a line, into the file that the first one names.
SNDX_CHILD(ShowArguments)
{
    std::ofstream file(arguments[0], std::ios::binary);
    for (std::size_t i = 1; i < arguments.size(); ++i)
    {
        file << arguments[i] << '\n';
    }
    return static_cast<int>(arguments.size());
}

SNDX_CHILD(ExitWith)
{
    ExitProcess(static_cast<UINT>(std::stoi(arguments[0])));
}

SNDX_CHILD(WaitForPoint)
{
    Announce("running");
    return WaitFor(arguments[0]) ? 5 : 6;
}

TEST_F(Processes, ExitCodesAndWaiting)
{
    EXPECT_EQ(17, ChildProcess("ExitWith", {"17"}).Wait());
    ChildProcess child("WaitForPoint", {"go"});
    ASSERT_TRUE(WaitFor("running"));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(child.Handle(), &code));
    EXPECT_EQ(DWORD{STILL_ACTIVE}, code);
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(child.Handle(), 20));
    EXPECT_NE(GetCurrentProcessId(), child.Id());
    Announce("go");
    EXPECT_EQ(5, child.Wait());
    EXPECT_EQ(5, child.Wait(0)) << "the code stays";
    EXPECT_TRUE(GetExitCodeProcess(GetCurrentProcess(), &code));
    EXPECT_EQ(DWORD{STILL_ACTIVE}, code);
}

TEST_F(Processes, TerminatedProcessHasTheGivenCode)
{
    ChildProcess child("WaitForPoint", {"never"});
    ASSERT_TRUE(WaitFor("running"));
    EXPECT_TRUE(TerminateProcess(child.Handle(), 4711));
    EXPECT_EQ(4711, child.Wait());
}

TEST_F(Processes, CommandLinesThatNameNoProgramAreRefused)
{
    const auto text = folder_ / "text.exe";
    std::ofstream(text) << "just text, long enough to be looked at as a program's header, and longer still\n";
    const std::vector<std::pair<std::string, DWORD>> cases = {
        {"\"\"", ERROR_INVALID_PARAMETER},
        {"", ERROR_FILE_NOT_FOUND},
        {"\"" + Path(folder_ / "missing.exe") + "\"", ERROR_FILE_NOT_FOUND},
        {"\"" + Path(folder_) + "\"", ERROR_ACCESS_DENIED},
        {"\"" + Path(text) + "\" argument", ERROR_BAD_EXE_FORMAT},
    };
    for (const auto& [commandLine, error] : cases)
    {
        const Started started = StartAndWait(commandLine);
        EXPECT_FALSE(started.result) << commandLine;
        EXPECT_EQ(error, started.error) << commandLine;
    }
}

TEST_F(Processes, ArgumentsArriveAsWritten)
{
    const auto file = folder_ / "arguments";
    const std::vector<std::string> arguments = {"plain",         "two words",      "",
                                                "quo\"te",       "back\\slash",    "end\\",
                                                "blank end\\\\", "\\\"mix \\\\\"", "\xC3\xA4\xE2\x82\xAC"};
    std::vector<std::string> all = {file.string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(static_cast<int>(all.size()), ChildProcess("ShowArguments", all).Wait());
    std::ifstream shown(file, std::ios::binary);
    for (const std::string& argument : arguments)
    {
        std::string line;
        ASSERT_TRUE(std::getline(shown, line));
        EXPECT_EQ(argument, line);
    }
}

TEST_F(Processes, FirstWordMayDoWithoutQuotes)
{
    EXPECT_EQ(9, StartAndWait(OwnPath() + " --child ExitWith 9").code);
    // Blanks in the path: what the quotes would hold is found piece by piece.
    const auto copy = folder_ / "a program.exe";
    std::filesystem::copy_file(OwnFile(), copy);
    EXPECT_EQ(8, StartAndWait(Path(copy) + " --child ExitWith 8").code);
}

SNDX_CHILD(WriteHere)
{
    std::ofstream("written here") << ".";
    return 0;
}

TEST_F(Processes, ChildStartsInTheGivenFolder)
{
    EXPECT_EQ(0, StartAndWait("\"" + OwnPath() + "\" --child WriteHere", Path(folder_)).code);
    EXPECT_TRUE(std::filesystem::exists(folder_ / "written here"));
    EXPECT_FALSE(StartAndWait("\"" + OwnPath() + "\" --child WriteHere", Path(folder_ / "missing")).result);
}

SNDX_CHILD(CompareVariable)
{
    WCHAR value[100];
    const DWORD length = GetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), value, 100);
    return Utf8(WideString(value, length)) == arguments[0] ? 1 : 0;
}

TEST_F(Processes, EnvironmentPassesOn)
{
    WCHAR value[6];
    EXPECT_EQ(DWORD{0}, GetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), value, 6));
    EXPECT_EQ(DWORD{ERROR_ENVVAR_NOT_FOUND}, GetLastError());
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), TEXT("v\xE4lue")));
    EXPECT_EQ(DWORD{5}, GetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), value, 6));
    EXPECT_EQ("v\xC3\xA4lue", Utf8(value));
    EXPECT_EQ(DWORD{6}, GetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), value, 5));
    EXPECT_EQ(1, ChildProcess("CompareVariable", {"v\xC3\xA4lue"}).Wait());
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), nullptr));
    EXPECT_EQ(DWORD{0}, GetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), value, 6));
}

std::string Words(const WCHAR* commandLine)
{
    int count = 0;
    LPWSTR* words = CommandLineToArgvW(commandLine, &count);
    std::string result;
    for (int i = 0; i < count; ++i)
    {
        result += "[" + Utf8(words[i]) + "]";
    }
    LocalFree(words);
    return result;
}

TEST_F(Processes, CommandLineWords)
{
    EXPECT_EQ("[C:\\a b\\][c]", Words(TEXT("\"C:\\a b\\\"  c")));
    EXPECT_EQ("[a\\\"b][c d][e]", Words(TEXT("a\\\"b \"c d\"\te ")));
    EXPECT_EQ("[p][\\\\x][\\\"][\\a b][]", Words(TEXT("p \\\\x \\\\\\\" \"\\a b\" \"\"")));
}
} // namespace
