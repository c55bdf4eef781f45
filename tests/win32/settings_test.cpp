// Reading single settings from real registry values of every make.

#include <cstring>

#include <gmock/gmock.h>

#include "tests/support/reports.h"
#include "tests/support/settings.h"
#include "tests/win32/timing.h"
#include "win32/settings.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string product = std::string(sndxtools::contract::productKey) + "\\";
const WideString testPath = Wide(product + "Test");

class Settings : public ::testing::Test
{
  protected:
    Settings() { RemoveNative(); }
    ~Settings() override { RemoveNative(); }

    // Machine-wide settings in the native view, which belong to nobody here.
    static void RemoveNative()
    {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, Wide(sndxtools::contract::companyKey).c_str());
    }
    // What one of the getters gives for "Test" and a value; "none" for its default.
    static std::string Get(WCHAR* (*getter)(const WCHAR*, const WCHAR*, const WCHAR*, WCHAR*),
                           const std::string& value)
    {
        WCHAR output[LSTR];
        EXPECT_EQ(getter(TEXT("Test"), Wide(value).c_str(), TEXT("none"), output), output);
        return Utf8(output);
    }

    CleanSettings clean_;
};

TEST_F(Settings, AnyValueIsReadIntoTheBufferOrNotAtAll)
{
    const auto units = [](const std::u16string& text, std::size_t size)
    {
        const BYTE* bytes = reinterpret_cast<const BYTE*>(text.c_str());
        return std::vector<BYTE>(bytes, bytes + size);
    };
    const std::u16string full(259, u'x');
    const std::string n259(259, 'x');
    struct Stored
    {
        DWORD type;
        std::vector<BYTE> bytes;
        std::string text;
    };
    const Stored values[] = {
        {REG_SZ, units(u"\u00e4b\u4e2d", 8), "\u00e4b\u4e2d"},
        {REG_SZ, units(u"abc", 6), "abc"}, // without its terminator
        {REG_SZ, units(full, 520), n259},
        {REG_SZ, units(full + u'y', 520), n259},
        {REG_SZ, units(full + u'y', 519), n259},
        {REG_SZ, units(full + u'y', 522), "default"},
        {REG_BINARY, units(full + u"yy", 521), "default"},
        {REG_SZ, units(u"abc", 5), "ab"},
        {REG_SZ, {'a'}, ""},
        {REG_SZ, {}, ""},
        {REG_DWORD, {'A', 0, 'B', 0}, "AB"},
        {REG_EXPAND_SZ, units(u"%TEMP%", 14), "%TEMP%"},
        {REG_MULTI_SZ, units(std::u16string(u"a\0b\0", 4), 10), "a"},
    };
    const TraceCapture trace;
    for (const Stored& stored : values)
    {
        SetSharedBytes("Test", "Value", stored.type, stored.bytes);
        WCHAR output[LSTR + 1];
        std::fill(std::begin(output), std::end(output), WCHAR{'#'});
        EXPECT_EQ(RegGetString32BitStore(HKEY_LOCAL_MACHINE, testPath.c_str(), TEXT("Value"), TEXT("default"),
                                         output),
                  stored.text != "default");
        EXPECT_EQ(Utf8(output), stored.text) << stored.bytes.size();
        EXPECT_EQ(output[LSTR], WCHAR{'#'}) << "written behind the buffer";
    }
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST_F(Settings, MachineWideOnesLiveInThe32BitViewAndAUsersOwnApart)
{
    EXPECT_EQ(Get(&LSharedSetting32GetString, "Value"), "none") << "no key";
    SetSharedString("Test", "Value", "32 bit");
    SetUserString("Test", "Value", "user's");
    SetMachineString(product + "Test", "Value", "native");
    SetMachineString(product + "Test", "NativeOnly", "native");
    const TraceCapture trace;
    EXPECT_EQ(Get(&LSharedSetting32GetString, "Value"), "32 bit");
    EXPECT_EQ(Get(&LSharedSetting32GetString, "NativeOnly"), "none");
    EXPECT_EQ(Get(&LUserSetting32GetString, "Value"), "user's");
    EXPECT_EQ(Get(&LUserSettingGetString, "Value"), "user's");
    EXPECT_EQ(Get(&LUserSettingGetString, "NativeOnly"), "none");
    const std::string shared = "_LSharedSetting32GetString ";
    EXPECT_THAT(trace.Texts(), ElementsAre(shared, shared, "_LUserSetting32GetString "));
    WCHAR output[LSTR];
    EXPECT_TRUE(RegGetString(HKEY_LOCAL_MACHINE, testPath.c_str(), TEXT("NativeOnly"), TEXT("none"), output));
    EXPECT_EQ(Utf8(output), "native");
    const auto left = HandlesLeft([] { Get(&LUserSettingGetString, "Value"); });
    EXPECT_EQ(left, 0);
}

TEST_F(Settings, AnOverlongKeyPathIsReportedCutAndUsed)
{
    const std::string section = "Deep\\" + std::string(300, 's');
    const std::string cut = (product + section).substr(0, 259);
    SetSharedString(cut.substr(product.size()), "Value", "text");
    const TraceCapture trace;
    WCHAR output[LSTR];
    LSharedSetting32GetString(Wide(section).c_str(), TEXT("Value"), TEXT(""), output);
    EXPECT_EQ(Utf8(output), "text");
    EXPECT_EQ(trace.Texts(), (Lines{"_LSharedSetting32GetString "} + Overflow("lw", cut)));
}

TEST_F(Settings, NumbersAreDecimalText)
{
    EXPECT_EQ(LUserSettingGet(TEXT("Test"), TEXT("Value"), 77), 77);
    SetUserString("Test", "Value", " -42x");
    EXPECT_EQ(LUserSettingGet(TEXT("Test"), TEXT("Value"), 77), -42);
}

TEST_F(Settings, AnOutputInMemoryOfAnotherKindIsReportedAndFilled)
{
    SetSharedString("Test", "Value", "text");
    WCHAR* const output =
        static_cast<WCHAR*>(VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    const Lines once = {"**LCHECKMEMORYWRITEABLE Memory is not marked as writeable!!!",
                        "**LCHECKMEMORYWRITEABLE 0x" + Address(output)};
    TraceCapture trace;
    LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output);
    EXPECT_EQ(Utf8(output), "text");
    // Once by the getter, before and after the key is opened by the registry primitive.
    EXPECT_EQ(trace.Texts(), (Lines{"_LSharedSetting32GetString "} + once + once + once));
    EXPECT_EQ(Traced([=] { LSettingsGetKeyPath(output, TEXT("Test")); }), once);
    VirtualFree(output, 0, MEM_RELEASE);
}

#ifdef _WIN32 // reading such a text is undefined for the compiler; only the platform promises it
TEST_F(Settings, NamesAtOddAddressesAreReportedAndUsed)
{
    SetUserString("Test", "Value", "text");
    std::vector<char> memory[2];
    Lines reports;
    for (const auto& [i, text] : {std::pair{0, testPath}, {1, Wide("Value")}})
    {
        memory[i].resize(2 * text.size() + 3);
        std::memcpy(&memory[i][1], text.c_str(), 2 * text.size() + 2);
        reports.push_back("**LDEBUGVALIDWIN32STRINGF The string " + Utf8(text) +
                          " is not word-aligned (address: " + Address(&memory[i][1]) +
                          "). This might result in failure of some WinAPI functions.");
    }
    const auto* path = reinterpret_cast<const WCHAR*>(&memory[0][1]);
    const auto* name = reinterpret_cast<const WCHAR*>(&memory[1][1]);
    WCHAR output[LSTR];
    EXPECT_EQ(Traced([&] { RegGetString(HKEY_CURRENT_USER, path, name, TEXT(""), output); }), reports);
    EXPECT_EQ(Utf8(output), "text");
}
#endif
} // namespace
