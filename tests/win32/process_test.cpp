// That nothing of a started program is kept. That it is waited for is tested with the module's requests.

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/text.h"
#include "tests/win32/timing.h"
#include "win32/process.h"

namespace
{
using namespace sndxtest;

SNDX_CHILD(EndAtOnce)
{
    return 0;
}

TEST(Process, ItsHandlesAreClosed)
{
    WCHAR path[1024];
    GetModuleFileNameW(nullptr, path, 1024);
    const WideString program = Wide("\"" + Utf8(path) + "\" --child EndAtOnce");
    const auto left = HandlesLeft(
        [&]
        {
            WideString commandLine = program;
            StartAndWaitForInputIdle(commandLine.data());
        });
    EXPECT_EQ(left, 0);
}
} // namespace
