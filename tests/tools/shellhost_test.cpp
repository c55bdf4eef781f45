#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include "tests/support/settings.h"
#include "tests/support/tracefile.h"
#include "tools/shellhost/shellhost.h"

using sndxtools::Arguments;
using testing::HasSubstr;

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

Answer RunWithStandIn(Arguments arguments, const std::string& input = {})
{
    arguments.insert(arguments.begin(), {"--module", SNDX_STANDIN_MODULE});
    return RunHost(arguments, input);
}
} // namespace

TEST(ShellHost, WrongUsageIsToldBeforeAnyModuleIsLoaded)
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
        EXPECT_THAT(answer.err, HasSubstr(complaint));
    }
    EXPECT_THAT(RunHost({"--help"}).out, HasSubstr("unload-test"));
    EXPECT_THAT(RunHost({"menu", "--help"}).out, HasSubstr("--cmd-first N"));
}

TEST(ShellHost, MissingOrForeignModulesEndWithExitCode3)
{
    const Answer missing = RunHost({"--module", "no-such-module.dll", "overlay", "C:\\a"});
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_THAT(missing.err, HasSubstr("no-such-module.dll'"));
#ifdef _WIN32
    const char* foreign = "C:\\windows\\system32\\version.dll";
#else
    const char* foreign = SNDX_FOREIGN_LIBRARY;
#endif
    const Answer other = RunHost({"--module", foreign, "state-changed"});
    EXPECT_EQ(other.exitCode, 3);
    EXPECT_THAT(other.err, HasSubstr("does not export DllGetClassObject"));
    // No module beside this test program.
    EXPECT_EQ(RunHost({"state-changed"}).exitCode, 3);
}

TEST(ShellHost, CommandsShowWhatTheModuleAnswers)
{
    const struct
    {
        Arguments arguments;
        int exitCode;
        std::string shown; // in either output
    } cases[] = {
        {{"overlay", "C:\\inside\\\u00E4.txt", "C:\\outside"},
         0,
         "C:\\inside\\\u00E4.txt: overlay\nC:\\outside: no overlay\n"
         "icon file: C:\\icon.dll\nicon index: 4\npriority: 9\n"},
        {{"overlay", "C:\\broken"}, 1, "C:\\broken: IsMemberOf answered 0x80004005 (E_FAIL)\n"},
        {{"menu", "--cmd-first", "100", "--cmd-last", "101", "C:\\inside\\a b.txt", "D:\\\u00F6"},
         0,
         "Stand-in >\n"
         "    C:\\inside\\a b.txt  [100]  no help text\n"
         "    D:\\\u00F6  [101]  \"Help \u00F6\"\n"
         "result: 0x00000002, 2 command identifiers used\n"},
        {{"menu", "--cmd-last", "1", "C:\\inside", "D:\\a", "D:\\b"}, 1, "result: 0x80000000"},
        {{"menu", "--flags", "default-only", "C:\\inside"}, 0, "(S_OK), 0 command identifiers used\n"},
        {{"menu", "C:\\broken"}, 1, "IShellExtInit::Initialize answered 0x80070057 (E_INVALIDARG)"},
        {{"invoke", "upload", "C:\\a", "C:\\b", "D:\\c"}, 1, "result: 0x80040003, "},
        {{"invoke", "delete", "C:\\a"}, 1, "result: 0x80040201, "},
        {{"invoke", "7", "C:\\a"}, 1, "result: 0x80040701, "},
        {{"invoke", "download", "C:\\a"}, 0, "result: 0x00000000 (S_OK), "},
#ifndef _WIN32
        {{"overlay", "/inside/a b"}, 0, "Z:\\inside\\a b: overlay\n"},
#endif
    };
    for (const auto& [arguments, exitCode, shown] : cases)
    {
        const Answer answer = RunWithStandIn(arguments);
        EXPECT_EQ(answer.exitCode, exitCode) << shown;
        EXPECT_THAT(answer.out + answer.err, HasSubstr(shown));
    }
}

TEST(ShellHost, ShellKeepsTheModuleLoadedUntilTheUnloadTestFreesIt)
{
    const Answer answer = RunWithStandIn({"shell"}, "# first\n"
                                                    "\n"
                                                    "overlay \"C:\\inside a\"\r\n"
                                                    "bogus\n"
                                                    "overlay \"open\n"
                                                    "state-changed\n"
                                                    "unload-test\n"
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
    // The announcement makes the module answer wrongly; only a module loaded afresh answers rightly again.
    EXPECT_EQ(codes, "[0][2][2][0][1][0]");
    EXPECT_THAT(answer.out, HasSubstr("C:\\inside a: overlay\n"));
    EXPECT_THAT(answer.out,
                HasSubstr("overlay object created: DllCanUnloadNow answers 0x00000000 (S_OK), but an "
                          "object is alive\n"));
    EXPECT_THAT(answer.err, HasSubstr("a double quote is not closed"));
    EXPECT_EQ(answer.out.find("never"), std::string::npos);
}

TEST(ShellHost, LeakShowsTheReportOfTheRealModuleAndNothingElseOfItsTrace)
{
    const sndxtest::CleanSettings settings;
    sndxtest::RemoveTraceFiles();
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler leaksAreWanted;
#endif
    // This module leaks as well, but has no report.
    const Answer silent = RunWithStandIn({"leak", "C:\\inside"});
    EXPECT_EQ(silent.exitCode, 1);
    EXPECT_THAT(silent.out, HasSubstr("No leak report was found"));

    const Answer answer = RunHost({"--module", SNDX_MODULE, "leak", "C:\\Made Up\\a.txt"});
    EXPECT_EQ(answer.exitCode, 0) << answer.err;
    EXPECT_THAT(answer.out, HasSubstr("DllCanUnloadNow answers 0x00000001 (S_FALSE)"));
    const std::string report = answer.out.substr(answer.out.find("ends:\n\n") + 7);
    EXPECT_EQ(report.find("** --- Leak Segments Start (Total "), report.find("**") + 6) << report;
    EXPECT_THAT(report, HasSubstr(" 48 Bytes allocated by LComClassFactory<class LSendoraContextMenu>::"));
    EXPECT_THAT(report, HasSubstr("  Execution terminated gracefully.\n"));
    EXPECT_EQ(report.find("DLL_PROCESS_ATTACH"), std::string::npos);
}
