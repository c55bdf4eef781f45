// Names at odd addresses. Reading one is undefined for the compiler, so that the native build's sanitizers
// would stop; the product only promises to report it on Windows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/settings.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "win32/settings.h"

namespace
{
using ::testing::ElementsAre;

// A wide string at an odd address.
class OddString
{
  public:
    explicit OddString(const std::string& text) : bytes_((text.size() + 2) * 2)
    {
        const sndxtest::WideString wide = sndxtest::Wide(text);
        std::memcpy(bytes_.data() + 1, wide.c_str(), (wide.size() + 1) * 2);
        char report[512];
        std::snprintf(
            report, sizeof(report),
            "**LDEBUGVALIDWIN32STRINGF The string %s is not word-aligned (address: %016llX). This might "
            "result in failure of some WinAPI functions.",
            text.c_str(), static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(Get())));
        report_ = report;
    }
    const WCHAR* Get() const { return reinterpret_cast<const WCHAR*>(bytes_.data() + 1); }
    const std::string& Report() const { return report_; }

  private:
    std::vector<char> bytes_;
    std::string report_;
};

TEST(SettingsAtOddAddresses, AreReportedAndRead)
{
    const sndxtest::CleanSettings clean;
    sndxtest::SetUserString("Test", "Value", "text");
    const OddString path("Software\\Taleno Software\\Sendora\\Test");
    const OddString name("Value");
    const OddString missing("Software\\Taleno Software\\Sendora\\None");
    const sndxtest::TraceCapture trace;
    WCHAR output[LSTR];
    EXPECT_TRUE(RegGetString(HKEY_CURRENT_USER, path.Get(), name.Get(), TEXT(""), output));
    EXPECT_EQ("text", sndxtest::Utf8(output));
    EXPECT_FALSE(RegGetString(HKEY_CURRENT_USER, missing.Get(), name.Get(), TEXT(""), output));
    // Without the key the value's name is not looked at.
    EXPECT_THAT(trace.Texts(), ElementsAre(path.Report(), name.Report(), missing.Report()));
}
} // namespace
