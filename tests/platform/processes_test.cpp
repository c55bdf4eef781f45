// Command lines that name no program.

#include <string>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/platform/temporaryfolder.h"
#include "tests/support/tracefile.h"

namespace
{
using namespace sndxtest;

TEST(CommandLines, ThatNameNoProgramAreRefused)
{
    const TemporaryFolder folder;
    WriteWholeFile(folder / "text.exe",
                   "just text, long enough to be looked at as a program's header, and longer still\n");
    const std::pair<std::string, DWORD> cases[] = {
        {"\"\"", ERROR_INVALID_PARAMETER},
        {"", ERROR_FILE_NOT_FOUND},
        {"\"" + (folder / "missing.exe") + "\"", ERROR_FILE_NOT_FOUND},
        {"\"" + (folder / "") + "\"", ERROR_ACCESS_DENIED},
        {"\"" + (folder / "text.exe") + "\" argument", ERROR_BAD_EXE_FORMAT},
    };
    for (const auto& [commandLine, error] : cases)
    {
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION information{};
        WideString text = Wide(commandLine);
        EXPECT_EQ(ErrorOf(CreateProcessW(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                         &startup, &information)),
                  error)
            << commandLine;
    }
}
} // namespace
