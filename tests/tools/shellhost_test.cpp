#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/leakchecker.h"
#include "tests/support/settings.h"
#include "tests/support/tracefile.h"
#include "tools/shellhost/shellhost.h"

using sndxtools::Arguments;
using testing::IsSubstring;

namespace
{
struct Answer
{
    int exitCode;
    std::string out;
    std::string err;
};

Answer RunHost(const Arguments& arguments, const std::string& input = {})
{
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    const int exitCode = sndxtools::RunShellHost(arguments, in, out, err);
    return {exitCode, out.str(), err.str()};
}

// The real module, with one account.
struct ShellHost : testing::Test
{
    ShellHost()
    {
        sndxtest::RemoveTraceFiles();
        sndxtest::AddAccount("A", "C:\\inside");
    }
    static Answer Run(Arguments arguments, const std::string& input = {})
    {
        arguments.insert(arguments.begin(), {"--module", SNDX_MODULE});
        return RunHost(arguments, input);
    }
    const sndxtest::CleanSettings settings;
};
} // namespace

TEST_F(ShellHost, WrongUsageIsToldBeforeAnyModuleIsLoaded)
{
    const struct
    {
        Arguments arguments;
        const char* complaint;
    } cases[] = {
        {{}, "a command is missing"},
        {{"bogus"}, "not expected: bogus"},
        {{"--module", "C:\\m.dll", "--registered", "overlay", "C:\\a"}, "--module excludes --registered"},
        {{"--module", "C:\\m.dll", "overlay"}, "PATH is required"},
        {{"--module", "C:\\m.dll", "overlay", "C:\\a", "b\\c"}, "'b\\c' is not a full path"},
        {{"--module", "C:\\m.dll", "menu", "--cmd-first", "x", "C:\\a"}, "--cmd-first = x"},
        {{"--module", "C:\\m.dll", "menu", "--flags", "all", "C:\\a"}, "--flags: all not in"},
        {{"--module", "C:\\m.dll", "invoke", "65536", "C:\\a"}, "COMMAND = 65536"},
        {{"--module", "C:\\m.dll", "state-changed", "now"}, "not expected: now"},
        {{"--module", "C:\\m.dll", "leak", "b\\c"}, "'b\\c' is not a full path"},
    };
    for (const auto& [arguments, complaint] : cases)
    {
        const Answer answer = RunHost(arguments);
        EXPECT_EQ(answer.exitCode, 2) << complaint;
        EXPECT_EQ(answer.out, "") << complaint;
        EXPECT_PRED_FORMAT2(IsSubstring, complaint, answer.err);
    }
    EXPECT_PRED_FORMAT2(IsSubstring, "unload-test", RunHost({"--help"}).out);
    EXPECT_PRED_FORMAT2(IsSubstring, "--cmd-first N", RunHost({"menu", "--help"}).out);
}

TEST_F(ShellHost, MissingOrForeignModulesEndWithExitCode3)
{
    const Answer missing = RunHost({"--module", "no-such-module.dll", "overlay", "C:\\a"});
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_PRED_FORMAT2(IsSubstring, "no-such-module.dll'", missing.err);
#ifdef _WIN32
    const char* foreign = "C:\\windows\\system32\\version.dll";
#else
    const char* foreign = SNDX_FOREIGN_LIBRARY;
#endif
    const Answer other = RunHost({"--module", foreign, "state-changed"});
    EXPECT_EQ(other.exitCode, 3);
    EXPECT_PRED_FORMAT2(IsSubstring, "does not export DllGetClassObject", other.err);
    // No module beside this test program.
    EXPECT_EQ(RunHost({"state-changed"}).exitCode, 3);
}

TEST_F(ShellHost, CommandsShowWhatTheModuleAnswers)
{
    const struct
    {
        Arguments arguments;
        int exitCode;
        std::string shown; // in either output
    } cases[] = {
        // There is no such file: attributes that cannot be read count as changed.
        {{"overlay", "C:\\inside\\\u00E4.txt", "C:\\outside"},
         0,
         "C:\\inside\\\u00E4.txt: overlay\nC:\\outside: no overlay\nicon file: "},
        {{"overlay", "C:\\inside"}, 0, "\nicon index: 0\npriority: 0\n"},
        {{"menu", "--cmd-first", "100", "--cmd-last", "102", "C:\\inside\\a b.txt", "D:\\\u00F6"},
         0,
         "Sendora >\n"
         "    Hochladen  [100]  \"Mit Sendora hochladen\"\n"
         "    Herunterladen  [101]  \"Mit Sendora herunterladen\"\n"
         "    L\u00F6schen  [102]  \"Mit Sendora l\u00F6schen\"\n"
         "result: 0x00000003, 3 command identifiers used\n"},
        {{"menu", "--cmd-last", "2", "C:\\inside\\a"}, 1, "result: 0x80000000"},
        {{"menu", "--flags", "default-only", "C:\\inside\\a"}, 0, "(S_OK), 0 command identifiers used\n"},
        {{"invoke", "delete", "C:\\a"}, 1, "result: 0x80004005 (E_FAIL), "}, // there is no main program
#ifndef _WIN32
        {{"overlay", "/inside/a b"}, 0, "Z:\\inside\\a b: no overlay\n"},
#endif
    };
    for (const auto& [arguments, exitCode, shown] : cases)
    {
        const Answer answer = Run(arguments);
        EXPECT_EQ(answer.exitCode, exitCode) << shown;
        EXPECT_PRED_FORMAT2(IsSubstring, shown, answer.out + answer.err);
    }
}

TEST_F(ShellHost, ShellAnswersLineByLineWithAnExitCodeEach)
{
    const Answer answer = Run({"shell"}, "# first\n"
                                         "\n"
                                         "overlay \"C:\\inside a\"\r\n"
                                         "bogus\n"
                                         "overlay \"open\n"
                                         "state-changed\n"
                                         "unload-test\n"
                                         "quit\n"
                                         "overlay C:\\never\n");
    EXPECT_EQ(answer.exitCode, 2);
    std::string codes;
    std::istringstream lines(answer.out);
    for (std::string line; std::getline(lines, line);)
    {
        codes += line.starts_with("[") ? line : "";
    }
    EXPECT_EQ(codes, "[0][2][2][0][0]");
    EXPECT_PRED_FORMAT2(IsSubstring, "C:\\inside a: no overlay\n", answer.out);
    EXPECT_PRED_FORMAT2(IsSubstring, "a double quote is not closed", answer.err);
    EXPECT_EQ(answer.out.find("never"), std::string::npos);
}

TEST_F(ShellHost, LeakShowsTheReportAndNothingElseOfTheTrace)
{
    sndxtest::leakCheckerIsOff = true;
    const Answer answer = Run({"leak", "C:\\Made Up\\a.txt"});
    EXPECT_EQ(answer.exitCode, 0) << answer.err;
    EXPECT_PRED_FORMAT2(IsSubstring, "DllCanUnloadNow answers 0x00000001 (S_FALSE)", answer.out);
    const std::string report = answer.out.substr(answer.out.find("ends:\n\n") + 7);
    EXPECT_EQ(report.find("** --- Leak Segments Start (Total "), report.find("**") + 6) << report;
    for (const char* shown : {" 48 Bytes allocated by LComClassFactory<class LSendoraContextMenu>::",
                              "  Execution terminated gracefully.\n"})
    {
        EXPECT_PRED_FORMAT2(IsSubstring, shown, report);
    }
    EXPECT_EQ(report.find("DLL_PROCESS_ATTACH"), std::string::npos);

    sndxtest::SetUserString("Debug", "Memory Mode", "5"); // which keeps no list of blocks
    const Answer silent = Run({"leak"});
    EXPECT_EQ(silent.exitCode, 1);
    EXPECT_PRED_FORMAT2(IsSubstring, "No leak report was found", silent.out);
}
