// Registry reads that the system refuses. Only the native layer's calls can be made to fail.

#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/support/settings.h"
#include "tests/support/text.h"
#include "win32/settings.h"

namespace
{
TEST(RefusedSettings, GiveTheDefault)
{
    const sndxtest::CleanSettings clean;
    sndxtest::SetSharedString("Test", "Value", "text");
    for (const char* const function : {"RegOpenKeyExW", "RegQueryValueExW"})
    {
        SCOPED_TRACE(function);
        sndxposix::FailCall(function, ERROR_ACCESS_DENIED);
        WCHAR output[LSTR];
        LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT("default"), output);
        EXPECT_EQ("default", sndxtest::Utf8(output));
        EXPECT_EQ(0u, sndxposix::PendingFailures());
        LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT("default"), output);
        EXPECT_EQ("text", sndxtest::Utf8(output));
    }
}
} // namespace
