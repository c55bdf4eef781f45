// Reading single settings from real registry values of every make.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/settings.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/reports.h"
#include "tests/win32/timing.h"
#include "win32/settings.h"

namespace
{
using sndxtest::TraceCapture;
using sndxtest::Utf8;
using sndxtest::Wide;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr char companyPath[] = "Software\\Taleno Software";
constexpr char testPath[] = "Software\\Taleno Software\\Sendora\\Test";

class Settings : public ::testing::Test
{
  protected:
    Settings() { RemoveNative(); }
    ~Settings() override { RemoveNative(); }

    // Machine-wide settings in the native view, which belong to nobody here.
    static void RemoveNative() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, Wide(companyPath).c_str()); }
    static void SetNative(const std::string& name, const std::string& text)
    {
        HKEY key = nullptr;
        ASSERT_EQ(0, RegCreateKeyExW(HKEY_LOCAL_MACHINE, Wide(testPath).c_str(), 0, nullptr, 0, KEY_WRITE,
                                     nullptr, &key, nullptr));
        const sndxtest::WideString wide = Wide(text);
        RegSetValueExW(key, Wide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                       static_cast<DWORD>(wide.size() + 1) * 2);
        RegCloseKey(key);
    }

    sndxtest::CleanSettings clean_;
};

std::vector<BYTE> Units(const std::u16string& text)
{
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.data());
    return {bytes, bytes + 2 * text.size()};
}

std::vector<BYTE> Cut(std::vector<BYTE> bytes, std::size_t size)
{
    bytes.resize(size);
    return bytes;
}

struct Stored
{
    const char* name;
    DWORD type;
    std::vector<BYTE> bytes;
    bool read;
    std::string text; // what is read; otherwise the default is
};

class StoredValue : public Settings, public ::testing::WithParamInterface<Stored>
{
};

TEST_P(StoredValue, IsReadIntoTheBuffer)
{
    const Stored& stored = GetParam();
    sndxtest::SetSharedBytes("Test", "Value", stored.type, stored.bytes);
    const TraceCapture trace;
    WCHAR output[LSTR + 2];
    std::fill(std::begin(output), std::end(output), WCHAR{'#'});
    EXPECT_EQ(stored.read, RegGetString32BitStore(HKEY_LOCAL_MACHINE, Wide(testPath).c_str(), TEXT("Value"),
                                                  TEXT("default"), output));
    EXPECT_EQ(stored.read ? stored.text : "default", Utf8(output));
    EXPECT_EQ(WCHAR{'#'}, output[LSTR]) << "written behind the buffer";
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

const std::u16string x259(259, u'x');
const std::string n259(259, 'x');

INSTANTIATE_TEST_SUITE_P(
    Values, StoredValue,
    ::testing::Values(
        Stored{"Text", REG_SZ, Units(std::u16string(u"\u00e4b\u4e2d\0", 4)), true, "\u00e4b\u4e2d"},
        Stored{"Terminated", REG_SZ, Units(std::u16string(u"abc\0", 4)), true, "abc"},
        Stored{"Unterminated", REG_SZ, Units(u"abc"), true, "abc"},
        Stored{"TextBehindTheTerminator", REG_SZ, Units(std::u16string(u"a\0b\0", 4)), true, "a"},
        Stored{"FullWithTerminator", REG_SZ, Units(x259 + u'\0'), true, n259},
        Stored{"FullWithoutTerminator", REG_SZ, Units(x259 + u'y'), true, n259},
        Stored{"TooLong", REG_SZ, Units(x259 + std::u16string(u"y\0", 2)), false, ""},
        Stored{"TooLongByAByte", REG_BINARY, Cut(Units(x259 + u"yy"), 521), false, ""},
        Stored{"OddLength", REG_SZ, Cut(Units(u"abc"), 5), true, "ab"},
        Stored{"OddFull", REG_SZ, Cut(Units(x259 + u'y'), 519), true, n259},
        Stored{"OneByte", REG_SZ, {'a'}, true, ""}, Stored{"NoBytes", REG_SZ, {}, true, ""},
        Stored{"Number", REG_DWORD, {'A', 0, 'B', 0}, true, "AB"},
        Stored{"Binary", REG_BINARY, Units(u"bin"), true, "bin"},
        Stored{"Expandable", REG_EXPAND_SZ, Units(std::u16string(u"%TEMP%\0", 7)), true, "%TEMP%"},
        Stored{"Strings", REG_MULTI_SZ, Units(std::u16string(u"a\0b\0\0", 5)), true, "a"}),
    [](const auto& test) { return test.param.name; });

TEST_F(Settings, MissingKeysAndValuesGiveTheDefault)
{
    const auto wide = Wide(testPath);
    WCHAR output[LSTR] = {'#', 0};
    EXPECT_FALSE(
        RegGetString32BitStore(HKEY_LOCAL_MACHINE, wide.c_str(), TEXT("Value"), TEXT("no key"), output));
    EXPECT_EQ("no key", Utf8(output));
    sndxtest::SetSharedString("Test", "Other", "text");
    EXPECT_FALSE(
        RegGetString32BitStore(HKEY_LOCAL_MACHINE, wide.c_str(), TEXT("Value"), TEXT("no value"), output));
    EXPECT_EQ("no value", Utf8(output));
    EXPECT_EQ(
        0, sndxtest::HandlesLeft(
               [&]
               {
                   RegGetString32BitStore(HKEY_LOCAL_MACHINE, wide.c_str(), TEXT("Value"), TEXT(""), output);
                   RegGetString32BitStore(HKEY_LOCAL_MACHINE, wide.c_str(), TEXT("Other"), TEXT(""), output);
               }));
}

TEST_F(Settings, MachineWideSettingsLiveInThe32BitView)
{
    sndxtest::SetSharedString("Test", "Value", "32 bit");
    SetNative("Value", "native");
    SetNative("NativeOnly", "native");
    WCHAR output[LSTR];
    EXPECT_EQ(output, LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output));
    EXPECT_EQ("32 bit", Utf8(output));
    EXPECT_EQ("no", Utf8(LSharedSetting32GetString(TEXT("Test"), TEXT("NativeOnly"), TEXT("no"), output)));

    const auto path = Wide(testPath);
    EXPECT_TRUE(RegGetString(HKEY_LOCAL_MACHINE, path.c_str(), TEXT("Value"), TEXT(""), output));
    EXPECT_EQ("native", Utf8(output));
    EXPECT_TRUE(RegGetStringFlags(HKEY_LOCAL_MACHINE, path.c_str(), TEXT("Value"), KEY_WOW64_32KEY, TEXT(""),
                                  output));
    EXPECT_EQ("32 bit", Utf8(output));
}

TEST_F(Settings, UserAndMachineAreApartAndBothViewsOfTheUserAreOne)
{
    sndxtest::SetUserString("Test", "Value", "user's");
    sndxtest::SetSharedString("Test", "Value", "machine's");
    sndxtest::SetSharedString("Test", "Other", "machine's");
    WCHAR output[LSTR];
    EXPECT_EQ(output, LUserSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output));
    EXPECT_EQ("user's", Utf8(output));
    EXPECT_EQ(output, LUserSettingGetString(TEXT("Test"), TEXT("Value"), TEXT(""), output));
    EXPECT_EQ("user's", Utf8(output));
    EXPECT_EQ("", Utf8(LUserSetting32GetString(TEXT("Test"), TEXT("Other"), TEXT(""), output)));
    EXPECT_EQ("machine's", Utf8(LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output)));
}

TEST_F(Settings, OnlyThe32BitGettersTraceTheirCalls)
{
    const TraceCapture trace;
    WCHAR output[LSTR];
    LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output);
    LUserSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output);
    LUserSettingGetString(TEXT("Test"), TEXT("Value"), TEXT(""), output);
    LUserSettingGet(TEXT("Test"), TEXT("Value"), 1);
    EXPECT_THAT(trace.Texts(), ElementsAre("_LSharedSetting32GetString ", "_LUserSetting32GetString "));
}

TEST_F(Settings, ASectionMayBeAPath)
{
    WCHAR path[LSTR];
    LSettingsGetKeyPath(path, TEXT("Accounts\\A1"));
    EXPECT_EQ("Software\\Taleno Software\\Sendora\\Accounts\\A1", Utf8(path));
    sndxtest::SetSharedString("Accounts\\A1", "LocalFolder", "C:\\Data");
    EXPECT_EQ("C:\\Data",
              Utf8(LSharedSetting32GetString(TEXT("Accounts\\A1"), TEXT("LocalFolder"), TEXT(""), path)));
}

TEST_F(Settings, AnOverlongKeyPathIsReportedCutAndUsed)
{
    const std::string prefix = "Software\\Taleno Software\\Sendora\\";
    const std::string cut = (prefix + std::string(300, 's')).substr(0, 259);
    const auto section = Wide(std::string(300, 's'));
    sndxtest::SetSharedString(cut.substr(prefix.size()), "Value", "text");
    const TraceCapture trace;
    WCHAR output[LSTR];
    EXPECT_EQ("text", Utf8(LSharedSetting32GetString(section.c_str(), TEXT("Value"), TEXT(""), output)));
    std::vector<std::string> expected = {"_LSharedSetting32GetString "};
    for (const std::string& line : sndxtest::OverflowReport(cut))
    {
        expected.push_back(line);
    }
    EXPECT_THAT(trace.Texts(), ElementsAreArray(expected));
}

struct Number
{
    const char* text; // null: no value
    std::int32_t result;
};

TEST_F(Settings, NumbersAreDecimalText)
{
    EXPECT_EQ(77, LUserSettingGet(TEXT("Test"), TEXT("Value"), 77)) << "no key";
    for (const Number& number :
         {Number{"42", 42}, Number{" -7", -7}, Number{"\t+5", 5}, Number{"12abc", 12}, Number{"abc", 0},
          Number{"", 77}, Number{" ", 0}, Number{"0", 0}, Number{"99999999999", 2147483647},
          Number{"-99999999999", -2147483647 - 1}, Number{"2147483647", 2147483647}, Number{"0x10", 0}})
    {
        SCOPED_TRACE(number.text);
        sndxtest::SetUserString("Test", "Value", number.text);
        EXPECT_EQ(number.result, LUserSettingGet(TEXT("Test"), TEXT("Value"), 77));
    }
    EXPECT_EQ(77, LUserSettingGet(TEXT("Test"), TEXT("Other"), 77)) << "no value";
}

TEST_F(Settings, AnOutputInMemoryOfAnotherKindIsReportedAndFilled)
{
    sndxtest::SetSharedString("Test", "Value", "text");
    WCHAR* const output =
        static_cast<WCHAR*>(VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    ASSERT_NE(nullptr, output);
    char address[64];
    std::snprintf(address, sizeof(address), "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(output)));
    const std::string first = "**LCHECKMEMORYWRITEABLE Memory is not marked as writeable!!!";
    const std::string second = std::string("**LCHECKMEMORYWRITEABLE 0x") + address;

    TraceCapture trace;
    EXPECT_EQ("text", Utf8(LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output)));
    // Once by the getter, before and after the key is opened by the registry primitive.
    EXPECT_THAT(trace.Texts(),
                ElementsAre("_LSharedSetting32GetString ", first, second, first, second, first, second));
    trace.Restart();
    EXPECT_EQ("none", Utf8(LUserSettingGetString(TEXT("Test"), TEXT("Value"), TEXT("none"), output)));
    EXPECT_THAT(trace.Texts(), ElementsAre(first, second));
    trace.Restart();
    LSettingsGetKeyPath(output, TEXT("Test"));
    EXPECT_THAT(trace.Texts(), ElementsAre(first, second));
    EXPECT_EQ(testPath, Utf8(output));
    VirtualFree(output, 0, MEM_RELEASE);
}
} // namespace
