// Starting processes, their ends, command lines and environments.

#include <fstream>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/platform/handle.h"
#include "tests/platform/temporaryfolder.h"
#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

class Processes : public ::testing::Test
{
  protected:
    Processes() { ClearPoints(); }
    std::string Path(const std::string& name) const { return Utf8(folder_ / name); }
    TemporaryFolder folder_;
};

// Starts the command line and waits for the end: the exit code, or the error as a negative number.
int RunCommand(const std::string& commandLine, const std::string& folder = {})
{
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    WideString text = Wide(commandLine);
    const WideString current = Wide(folder);
    SetLastError(0);
    if (!CreateProcessW(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        folder.empty() ? nullptr : current.c_str(), &startup, &information))
    {
        return -static_cast<int>(GetLastError());
    }
    const Handle process(information.hProcess);
    const Handle thread(information.hThread);
    EXPECT_EQ(WaitForSingleObject(process, 20000), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(process, &code));
    return static_cast<int>(code);
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
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(child.Handle(), 20), WAIT_TIMEOUT);
    Announce("go");
    EXPECT_EQ(5, child.Wait());
    EXPECT_EQ(5, child.Wait(0)) << "the code stays";

    ClearPoints();
    ChildProcess ended("WaitForPoint", {"never"});
    ASSERT_TRUE(WaitFor("running"));
    EXPECT_TRUE(TerminateProcess(ended.Handle(), 4711));
    EXPECT_EQ(4711, ended.Wait());
}

TEST_F(Processes, CommandLinesThatNameNoProgramAreRefused)
{
    std::ofstream(folder_.File("text.exe"))
        << "just text, long enough to be looked at as a program's header, and longer still\n";
    const std::pair<std::string, int> cases[] = {
        {"\"\"", ERROR_INVALID_PARAMETER},
        {"", ERROR_FILE_NOT_FOUND},
        {"\"" + Path("missing.exe") + "\"", ERROR_FILE_NOT_FOUND},
        {"\"" + Path("") + "\"", ERROR_ACCESS_DENIED},
        {"\"" + Path("text.exe") + "\" argument", ERROR_BAD_EXE_FORMAT},
    };
    for (const auto& [commandLine, error] : cases)
    {
        EXPECT_EQ(-error, RunCommand(commandLine)) << commandLine;
    }
}

TEST_F(Processes, ArgumentsArriveAsWritten)
{
    const auto file = folder_.File("arguments");
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
    EXPECT_EQ(9, RunCommand(OwnPath() + " --child ExitWith 9"));
    // Blanks in the path: what the quotes would hold is found piece by piece.
    std::filesystem::copy_file(OwnFile(), folder_.File("a program.exe"));
    EXPECT_EQ(8, RunCommand(Path("a program.exe") + " --child ExitWith 8"));
}

SNDX_CHILD(WriteHere)
{
    std::ofstream("written here") << ".";
    return 0;
}

TEST_F(Processes, ChildStartsInTheGivenFolder)
{
    EXPECT_EQ(0, RunCommand("\"" + OwnPath() + "\" --child WriteHere", Path("")));
    EXPECT_TRUE(std::filesystem::exists(folder_.File("written here")));
    EXPECT_LT(RunCommand("\"" + OwnPath() + "\" --child WriteHere", Path("missing")), 0);
}

SNDX_CHILD(HasVariable)
{
    const char* const value = std::getenv("SNDXTEST_VARIABLE");
    return value != nullptr && std::string(value) == arguments[0] ? 1 : 0;
}

TEST_F(Processes, EnvironmentPassesOn)
{
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), TEXT("a value")));
    EXPECT_EQ(1, ChildProcess("HasVariable", {"a value"}).Wait());
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("SNDXTEST_VARIABLE"), nullptr));
    EXPECT_EQ(0, ChildProcess("HasVariable", {"a value"}).Wait());
}
} // namespace
